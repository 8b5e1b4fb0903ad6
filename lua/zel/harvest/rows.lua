--- What a service offers, as statements that put it into the database.

local boxes = require "zel.ogc.boxes"
local errors = require "zel.ogc.errors"
local layer = require "zel.ogc.layer"
local records = require "zel.ogc.records"
local schema = require "zel.harvest.schema"
local sql = require "zel.harvest.sql"
local service = require "zel.ogc.service"

local concat = table.concat
local text, number, flag, row = sql.text, sql.number, sql.flag, sql.row
local MOST_OF_LISTS = 4000000 -- bytes of lists of systems that are kept in mind
local PART = 500      -- layers that are looked at at once
local BY_NUMBER = 32000 -- layers that can be asked for in parts
local TABLES = {"keyword", "bounds", "style", "dimension", "system"} -- beside layer and coverage

local rows = {}

-- A box in degrees that can be searched for: finite numbers on the Earth, south before north; nil otherwise.
local function usable(box)
  if not box then return nil end
  for i = 1, 4 do
    if box[i] ~= box[i] or math.abs(box[i]) == math.huge then return nil end
  end
  local west, south, east, north = table.unpack(box)
  if south > north then south, north = north, south end
  south, north = math.max(south, -90), math.min(north, 90)
  if south > north or math.abs(west) > 540 or math.abs(east) > 540 then return nil end
  if east - west >= 360 then return {-180, south, 180, north} end
  if west < -180 or east > 180 then
    local turned = (west + 180) % 360 - 180
    east = turned + (east - west) % 360
    west, east = turned, east > 180 and east - 360 or east
  end
  return {west, south, east, north}
end

local function box_columns(box)
  if not box then return "NULL,NULL,NULL,NULL" end
  return ("%.17g,%.17g,%.17g,%.17g"):format(box[1], box[2], box[3], box[4])
end

-- The box around both; one that crosses the date line counts on beyond 180 degrees.
local function union(whole, box)
  return boxes.union(whole, box and boxes.unrolled(box))
end

-- The rows of one service while they are made.
local Service = {}
Service.__index = Service

function Service:keywords(item, words)
  local position = 0
  for _, word in ipairs(words) do
    if word ~= "" then
      position = position + 1
      self.keyword[#self.keyword + 1] = "(" .. item .. "," .. position .. "," .. text(word) .. ")"
    end
  end
end

-- The number of a list of names of systems, which is made from the names; it is stored once.
function Service:system_list(names)
  if #names == 0 then return "NULL" end
  local key, lists = concat(names, "\n"), self.lists
  local list = lists.numbers[key]
  if not list then
    list = tonumber(zel.digest(key):sub(1, 15), 16)
    if lists.bytes > MOST_OF_LISTS then lists.bytes, lists.numbers = 0, {} end
    lists.bytes, lists.numbers[key] = lists.bytes + #key, list
    for i, name in ipairs(names) do self.system[#self.system + 1] = row(list, i, text(name)) end
  end
  return list
end

function Service:layer(record)
  local position = tonumber(record.LAYER) + 1
  if position >= schema.SPAN then errors.raise(("the service has more than %d layers"):format(schema.SPAN - 1)) end
  local id = self.id + position
  local above = self.open[tonumber(record.PARENT)] or {}
  local scale = layer.scale(record, above)
  local own = {box = usable(layer.box(record)) or above.box,
               min = scale.min, max = scale.max,
               queryable = layer.flag(record.QUERYABLE, above.queryable),
               opaque = layer.flag(record.OPAQUE, above.opaque),
               attribution = records.text(record.ATTRIBUTION.TITLE) or above.attribution, id = id,
               level = tonumber(record.LEVEL) or 1}
  self:open_level(tonumber(record.LAYER), own)
  self.box = union(self.box, own.box)
  self.rows[#self.rows + 1] = row(id, self.id, above.id or "NULL", own.level, position, text(record.NAME),
    text(record.TITLE), text(record.ABSTRACT), text(own.attribution), flag(own.queryable), flag(own.opaque),
    number(records.number(record.CASCADED)), box_columns(own.box), number(own.min), number(own.max),
    self:system_list(layer.systems(record)))
  self:keywords(id, records.list(record.KEYWORD, record.NUM_KEYWORD))
  for i, one in ipairs(layer.bounding_boxes(record)) do
    if one.box then self.bounds[#self.bounds + 1] = row(id, i, text(one.crs), box_columns(one.box)) end
  end
  for i, style in ipairs(records.list(record.STYLE, record.NUM_STYLE)) do
    self.style[#self.style + 1] = "(" .. id .. "," .. i .. "," .. text(style.NAME) .. "," .. text(style.TITLE) .. ","
                                  .. text(style.ABSTRACT) .. "," .. text(style.LEGEND_ONLINE) .. ")"
  end
  for i, one in ipairs(layer.dimensions(record)) do
    self.dimension[#self.dimension + 1] = row(id, i, text(one.name), text(one.units), text(one.default),
                                              text(concat(one.values, ",")))
  end
end

-- Keeps what the layers inside inherit, and forgets what lies beside.
function Service:open_level(index, own)
  local levels = self.levels
  for level = #levels, own.level, -1 do
    self.open[levels[level]] = nil
    levels[level] = nil
  end
  levels[own.level] = index
  self.open[index] = own
end

function Service:coverage(brief, position)
  local id = self.id + position
  local low, high = records.numbers(brief.POS1), records.numbers(brief.POS2)
  local box = low[2] and high[2] and usable{low[1], low[2], high[1], high[2]} or nil
  self.box = union(self.box, box)
  self.rows[#self.rows + 1] = row(id, self.id, position, text(brief.NAME), text(brief.LABEL), text(brief.DESCRIPTION),
    box_columns(box), text(brief.TM_POS1), text(brief.TM_POS2))
  self:keywords(id, records.list(brief.KEYWORDS))
end

-- Appends the rows made so far to the statements.
function Service:flush()
  for _, name in ipairs(TABLES) do
    sql.insert(self.statements, name, self[name], name == "system")
    self[name] = {}
  end
  sql.insert(self.statements, self.kind == "WMS" and "layer" or "coverage", self.rows)
  self.rows = {}
end

-- All layers, some at a time: their structures are many times larger than the rows.
function Service:layers(object)
  local index, first = 0, nil
  while true do
    local found = object:GetLayers{INDEX = index, NUMBER = index < BY_NUMBER and PART or nil}
    if found == 0 then break end
    first = first or found[1]
    for _, record in ipairs(found) do self:layer(record) end
    self:flush()
    if index >= BY_NUMBER or #found < PART then break end
    index = index + #found
  end
  return first
end

function Service:coverages(object)
  local briefs = object:GetCoverageOfferingBriefs()
  if briefs == 0 then return nil end
  for i, brief in ipairs(briefs) do
    self:coverage(brief, i)
    if i % PART == 0 then self:flush() end
  end
  self:flush()
  return briefs[1]
end

-- The service's own row. `first` is the first structure of its layers or coverages.
function Service:update(section, first, facts)
  local set, is_wms = {}, self.kind == "WMS"
  local function column(name, value) set[#set + 1] = name .. "=" .. value end
  for _, names in ipairs(schema.CONTACT) do column(names[1], text(section[is_wms and names[2] or names[3]])) end
  for name, tag in pairs{max_width = "MAX_WIDTH", max_height = "MAX_HEIGHT", layer_limit = "LAYER_LIMIT"} do
    column(name, number(records.number(section[tag])))
  end
  column("map_formats", text(concat(first and records.list(first.MAP_FORMAT, first.NUM_MAP_FORMAT) or {}, ", ")))
  column("info_formats",
         text(concat(first and records.list(first.FEATURE_FORMAT, first.NUM_FEATURE_FORMAT) or {}, ", ")))
  for name, value in pairs(facts) do column(name, type(value) == "number" and number(value) or text(value)) end
  local whole = usable(self.box)
  for i, name in ipairs{"west", "south", "east", "north"} do column(name, whole and number(whole[i]) or "NULL") end
  self:keywords(self.id, is_wms and records.list(section.KEYWORD, section.NUM_KEYWORD)
                         or records.list(section.KEYWORDS))
  self.statements[#self.statements + 1] = ("UPDATE service SET %s WHERE id=%d"):format(concat(set, ","), self.id)
end

--- The ids of what belongs to a service: the first and the last.
function rows.range(id) return id, id + schema.SPAN - 1 end

-- What `columns` are of a service's items.
local function of_items(columns, id)
  return ("SELECT %s FROM item WHERE id BETWEEN %d AND %d"):format(columns, rows.range(id))
end

--- Statements that let the search find a service's items, which are stored. A box over the date line counts on beyond
-- 180 degrees in the index.
function rows.indexing(id)
  return {
    "INSERT INTO words (rowid,title,name,keywords,abstract) " .. of_items("id,title,name,keywords,abstract", id),
    "INSERT INTO box " .. of_items("id,west,east + 360 * (west > east),south,north", id) .. " AND west IS NOT NULL",
  }
end

--- Statements that remove what is stored of a service.
function rows.removal(id)
  local first, last = rows.range(id)
  local list = {"INSERT INTO words (words,rowid,title,name,keywords,abstract) "
                .. of_items("'delete',id,title,name,keywords,abstract", id)}
  for _, name in ipairs{"box", "layer", "coverage"} do
    list[#list + 1] = ("DELETE FROM %s WHERE id BETWEEN %d AND %d"):format(name, first, last)
  end
  for name, column in pairs{keyword = "item", bounds = "layer", style = "layer", dimension = "layer"} do
    list[#list + 1] = ("DELETE FROM %s WHERE %s BETWEEN %d AND %d"):format(name, column, first, last)
  end
  return list
end

--- The statements that store what the object read of a service, whose row is `known`. `facts` are further columns of
-- it, `lists` the numbers of lists of systems that are stored already, by their names, and the bytes of those names.
function rows.of(object, known, facts, lists)
  local made = setmetatable({id = known.id, kind = known.kind, lists = lists, levels = {}, open = {}, rows = {},
                             statements = known.harvested and rows.removal(known.id) or {}}, Service)
  for _, name in ipairs(TABLES) do made[name] = {} end
  local first = known.kind == "WMS" and made:layers(object) or known.kind == "WCS" and made:coverages(object) or nil
  local section = service.section{object = object} or {}
  if first then
    facts.version = records.text(first.VERSION) or facts.version
    facts.update_sequence = facts.update_sequence or records.text(first.UPDATE_SEQ)
  end
  made:update(section, first, facts)
  made:flush()
  return table.move(rows.indexing(known.id), 1, 2, #made.statements + 1, made.statements)
end

return rows

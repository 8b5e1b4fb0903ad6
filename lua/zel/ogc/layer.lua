--- A layer of a Web Map Service as a table, the same for all versions.
--
-- of(record, parent) makes it from a layer structure, other functions give parts of it.

local records = require "zel.ogc.records"

-- Scale hints of 1.1 are the diagonal of a pixel in metres; a denominator says how many metres of ground one metre of
-- a screen with pixels of 0.28 mm shows (OGC 06-042, 7.2.4.6.9).
local PIXEL = 0.00028

local NO_LIMIT = 1e12 -- services write 0 and very large numbers where they mean no limit

local layer = {}

local function denominator(value, version)
  local number = records.number(value)
  if not number or number <= 0 or number >= NO_LIMIT then return nil end
  return version == "1.3.0" and number or number / math.sqrt(2) / PIXEL
end

--- Limits of the scale as denominators, min and max: the layer's own, or those of the layer around it.
function layer.scale(record, above)
  return {min = denominator(record.MIN_SCALE, record.VERSION) or above.min,
          max = denominator(record.MAX_SCALE, record.VERSION) or above.max}
end

--- A flag: the layer's own, or that of the layer around it.
function layer.flag(own, above)
  if own == "" then return above end
  return own == "1" or own == "true"
end

--- The box in degrees; nil without one.
function layer.box(record)
  local old, new = record.LAT_LON_BBOX, record.EX_GEOBBOX
  return records.box(old.MINX, old.MINY, old.MAXX, old.MAXY) or records.box(new.WEST, new.SOUTH, new.EAST, new.NORTH)
end

local function bounding_box(entry)
  return {crs = records.text(entry.CRS) or records.text(entry.SRS),
          box = records.box(entry.MINX, entry.MINY, entry.MAXX, entry.MAXY)}
end

local function style(entry)
  return {name = entry.NAME, title = records.text(entry.TITLE), abstract = records.text(entry.ABSTRACT),
          legend = records.text(entry.LEGEND_ONLINE)}
end

local function values(extent)
  local found = {}
  for value in extent:gmatch("[^,]+") do found[#found + 1] = value:match("^%s*(.-)%s*$") end
  return found
end

--- Boxes in the units of reference systems: crs, box (nil when a number is missing).
function layer.bounding_boxes(record)
  return records.map(record.BOUNDING_BOX, record.NUM_BOUNDING_BOX, bounding_box)
end

function layer.styles(record) return records.map(record.STYLE, record.NUM_STYLE, style) end

--- Dimensions. 1.3.0 has a dimension's values in it, 1.1 in the extent of the same name.
function layer.dimensions(record)
  local extents, found = {}, {}
  for _, extent in ipairs(records.list(record.EXTENT, record.NUM_EXTENT)) do extents[extent.NAME:lower()] = extent end
  for _, entry in ipairs(records.list(record.DIMENSION, record.NUM_DIMENSION)) do
    local extent = extents[entry.NAME:lower()] or entry
    found[#found + 1] = {name = entry.NAME, units = records.text(entry.UNITS), default = records.text(extent.DEFAULT),
                         values = values(extent.EXTENT)}
  end
  return found
end

--- Names of reference systems.
function layer.systems(record)
  if record.VERSION == "1.3.0" then return records.list(record.CRS, record.NUM_CRS) end
  return records.list(record.SRS, record.NUM_SRS)
end

--- All that is known of a layer; `parent` is the one around it, nil for the outermost.
function layer.of(record, parent)
  local above = parent or {queryable = false, opaque = false, scale = {}}
  return {
    record = record, name = records.text(record.NAME), title = records.text(record.TITLE),
    abstract = records.text(record.ABSTRACT), level = records.number(record.LEVEL), children = {},
    keywords = records.list(record.KEYWORD, record.NUM_KEYWORD), parent = parent,
    queryable = layer.flag(record.QUERYABLE, above.queryable), opaque = layer.flag(record.OPAQUE, above.opaque),
    attribution = records.text(record.ATTRIBUTION.TITLE) or above.attribution,
    box = layer.box(record), crs = layer.systems(record),
    bounding_boxes = layer.bounding_boxes(record),
    styles = layer.styles(record), dimensions = layer.dimensions(record),
    scale = layer.scale(record, above.scale),
  }
end

return layer

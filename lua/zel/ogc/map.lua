--- s:map{...} fetches a map of a Web Map Service.
--
--   layers       names, the lowest first; the only argument that must be there
--   styles       a list in the order of the layers, or a table by layer name; the first style of each without it
--   crs          "EPSG:3857", or a number of EPSG's; without it degrees (EPSG:4326) where the layers have them
--   bbox         {west, south, east, north}, always x before y; without it the box around the layers
--   bbox_crs     the system of bbox, when it is not that of the map: the map shows the box around it
--   width, height  pixels; a missing one by the shape of the box, without both 1024 for the longer side
--   to           the file to write; its extension chooses the format. Without it the user's store
--   format       "png", "image/jpeg"; the best that is offered without it
--   transparent, bgcolor   true; "#ff8000"
--   time, elevation, dimensions   values, or lists of them; dimensions = {wavelength = 550}
--   extra        further parameters of this server, {MAP_RESOLUTION = 144}
--   tile         fetches tiles of at most so many pixels, and joins them in a .vrt; see zel.ogc.tiles. Maps beyond the
--                service's limits are made so without asking
--
-- Returns {file, size = {width, height}, box, crs, format, scale (denominator), notes (a list of texts)}. Beside a
-- picture are a world file and a .aux.xml.

local arguments = require "zel.ogc.arguments"
local choice = require "zel.ogc.choice"
local errors = require "zel.ogc.errors"
local extent = require "zel.ogc.extent"
local fetch = require "zel.ogc.fetch"
local files = require "zel.ogc.files"
local georeference = require "zel.ogc.georeference"
local map_query = require "zel.ogc.map_query"
local service = require "zel.ogc.service"
local tiles = require "zel.ogc.tiles"

local USUAL = 1024 -- pixels of a map's longer side

local MOST_TIMES = 10 -- that a note names

local TYPES = {
  layers = "table|string", styles = "table|string", crs = "string|number", bbox = "table", bbox_crs = "string|number",
  width = "number", height = "number", to = "string", format = "string", transparent = "boolean", bgcolor = "string",
  time = "string|table", elevation = "string|number|table", dimensions = "table", extra = "table", tile = "number",
}

local function choose_box(s, layers, o, system)
  local box = choice.box(o.bbox, o.bbox_crs, system, function() return extent.of(layers, system, s.version) end)
  if not box then
    errors.raise(("the service gives no box in %s for layer %s: say which with bbox"):format(system, layers[1].name))
  end
  return box
end

-- Width and height: as asked, a missing one by the shape of the box; without both the longer one has the usual length.
local function choose_size(s, o, box)
  local width, height = arguments.check_count("width", o.width), arguments.check_count("height", o.height)
  local shape = (box[4] - box[2]) / (box[3] - box[1])
  local function whole(number) return math.max(1, math.floor(number + 0.5)) end
  if not width and not height then
    local widest, highest = math.min(USUAL, s.max_width or USUAL), math.min(USUAL, s.max_height or USUAL)
    width = whole(math.min(widest, highest / shape))
    height = whole(math.min(highest, widest * shape))
  end
  return width or whole(height / shape), height or whole(width * shape)
end

-- A map beyond a layer's scales comes back without the layer.
local function note_scales(notes, layers, scale)
  for _, layer in ipairs(layers) do
    local least, most = layer.scale.min or 0, layer.scale.max or math.huge
    if scale < least or scale >= most then
      notes[#notes + 1] = ("layer %s is drawn at scales from 1:%.0f to 1:%s, and this map has 1:%.0f: it may be empty")
        :format(layer.name, least, most == math.huge and "any" or ("%.0f"):format(most), scale)
    end
  end
end

-- For a time that a layer does not have, servers refuse, or draw another.
local function note_times(notes, layers, time)
  if type(time) ~= "string" or time:find("[,/]") then return end
  for _, layer in ipairs(layers) do
    for _, dimension in ipairs(layer.dimensions) do
      local times = dimension.values
      local listed = dimension.name:lower() == "time" and times[1] and not table.concat(times):find("/", 1, true)
      if listed and not arguments.find(times, time) then
        local others = #times > MOST_TIMES and #times .. " others" or table.concat(times, ", ")
        notes[#notes + 1] = ("layer %s does not list the time %s, only %s"):format(layer.name, time, others)
      end
    end
  end
end

-- Fetches a part to a file, which is there only once it is complete and placed. Returns its name.
local function fetch_part(s, plan, box, width, height, path)
  return fetch(s, "GetMap", "MAP_FILENAME", map_query.part(s, plan, box, width, height), path, function(file)
    if georeference.extension(plan.format) then georeference.write(file, box, width, height, plan.crs) end
  end)
end

local function needs_tiles(s, o, width, height)
  return o.tile or width > (s.max_width or width) or height > (s.max_height or height)
end

return function(s, o)
  arguments.check("map", o, TYPES)
  service.check_online(s)
  local layers = choice.layers(s, "map", o.layers)
  local system = choice.system(s, layers, o.crs)
  local format = choice.format(s.formats, o.format, o.to and files.extension(o.to))
  if o.to then files.check_directory(o.to) end
  local box = choose_box(s, layers, o, system)
  local width, height = choose_size(s, o, box)
  local scale = map_query.scale((box[3] - box[1]) / width, system)
  local plan = {crs = system, format = format, parameters = map_query.parameters(s, layers, o, system, format)}
  local result = {size = {width, height}, box = box, crs = system, format = format, scale = scale,
                  notes = {}}
  note_scales(result.notes, layers, scale)
  note_times(result.notes, layers, o.time)
  if needs_tiles(s, o, width, height) then
    local largest = arguments.check_count("tile", o.tile) or math.huge
    plan.describe = function(...) return map_query.part(s, plan, ...) end
    plan.fetch = function(...) return fetch_part(s, plan, ...) end
    result.file = tiles.fetch(s, plan, result, {math.min(largest, s.max_width or largest),
                                                math.min(largest, s.max_height or largest)}, o.to)
  else
    result.file = fetch_part(s, plan, box, width, height, o.to)
  end
  return result
end

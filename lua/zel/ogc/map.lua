--- s:map{...} fetches a map of a Web Map Service.
--
--   layers       names, the lowest first; the only argument that must be there
--   styles       a list in the order of the layers, or a table by layer name; the first style of each without it
--   crs          "EPSG:3857", or a number of EPSG's; without it degrees (EPSG:4326) where the layers have them
--   bbox         {west, south, east, north}, always x before y; without it the box around the layers
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
local boxes = require "zel.ogc.boxes"
local choice = require "zel.ogc.choice"
local crs = require "zel.ogc.crs"
local errors = require "zel.ogc.errors"
local extent = require "zel.ogc.extent"
local files = require "zel.ogc.files"
local georeference = require "zel.ogc.georeference"
local query = require "zel.ogc.query"
local service = require "zel.ogc.service"
local tiles = require "zel.ogc.tiles"

local USUAL = 1024             -- pixels of a map's longer side
local PIXEL = 0.00028          -- metres, of the screen that scales are defined for (OGC 06-042, 7.2.4.6.9)
local DEGREE = 6378137 * math.pi / 180 -- metres, on the equator

local TYPES = {
  layers = "table|string", styles = "table|string", crs = "string|number", bbox = "table", width = "number",
  height = "number", to = "string", format = "string", transparent = "boolean", bgcolor = "string",
  time = "string|table", elevation = "string|number|table", dimensions = "table", extra = "table", tile = "number",
}

-- Parameters of the standard.
local OWN = {}
for name in ("VERSION SERVICE REQUEST LAYERS STYLES SRS CRS BBOX WIDTH HEIGHT FORMAT TRANSPARENT BGCOLOR TIME ELEVATION")
  :gmatch("%S+") do OWN[name] = true end

local function choose_box(s, layers, given, system)
  if given then
    choice.check_box(given, system)
    return given
  end
  local box = extent.of(layers, system, s.version)
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

local function color(text)
  local digits = text:match("^#(%x%x%x%x%x%x)$") or text:match("^0[xX](%x%x%x%x%x%x)$")
  if not digits then errors.raise(('bgcolor must be like "#ff8000", not "%s"'):format(text)) end
  return "0x" .. digits:upper()
end

local function dimension_names(layers)
  local names = {}
  for _, layer in ipairs(layers) do
    for _, dimension in ipairs(layer.dimensions) do
      if not arguments.find(names, dimension.name) then names[#names + 1] = dimension.name end
    end
  end
  return names
end

-- Time, elevation and further dimensions as parameters, each of them one that a layer has.
local function dimension_parameters(layers, o)
  local parameters, names = {}, dimension_names(layers)
  local function add(name, value)
    local found = arguments.find(names, name)
    if not found then errors.unknown("dimension", name, names, "of these layers") end
    local standard = name == "time" or name == "elevation"
    table.insert(parameters, {(standard and "" or "DIM_") .. name:upper(), table.concat(arguments.list(value), ",")})
  end
  if o.time then add("time", o.time) end
  if o.elevation then add("elevation", o.elevation) end
  for name, value in pairs(o.dimensions or {}) do add(name, value) end
  return parameters
end

local function layer_names(layers)
  local names = {}
  for i, layer in ipairs(layers) do names[i] = layer.name end
  return names
end

--- Metres of ground that a metre of the map shows, by its width.
local function scale_of(box, width, system)
  local entry = crs.describe(system)
  return (box[3] - box[1]) * (entry.geographic and DEGREE or 1) / width / PIXEL
end

-- A map beyond a layer's scales comes back without it: that is worth saying.
local function scale_notes(layers, scale)
  local notes = {}
  for _, layer in ipairs(layers) do
    local least, most = layer.scale.min or 0, layer.scale.max or math.huge
    if scale < least or scale >= most then
      notes[#notes + 1] = ("layer %s is drawn at scales from 1:%.0f to 1:%s, and this map has 1:%.0f: it may be empty")
        :format(layer.name, least, most == math.huge and "any" or ("%.0f"):format(most), scale)
    end
  end
  return notes
end

-- Parameters of the server's own, sorted; not those that arguments of their own write.
local function extra_parameters(extra)
  local parameters = {}
  for name, value in pairs(extra) do
    if OWN[tostring(name):upper()] then errors.raise(name .. " is no extra parameter: the other arguments write it") end
    parameters[#parameters + 1] = {name, value}
  end
  table.sort(parameters, function(a, b) return a[1] < b[1] end)
  return parameters
end

--- The parameters of a request that are the same for every part of a map.
local function parameters_of(s, layers, o, system, format)
  local transparent = o.transparent
  if transparent ~= nil then transparent = transparent and "TRUE" or "FALSE" end
  local parameters = {
    {"LAYERS", query.names(layer_names(layers))}, {"STYLES", query.names(choice.styles(layers, o.styles))},
    {s.version == "1.3.0" and "CRS" or "SRS", system}, {"FORMAT", format}, {"TRANSPARENT", transparent},
    {"BGCOLOR", o.bgcolor and color(o.bgcolor)},
  }
  for _, parameter in ipairs(dimension_parameters(layers, o)) do table.insert(parameters, parameter) end
  for _, parameter in ipairs(extra_parameters(o.extra or {})) do table.insert(parameters, parameter) end
  return parameters
end

--- Adds what makes a part of a map: its box, turned where the version and the system ask for it, and its size.
local function part_query(s, plan, box, width, height)
  local turned = s.version == "1.3.0" and crs.describe(plan.crs).north_first
  local parameters = table.move(plan.parameters, 1, #plan.parameters, 1, {})
  table.move({{"BBOX", query.box(turned and boxes.turned(box) or box)}, {"WIDTH", width}, {"HEIGHT", height}}, 1, 3,
    #parameters + 1, parameters)
  return query.join(parameters, s.object)
end

-- Fetches a part to a file, complete and placed under its name or not there. Without an extension the file gets the
-- one of the server's answer. Returns its name.
local function fetch(s, plan, box, width, height, path)
  local usual = s.object:GetProperty{"MAP_FILENAME"}.MAP_FILENAME
  path = path or usual
  local text = part_query(s, plan, box, width, height)
  s.object:SetProperty{MAP_FILENAME = files.partial(path)}
  local done, answer = pcall(service.request, s, "GetMap", text)
  local last = s.object:GetProperty{"LAST_FILE"}.LAST_FILE
  s.object:SetProperty{MAP_FILENAME = usual}
  if not done then
    if last ~= "" then os.remove(last) end
    error(answer, 0)
  end
  if not files.extension(path) then path = path .. "." .. files.extension(answer) end
  if georeference.extension(plan.format) then georeference.write(path, box, width, height, plan.crs) end
  files.rename(answer, path)
  return path
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
  local box = choose_box(s, layers, o.bbox, system)
  local width, height = choose_size(s, o, box)
  local scale = scale_of(box, width, system)
  local plan = {crs = system, format = format, parameters = parameters_of(s, layers, o, system, format)}
  local result = {size = {width, height}, box = box, crs = system, format = format, scale = scale,
                  notes = scale_notes(layers, scale)}
  if needs_tiles(s, o, width, height) then
    local largest = arguments.check_count("tile", o.tile) or math.huge
    plan.describe = function(...) return part_query(s, plan, ...) end
    plan.fetch = function(...) return fetch(s, plan, ...) end
    result.file = tiles.fetch(s, plan, result, {math.min(largest, s.max_width or largest),
                                                math.min(largest, s.max_height or largest)}, o.to)
  else
    result.file = fetch(s, plan, box, width, height, o.to)
  end
  return result
end

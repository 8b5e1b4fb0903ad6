--- s:info{...} asks a Web Map Service what is at a place.
--
--   layers       names; all of them must answer questions
--   lon, lat     the place in degrees, or
--   x, y         the place in the units of the system
--   crs          the system; as for maps without it
--   pixel        size of a pixel of the map that is asked about, in units of the system; services look around the
--                place by some pixels. A thousandth of the layers' box without it, within the layers' scales
--   format       "application/json"; JSON where it is offered, else plain text, else the first
--   count        how many features of a layer at most; 10
--   styles, time, elevation, dimensions, extra   as for maps
--
-- Returns the answer as a text and, where the server speaks JSON, as a table.

local arguments = require "zel.ogc.arguments"
local choice = require "zel.ogc.choice"
local crs = require "zel.ogc.crs"
local errors = require "zel.ogc.errors"
local extent = require "zel.ogc.extent"
local files = require "zel.ogc.files"
local map_query = require "zel.ogc.map_query"
local service = require "zel.ogc.service"

local SIZE = 101 -- pixels of the map around the place, which is its middle
local USUAL_COUNT = 10

local TYPES = {
  layers = "table|string", styles = "table|string", crs = "string|number", lon = "number", lat = "number", x = "number",
  y = "number", pixel = "number", format = "string", count = "number", time = "string|table",
  elevation = "string|number|table", dimensions = "table", extra = "table",
}

local function check_queryable(s, layers)
  local answering = {}
  for _, layer in ipairs(s.layers) do
    if layer.queryable and layer.name then answering[#answering + 1] = layer.name end
  end
  for _, layer in ipairs(layers) do
    if not layer.queryable then
      errors.raise(("layer %s answers no questions; %s"):format(layer.name,
        #answering > 0 and "these do: " .. table.concat(answering, ", ") or "none does"))
    end
  end
end

local function place(o, system)
  if o.x and o.y and not (o.lon or o.lat) then return {o.x, o.y} end
  if not (o.lon and o.lat) or o.x or o.y then errors.raise("info wants a place: lon and lat, or x and y") end
  if math.abs(o.lat) > 90 then
    errors.raise(("lat is from -90 to 90 degrees, not %g: is that the longitude?"):format(o.lat))
  end
  if crs.describe(system).geographic then return {o.lon, o.lat} end
  local point = crs.transform({{o.lon, o.lat}}, "CRS:84", system)[1]
  if not point then errors.raise(("%g, %g has no place in %s"):format(o.lon, o.lat, system)) end
  return point
end

-- A pixel with which the layers are drawn: their scales, narrowed a little, as pixels.
local function choose_pixel(s, layers, system, asked)
  if asked then
    if not (asked > 0) then errors.raise("pixel must be more than 0") end
    return asked
  end
  local box = extent.of(layers, system, s.version)
  local pixel = box and (box[3] - box[1]) / 1000 or 1 / map_query.scale(1, system)
  for _, layer in ipairs(layers) do
    local scale = map_query.scale(pixel, system)
    if layer.scale.max and scale > layer.scale.max then pixel = pixel * layer.scale.max / scale / 2 end
    if layer.scale.min and scale < layer.scale.min then pixel = pixel * layer.scale.min / scale * 2 end
  end
  return pixel
end

local function choose_format(offered, given)
  if given then
    local found = arguments.find(offered, given)
    if not found and #offered > 0 then errors.unknown("format", given, offered, "of answers") end
    return found or given
  end
  for _, wanted in ipairs{"json", "^text/plain"} do
    for _, format in ipairs(offered) do
      if format:lower():find(wanted) then return format end
    end
  end
  return offered[1] or "text/plain"
end

return function(s, o)
  arguments.check("info", o, TYPES)
  service.check_online(s)
  local layers = choice.layers(s, "info", o.layers)
  check_queryable(s, layers)
  local system = choice.system(s, layers, o.crs)
  local point, pixel = place(o, system), choose_pixel(s, layers, system, o.pixel)
  local format = choose_format(s.info_formats, o.format)
  local count = arguments.check_count("count", o.count) or USUAL_COUNT
  local plan = {crs = system, parameters = map_query.parameters(s, layers, o, system, choice.format(s.formats))}
  local reach, middle, new = pixel * SIZE / 2, SIZE // 2, s.version == "1.3.0"
  local box = {point[1] - reach, point[2] - reach, point[1] + reach, point[2] + reach}
  local file = service.request(s, "GetFeatureInfo", map_query.part(s, plan, box, SIZE, SIZE, {
    {"QUERY_LAYERS", map_query.names(layers)}, {"INFO_FORMAT", format}, {"FEATURE_COUNT", count},
    {new and "I" or "X", middle}, {new and "J" or "Y", middle}}))
  service.check_answer(s)
  local text = files.read(file)
  return text, format:lower():find("json", 1, true) and require("zel.ogc.packaged")("dkjson").decode(text) or nil
end

--- Which map shows a layer: where, in which size and format. Also the reasons for which there can be none.

local boxes = require "zel.ogc.boxes"
local choice = require "zel.ogc.choice"
local crs = require "zel.ogc.crs"
local extent = require "zel.ogc.extent"
local query = require "zel.ogc.query"

local PIXEL = 0.00028                  -- metres, of the screen that scales are defined for (OGC 06-042, 7.2.4.6.9)
local DEGREE = 6378137 * math.pi / 180 -- metres, on the equator
local SMALLEST = 0.01                  -- degrees across a layer that is a point or a straight line
-- Servers differ in what they take for a pixel's size and a degree's length, by up to a factor of four.
local ABOVE_MINIMUM, BELOW_MAXIMUM = 4, 1.5

local FORMATS = {"image/png", "image/jpeg", "image/gif", "image/webp"} -- what browsers show, the best first
local OPAQUE_FORMATS = {"image/jpeg", table.unpack(FORMATS)}           -- the smallest for photographs and the like

local request = {}

-- The best of the formats that is offered, with the parameters that it is offered with ("image/png; mode=8bit").
local function choose_format(wanted, offered)
  for _, name in ipairs(wanted) do
    for _, format in ipairs(offered) do
      if format:lower():match("^[^;%s]*") == name then return format end
    end
  end
end

local function widened(box)
  local function wide(low, high)
    if low ~= high then return low, high end
    return low - SMALLEST / 2, high + SMALLEST / 2
  end
  local west, east = wide(box[1], box[3])
  local south, north = wide(box[2], box[4])
  return {west, south, east, north}
end

-- Where a layer lies: its reference system and its box as x and y; nil when the service does not say.
local function place(s, layer)
  local known = {box = layer.box and widened(layer.box), bounding_boxes = layer.bounding_boxes}
  local systems = {choice.system(s, {layer})}
  for _, entry in ipairs(layer.bounding_boxes) do systems[#systems + 1] = entry.crs end
  for _, system in ipairs(systems) do
    local box = extent.of({known}, system, s.version)
    if box and boxes.valid(box) then return system, box end
  end
end

-- The scale to draw at, instead of that of the whole box, when the layer has limits.
local function allowed(scale, limits)
  local low, high = (limits.min or 0) * ABOVE_MINIMUM, (limits.max or math.huge) / BELOW_MAXIMUM
  if low > high then return math.sqrt(limits.min * limits.max) end
  return math.max(low, math.min(scale, high))
end

-- The box that is drawn and its size in pixels, as large as fits; within limits of scale the middle of the layer's box
-- and the scale.
local function frame(box, metres, limits, width, height)
  local wide, high = box[3] - box[1], box[4] - box[2]
  local a_pixel = math.max(wide / width, high / height)
  local whole = a_pixel * metres / PIXEL
  local scale = allowed(whole, limits)
  if scale == whole then
    local function pixels(size) return math.max(1, math.floor(size / a_pixel + 0.5)) end
    return box, pixels(wide), pixels(high)
  end
  local x, y, half = (box[1] + box[3]) / 2, (box[2] + box[4]) / 2, scale * PIXEL / metres / 2
  return {x - half * width, y - half * height, x + half * width, y + half * height}, width, height, scale
end

-- A value for each dimension that has no default: the first one.
local function dimension_parameters(layer)
  local found = {}
  for _, dimension in ipairs(layer.dimensions) do
    local value = dimension.values[1]
    if value and not dimension.default then
      local name = dimension.name:upper()
      if name ~= "TIME" and name ~= "ELEVATION" then name = "DIM_" .. name end
      found[#found + 1] = {name, value:match("^[^/]*")}
    end
  end
  return found
end

--- The parameters of the map of a layer that fits into width by height pixels.
-- Returns the query, and the scale's denominator when only a part is shown; or nil and why there can be no map.
function request.map(s, layer, width, height)
  if not layer.name then return nil, "The service gives this layer no name, so no map of it can be asked for." end
  local system, box = place(s, layer)
  if not system then return nil, "The service does not say where this layer lies." end
  local format = choose_format(layer.opaque and OPAQUE_FORMATS or FORMATS, s.formats)
  if not format then return nil, "The service offers no picture format that a browser can show." end
  local known = crs.describe(system)
  local drawn, columns, rows, scale = frame(box, known.geographic and DEGREE or 1, layer.scale, width, height)
  if s.version == "1.3.0" and known.north_first then drawn = boxes.turned(drawn) end
  local function pixels(fixed, size)
    local number = math.tointeger(tonumber(fixed))
    return number and number > 0 and number <= 4096 and number or size
  end
  local parameters = {
    {"LAYERS", layer.name}, {"STYLES", ""}, {s.version == "1.3.0" and "CRS" or "SRS", system},
    {"BBOX", query.box(drawn)}, {"WIDTH", pixels(layer.record.FIXED_WIDTH, columns)},
    {"HEIGHT", pixels(layer.record.FIXED_HEIGHT, rows)}, {"FORMAT", format},
    table.unpack(dimension_parameters(layer))}
  local done, text = pcall(query.join, parameters, s.object)
  if not done then return nil, "No map can be asked for: " .. text.message .. "." end
  return text, scale
end

return request

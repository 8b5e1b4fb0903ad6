--- The map that shows a layer: its place, size and format, or why there can be none.

local boxes = require "zel.ogc.boxes"
local crs = require "zel.ogc.crs"
local errors = require "zel.ogc.errors"
local extent = require "zel.ogc.extent"
local map_query = require "zel.ogc.map_query"
local query = require "zel.ogc.query"

local SMALLEST = 0.01  -- degrees across a layer that is a point or a straight line
local MOST_SYSTEMS = 5 -- tried for a layer that gives no box in any of its systems
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

-- Calls a function of the library; when that raises, nil and the message.
local function try(called, ...)
  local results = table.pack(pcall(called, ...))
  if results[1] then return table.unpack(results, 2, results.n) end
  if not errors.is(results[2]) then error(results[2], 0) end
  return nil, results[2].message
end

local DEGREES = {["EPSG:4326"] = true, ["CRS:84"] = true}

-- The systems that a layer is offered in, degrees first; some services do not say.
local function systems(layer)
  local degrees, others = {}, {}
  for _, name in ipairs(layer.crs) do
    local found = #name <= 9 and DEGREES[name:upper()] and degrees or others
    found[#found + 1] = name
  end
  if #layer.crs == 0 then degrees = {"EPSG:4326", "CRS:84"} end
  return degrees, others
end

-- The box of a layer in the first of the systems that it can be computed in.
local function computed(s, layer, names)
  local known = {box = layer.box and widened(layer.box), bounding_boxes = {}}
  for i = 1, math.min(#names, MOST_SYSTEMS) do
    if crs.describe(names[i]).known then
      local box = try(extent.of, {known}, names[i], s.version)
      if box and boxes.valid(box) then return names[i], box end
    end
  end
end

-- The first of the boxes that a layer gives in reference systems.
local function given(s, layer)
  for _, entry in ipairs(layer.bounding_boxes) do
    local box = entry.crs and entry.box and widened(entry.box)
    if box and boxes.valid(box) then
      local turned = s.version == "1.3.0" and crs.describe(entry.crs).north_first
      return entry.crs, turned and boxes.turned(box) or box
    end
  end
end

-- Where a layer lies: its reference system and its box as x and y; nil when the service does not say.
local function place(s, layer)
  local degrees, others = systems(layer)
  local system, box = computed(s, layer, degrees)
  if not system then system, box = given(s, layer) end
  if not system then system, box = computed(s, layer, others) end
  return system, box
end

-- The scale to draw at, instead of that of the whole box, when the layer has limits.
local function allowed(scale, limits)
  local low, high = (limits.min or 0) * ABOVE_MINIMUM, (limits.max or math.huge) / BELOW_MAXIMUM
  if low > high then return math.sqrt(limits.min * limits.max) end
  return math.max(low, math.min(scale, high))
end

-- The box that is drawn and its size in pixels, as large as fits; within limits of scale the middle of the layer's box
-- and the scale.
local function frame(box, system, limits, width, height)
  local wide, high = box[3] - box[1], box[4] - box[2]
  local a_pixel = math.max(wide / width, high / height)
  local whole = map_query.scale(a_pixel, system)
  local scale = allowed(whole, limits)
  if scale == whole then
    local function pixels(size) return math.max(1, math.floor(size / a_pixel + 0.5)) end
    return box, pixels(wide), pixels(high)
  end
  local x, y, half = (box[1] + box[3]) / 2, (box[2] + box[4]) / 2, a_pixel * scale / whole / 2
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

-- The size that a layer always has, or else this one.
local function pixels(fixed, size)
  local number = math.tointeger(tonumber(fixed))
  return number and number > 0 and number <= 4096 and number or size
end

--- How a layer is drawn: a function of width and height in pixels that returns the parameters of the map that fits into
-- them, and the scale's denominator when only a part is shown. Both return nil and why when there can be no map.
function request.map(s, layer)
  if not layer.name then return nil, "The service gives this layer no name, so no map of it can be asked for." end
  local system, box = place(s, layer)
  if not system then return nil, "The service does not say where this layer lies." end
  local format = choose_format(layer.opaque and OPAQUE_FORMATS or FORMATS, s.formats)
  if not format then return nil, "The service offers no picture format that a browser can show." end
  return function(width, height)
    local drawn, columns, rows, scale = frame(box, system, layer.scale, width, height)
    if s.version == "1.3.0" and crs.describe(system).north_first then drawn = boxes.turned(drawn) end
    local text, why = try(query.join, {
      {"LAYERS", layer.name}, {"STYLES", ""}, {s.version == "1.3.0" and "CRS" or "SRS", system},
      {"BBOX", query.box(drawn)}, {"WIDTH", pixels(layer.record.FIXED_WIDTH, columns)},
      {"HEIGHT", pixels(layer.record.FIXED_HEIGHT, rows)}, {"FORMAT", format},
      table.unpack(dimension_parameters(layer))}, s.object)
    if not text then return nil, "No map can be asked for: " .. why .. "." end
    return text, scale
  end
end

return request

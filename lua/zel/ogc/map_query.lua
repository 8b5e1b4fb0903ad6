--- The parameters of requests for maps, and for what is at a place on one.

local arguments = require "zel.ogc.arguments"
local boxes = require "zel.ogc.boxes"
local choice = require "zel.ogc.choice"
local crs = require "zel.ogc.crs"
local errors = require "zel.ogc.errors"
local query = require "zel.ogc.query"

local PIXEL = 0.00028                   -- metres, of the screen that scales are defined for (OGC 06-042, 7.2.4.6.9)
local DEGREE = 6378137 * math.pi / 180 -- metres, on the equator

local map_query = {}

--- The scale's denominator of a map with such pixels, in units of the system.
function map_query.scale(pixel, system) return pixel * (crs.describe(system).geographic and DEGREE or 1) / PIXEL end

-- Parameters that other arguments set.
local OWN = {}
for name in ([[VERSION SERVICE REQUEST LAYERS STYLES SRS CRS BBOX WIDTH HEIGHT FORMAT TRANSPARENT BGCOLOR TIME ELEVATION
  QUERY_LAYERS INFO_FORMAT FEATURE_COUNT X Y I J]]):gmatch("%S+") do OWN[name] = true end

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

-- Time, elevation and further dimensions as parameters; each must be one that a layer has.
local function dimension_parameters(layers, o)
  local parameters, names = {}, dimension_names(layers)
  local function add(name, value)
    local found = arguments.find(names, name)
    if not found then errors.unknown("dimension", name, names, "of these layers") end
    local upper = name:upper()
    local standard = upper == "TIME" or upper == "ELEVATION"
    table.insert(parameters, {(standard and "" or "DIM_") .. upper, table.concat(arguments.list(value), ",")})
  end
  if o.time then add("time", o.time) end
  if o.elevation then add("elevation", o.elevation) end
  for name, value in pairs(o.dimensions or {}) do add(name, value) end
  return parameters
end

--- The layers' names as a list.
function map_query.names(layers)
  local names = {}
  for i, layer in ipairs(layers) do names[i] = layer.name end
  return names
end

-- Parameters of the server's own, sorted.
local function extra_parameters(extra)
  local parameters = {}
  for name, value in pairs(extra) do
    if OWN[tostring(name):upper()] then errors.raise(name .. " is no extra parameter: another argument sets it") end
    parameters[#parameters + 1] = {name, value}
  end
  table.sort(parameters, function(a, b) return a[1] < b[1] end)
  return parameters
end

--- The parameters of a request that are the same for every part of a map.
function map_query.parameters(s, layers, o, system, format)
  local transparent = o.transparent
  if transparent ~= nil then transparent = transparent and "TRUE" or "FALSE" end
  local parameters = {
    {"LAYERS", map_query.names(layers)}, {"STYLES", choice.styles(layers, o.styles)},
    {s.version == "1.3.0" and "CRS" or "SRS", system}, {"FORMAT", format}, {"TRANSPARENT", transparent},
    {"BGCOLOR", o.bgcolor and color(o.bgcolor)},
  }
  for _, parameter in ipairs(dimension_parameters(layers, o)) do table.insert(parameters, parameter) end
  for _, parameter in ipairs(extra_parameters(o.extra or {})) do table.insert(parameters, parameter) end
  return parameters
end

--- The query of a part of a map: its box, turned where the version and the system ask for it, its size, and more
-- parameters; the plan has {crs =, parameters =}.
function map_query.part(s, plan, box, width, height, more)
  local turned = s.version == "1.3.0" and crs.describe(plan.crs).north_first
  local parameters = table.move(plan.parameters, 1, #plan.parameters, 1, {})
  for _, parameter in ipairs{{"BBOX", query.box(turned and boxes.turned(box) or box)}, {"WIDTH", width},
                             {"HEIGHT", height}, table.unpack(more or {})} do
    table.insert(parameters, parameter)
  end
  return query.join(parameters, s.object)
end

return map_query

--- The box of layers in a reference system.

local boxes = require "zel.ogc.boxes"
local crs = require "zel.ogc.crs"

local extent = {}

-- The box that the service gives in the system itself, as x and y.
local function given(layer, system, version)
  for _, entry in ipairs(layer.bounding_boxes) do
    if entry.box and entry.crs and entry.crs:lower() == system:lower() then
      local turned = version == "1.3.0" and crs.describe(system).north_first
      local box = turned and boxes.turned(entry.box) or entry.box
      if boxes.valid(box) then return box end
    end
  end
end

-- Services give boxes that reach further than the system is of use: those are cut.
local function own(layer, system, version)
  local inside = layer.box and crs.from_degrees(layer.box, system)
  local box = given(layer, system, version)
  if not box then return inside and boxes.valid(inside) and inside or nil end
  local area = crs.describe(system).area
  local useful = inside or area and not layer.box and crs.from_degrees(area, system)
  return useful and boxes.intersection(box, useful) or box
end

--- The box around all the layers; nil when none of them has one there.
function extent.of(layers, system, version)
  local box
  for _, layer in ipairs(layers) do box = boxes.union(box, own(layer, system, version)) end
  return box
end

return extent

-- Fetches a map of a layer for each of its times.
--
--   zel time_series.lua URL LAYER [WIDTH]

local ogc = require "zel.ogc"

local url, name, width = table.unpack(arg)
if not name then
  io.stderr:write("Usage: zel time_series.lua URL LAYER [WIDTH]\n")
  os.exit(2, true)
end

local service <close> = ogc.wms(url, {pause = 0.2}) -- seconds between two requests: others use the server, too
local layer = service.layer[name] or error("There is no layer " .. name, 0)
for _, dimension in ipairs(layer.dimensions) do
  if dimension.name == "time" then
    for _, time in ipairs(dimension.values) do
      local map = service:map{layers = name, time = time, width = tonumber(width), to = name .. "-" .. time .. ".png"}
      print(time .. ": " .. map.file)
    end
  end
end

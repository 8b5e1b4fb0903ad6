-- Fetches a map of a region, given in degrees, in a reference system of your choice; any GIS can place it.
--
--   zel region_map.lua URL LAYER SYSTEM WEST SOUTH EAST NORTH FILE
--
-- For example EPSG:31467 and 8 47 10 49 for the south-west of Germany.

local ogc = require "zel.ogc"

local url, layer, system, west, south, east, north, file = table.unpack(arg)
if not file then
  io.stderr:write("Usage: zel region_map.lua URL LAYER SYSTEM WEST SOUTH EAST NORTH FILE\n")
  os.exit(2, true)
end

local service <close> = ogc.wms(url)
local map = service:map{
  layers = layer,
  crs = system,
  bbox = {tonumber(west), tonumber(south), tonumber(east), tonumber(north)},
  bbox_crs = "EPSG:4326",
  to = file,
}
print(("%d x %d pixels, box %s"):format(map.size[1], map.size[2], table.concat(map.box, " ")))
print("Map: " .. map.file)

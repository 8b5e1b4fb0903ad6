-- Asks a Web Map Service what is at a place, given in degrees.
--
--   zel feature_info.lua URL LAYER LONGITUDE LATITUDE

local ogc = require "zel.ogc"

local url, layer, longitude, latitude = table.unpack(arg)
if not latitude then
  io.stderr:write("Usage: zel feature_info.lua URL LAYER LONGITUDE LATITUDE\n")
  os.exit(2, true)
end

local service <close> = ogc.wms(url)
local text, features = service:info{layers = layer, lon = tonumber(longitude), lat = tonumber(latitude)}
if features then zel.show(features) else print(text) end

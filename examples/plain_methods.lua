-- Fetches a map without the library zel.ogc, by the methods of the class alone.
--
--   zel plain_methods.lua URL LAYER
--
-- The query is written by hand, with names escaped and the axes in the order that the version wants.

local url, name = table.unpack(arg)
if not name then
  io.stderr:write("Usage: zel plain_methods.lua URL LAYER\n")
  os.exit(2, true)
end

local wms <close> = assert(zel.new("ZELnetOGCWMS", {WMS_VERSION = "1.1.1", MAP_FILENAME = "plain"}))
wms:ParseUrl(url:find("?", 1, true) and url or url .. "?")
print(wms:GetCapabilities() .. " layers")
for _, layer in ipairs(wms:GetLayers()) do
  print(("  "):rep(layer.LEVEL) .. layer.TITLE .. " [" .. layer.NAME .. "]")
end

local query = "STYLES=&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=512&HEIGHT=256&FORMAT=image/png&LAYERS=" .. name
local done, file = pcall(wms.GetMap, wms, query)
if not done then
  local refusal = zel.refusal(wms)
  error(refusal and refusal.text or file, 0)
end
print("Map: " .. file)

-- Fetches a map of the whole area of a layer from a Web Map Service.
--
--   zel wms_map.lua [URL [LAYER ...]]
--
-- URL is the address of the service; without it the environment variable OGC_SERVER_URL gives one.
-- Several layers are drawn over one another, the first one lowest. Without layers: the first that can be drawn.

local WIDTH = 512

local function give_up(...)
  io.stderr:write(table.concat({...}, "\n"), "\n")
  os.exit(1, true)
end

local url = arg[1] or os.getenv("OGC_SERVER_URL") or ""
if url == "" then give_up("Usage: zel wms_map.lua [URL [LAYER ...]], or set OGC_SERVER_URL to the URL of a service") end
if not url:find("?", 1, true) then url = url .. "?" end

-- A list with no entry arrives as a single empty text.
local function list(value) return type(value) == "table" and value or {value} end

local function contains(values, wanted)
  for _, value in ipairs(list(values)) do
    if value == wanted then return true end
  end
  return false
end

local wms <close> = assert(zel.new("ZELnetOGCWMS", {CALLBACK_FUNCTION = require "zel.progress"}))
wms:ParseUrl(url)

print("Asking " .. url .. " for its layers")
local answered, count = pcall(wms.GetCapabilities, wms)
if not answered then give_up("No Web Map Service answered at " .. url, count) end
if count == 0 then give_up("The service at " .. url .. " offers no layers") end

local layers, names = {}, {}
for _, layer in ipairs(wms:GetLayers()) do
  if layer.NAME ~= "" and not layers[layer.NAME] then
    layers[layer.NAME] = layer
    names[#names + 1] = layer.NAME
  end
end
print(("%s: %s"):format(wms:GetServiceSection()[1].TITLE, table.concat(names, ", ")))

local wanted = arg[2] and {table.unpack(arg, 2)} or {names[1]}
for _, name in ipairs(wanted) do
  if not layers[name] then give_up("The service has no layer " .. name .. ", only " .. table.concat(names, ", ")) end
end

-- Longitude before latitude in both: version 1.3.0 turns EPSG:4326 round, but not CRS:84.
local layer = layers[wanted[1]]
local box, system = layer.LAT_LON_BBOX, "SRS=EPSG:4326"
local west, south, east, north = box.MINX, box.MINY, box.MAXX, box.MAXY
if layer.VERSION == "1.3.0" then
  box, system = layer.EX_GEOBBOX, "CRS=CRS:84"
  west, south, east, north = box.WEST, box.SOUTH, box.EAST, box.NORTH
end
local height = math.max(1, math.floor(WIDTH * (north - south) / (east - west) + 0.5))
local format = contains(layer.MAP_FORMAT, "image/png") and "image/png" or list(layer.MAP_FORMAT)[1]

print(("Fetching %s, %d x %d pixels of %s"):format(table.concat(wanted, ", "), WIDTH, height, format))
local query = ("LAYERS=%s&STYLES=%s&%s&BBOX=%s&WIDTH=%d&HEIGHT=%d&FORMAT=%s"):format(
  table.concat(wanted, ","), (","):rep(#wanted - 1), system, table.concat({west, south, east, north}, ","),
  WIDTH, height, format)
local fetched, file = pcall(wms.GetMap, wms, query)
if not fetched then give_up("The service gave no map", file) end
print("Map: " .. file)

-- Asks a Web Map Service what is at a place.
--
--   zel wms_feature_info.lua URL LAYER LONGITUDE LATITUDE [FORMAT]
--
-- URL is the address of the service, the place is in degrees. FORMAT is one of the layer's feature formats, the first of
-- them when it is left out. Services look around the place by some pixels of a map; here a pixel is a tenth of a degree.

local SIZE, PIXEL = 101, 0.1

local function give_up(...)
  io.stderr:write(table.concat({...}, "\n"), "\n")
  os.exit(1, true)
end

local url, name, longitude, latitude, format = table.unpack(arg)
longitude, latitude = tonumber(longitude), tonumber(latitude)
if not latitude then give_up("Usage: zel wms_feature_info.lua URL LAYER LONGITUDE LATITUDE [FORMAT]") end

local wms <close> = assert(zel.new("ZELnetOGCWMS", {WMS_VERSION = "1.1.1"}))
wms:ParseUrl(url:find("?", 1, true) and url or url .. "?")
local answered, count = pcall(wms.GetCapabilities, wms)
if not answered then give_up("No Web Map Service answered at " .. url, count) end

local layer
for _, candidate in ipairs(count ~= 0 and wms:GetLayers() or {}) do
  if candidate.NAME == name then layer = candidate end
end
if not layer then give_up("The service has no layer " .. name) end
if layer.QUERYABLE ~= "1" then give_up("The service answers no questions about layer " .. name) end

local formats = type(layer.FEATURE_FORMAT) == "table" and layer.FEATURE_FORMAT or {layer.FEATURE_FORMAT}
if format and not (" " .. table.concat(formats, " ") .. " "):find(" " .. format .. " ", 1, true) then
  give_up("The service has no feature format " .. format .. ", only " .. table.concat(formats, ", "))
end

-- The place is the middle pixel of a small map.
local reach, middle = SIZE * PIXEL / 2, SIZE // 2
local query = ("LAYERS=%s&QUERY_LAYERS=%s&STYLES=&SRS=EPSG:4326&BBOX=%f,%f,%f,%f&WIDTH=%d&HEIGHT=%d&X=%d&Y=%d"):format(
  name, name, longitude - reach, latitude - reach, longitude + reach, latitude + reach, SIZE, SIZE, middle, middle)
local fetched, file = pcall(wms.GetFeatureInfo, wms, query .. "&INFO_FORMAT=" .. (format or formats[1]))
if not fetched then give_up("The service gave no answer", file) end
io.write(assert(io.open(file)):read("a"))

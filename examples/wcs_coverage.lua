-- Fetches a coverage, the numbers behind a picture, from a Web Coverage Service.
--
--   zel wcs_coverage.lua [URL [COVERAGE]]
--
-- URL is the address of the service; without it the environment variable OGC_SERVER_URL gives one.
-- Without COVERAGE: the first that the service offers. It comes in its own reference system, at its own
-- resolution but at most 1024 pixels wide, and as GeoTIFF when the service has that.

local WIDEST = 1024

local function give_up(...)
  io.stderr:write(table.concat({...}, "\n"), "\n")
  os.exit(1, true)
end

local url = arg[1] or os.getenv("OGC_SERVER_URL") or ""
if url == "" then give_up("Usage: zel wcs_coverage.lua [URL [COVERAGE]], or set OGC_SERVER_URL to the URL of a service") end
if not url:find("?", 1, true) then url = url .. "?" end

-- A list with no entry arrives as a single empty text.
local function list(value) return type(value) == "table" and value or {value} end

local function numbers(text)
  local found = {}
  for number in text:gmatch("%S+") do found[#found + 1] = tonumber(number) end
  return found
end

local wcs <close> = assert(zel.new("ZELnetOGCWCS", {CALLBACK_FUNCTION = require "zel.progress"}))
wcs:ParseUrl(url)

print("Asking " .. url .. " for its coverages")
local answered, count = pcall(wcs.GetCapabilities, wcs)
if not answered then give_up("No Web Coverage Service answered at " .. url, count) end
if count == 0 then give_up("The service at " .. url .. " offers no coverages") end

local names = {}
for i, brief in ipairs(wcs:GetCoverageOfferingBriefs()) do names[i] = brief.NAME end
print(("%s: %s"):format(wcs:GetServiceSection()[1].LABEL, table.concat(names, ", ")))

local name = arg[2] or names[1]
print("Asking what " .. name .. " is")
local described, reason = pcall(wcs.DescribeCoverage, wcs, {NAMES = name})
if not described then give_up("The service does not describe " .. name, reason) end
local offering = wcs:GetCoverageOffering()[1]

-- The box in the coverage's own reference system; the numbers of its grid's rows and columns.
local envelope, system = offering.LONLATENV, "EPSG:4326"
if tonumber(offering.NUM_SPAT_DOM_LLES) > 0 then
  envelope = offering.SPAT_DOM_LONLATENV[1]
  system = envelope.SRS_NAME
end
local low, high = numbers(envelope.POS1), numbers(envelope.POS2)
local columns, rows = WIDEST, math.floor(WIDEST * (high[2] - low[2]) / (high[1] - low[1]) + 0.5)
if tonumber(offering.NUM_SPAT_DOM_GRIDS) > 0 then
  local grid = offering.SPAT_DOM_GRID[1]
  local first, last = numbers(grid.LIMITS_ENV_LOW), numbers(grid.LIMITS_ENV_HIGH)
  columns, rows = last[1] - first[1] + 1, last[2] - first[2] + 1
end
local scale = math.min(1, WIDEST / columns)
local width, height = math.floor(columns * scale + 0.5), math.floor(rows * scale + 0.5)

local format = list(offering.FORMATS)[1]
for _, offered in ipairs(list(offering.FORMATS)) do
  if offered:lower():find("tif", 1, true) then
    format = offered
    break
  end
end

local query = ("COVERAGE=%s&CRS=%s&BBOX=%s,%s,%s,%s&WIDTH=%d&HEIGHT=%d&FORMAT=%s"):format(
  name, system, low[1], low[2], high[1], high[2], width, height, format)
if tonumber(offering.NUM_TEMP_TM_POSITIONS) > 0 then
  query = query .. "&TIME=" .. offering.TEMP_TM_POSITION[1].POSITION
end

print(("Fetching %s (%s), %d x %d pixels of %s"):format(name, offering.CO_LABEL, width, height, format))
local fetched, file = pcall(wcs.GetCoverage, wcs, query)
if not fetched then give_up("The service gave no coverage", file) end
print("Coverage: " .. file)

-- Lists the coverages of a Web Coverage Service, or describes some of them.
--
--   zel wcs_describe.lua [URL [COVERAGE ...]]
--
-- URL is the address of the service; without it the environment variable OGC_SERVER_URL gives one.

local function give_up(...)
  io.stderr:write(table.concat({...}, "\n"), "\n")
  os.exit(1, true)
end

local url = arg[1] or os.getenv("OGC_SERVER_URL") or ""
if url == "" then
  give_up("Usage: zel wcs_describe.lua [URL [COVERAGE ...]], or set OGC_SERVER_URL to the URL of a service")
end

local wcs <close> = assert(zel.new("ZELnetOGCWCS"))
wcs:ParseUrl(url:find("?", 1, true) and url or url .. "?")

if not arg[2] then
  local answered, count = pcall(wcs.GetCapabilities, wcs)
  if not answered then give_up("No Web Coverage Service answered at " .. url, count) end
  local briefs = wcs:GetCoverageOfferingBriefs()
  for _, brief in ipairs(briefs ~= 0 and briefs or {}) do
    local times = brief.TM_POS1 ~= "" and (", from %s to %s"):format(brief.TM_POS1, brief.TM_POS2) or ""
    print(("%s: %s, %s to %s%s"):format(brief.NAME, brief.LABEL, brief.POS1, brief.POS2, times))
  end
  print(count .. " coverages")
  return
end

-- A list with no entry arrives as a single empty text or structure.
local function list(value) return type(value) == "table" and #value > 0 and value or {} end
local function texts(value) return table.concat(list(value), ", ") end

local names = {table.unpack(arg, 2)}
local described, found = pcall(wcs.DescribeCoverage, wcs, {NAMES = names})
if not described then give_up("The service gave no description of " .. table.concat(names, ", "), found) end
for i in ipairs(list(found)) do
  local coverage = wcs:GetCoverageOffering{INDEX = i - 1}[1]
  print(coverage.CO_NAME .. ": " .. coverage.CO_LABEL)
  print("  Description      " .. coverage.CO_DESC)
  print(("  Envelope         %s to %s"):format(coverage.LONLATENV.POS1, coverage.LONLATENV.POS2))
  for _, grid in ipairs(list(coverage.SPAT_DOM_GRID)) do
    print(("  Grid             %s to %s, axes %s, from %s by %s"):format(
      grid.LIMITS_ENV_LOW, grid.LIMITS_ENV_HIGH, texts(grid.AXIS_NAMES), grid.ORIGIN_POS, texts(grid.OFFSET_VECTORS)))
  end
  for _, time in ipairs(list(coverage.TEMP_TM_POSITION)) do print("  Time             " .. time.POSITION) end
  print("  Values           " .. coverage.RANGE.NAME .. " " .. coverage.RANGE.LABEL)
  for _, axis in ipairs(list(coverage.RANGE_AXIS)) do
    print("  Axis             " .. axis.NAME .. ": " .. texts(axis.SINGLE_VALUE))
  end
  print("  Systems          " .. texts(coverage.CRS.REQUEST_RESPONSE))
  print("  Formats          " .. texts(coverage.FORMATS))
  print("  Interpolations   " .. texts(coverage.INTERPOLATION_METHOD))
end

-- Fetches a coverage and prints the mean of its numbers.
--
--   zel coverage_mean.lua URL COVERAGE [TIME]

local json = require "dkjson"
local ogc = require "zel.ogc"

local url, name, time = table.unpack(arg)
if not name then
  io.stderr:write("Usage: zel coverage_mean.lua URL COVERAGE [TIME]\n")
  os.exit(2, true)
end

local service <close> = ogc.wcs(url)
local coverage = service:get{name = name, time = time, to = "coverage.tif"}
print(("%d x %d cells in %s"):format(coverage.size[1], coverage.size[2], coverage.crs))

local program <close> = io.popen("gdalinfo -json -stats coverage.tif")
for _, band in ipairs(json.decode(program:read("a")).bands) do
  print(("Band %d: mean %.2f, from %g to %g"):format(band.band, band.mean, band.minimum, band.maximum))
end
print("Coverage: " .. coverage.file)

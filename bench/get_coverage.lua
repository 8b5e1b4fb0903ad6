-- Fetches a coverage into a file: zel get_coverage.lua PORT PATH FILE. Prints how many bytes it has.

local port, path, file = ...
local wcs <close> = assert(zel.new("ZELnetOGCWCS", {URL_HOSTNAME = "localhost", URL_PORT = port, URL_PATH = path,
                                                    COVERAGE_FILENAME = file}))
local written <close> = assert(io.open(wcs:GetCoverage("COVERAGE=earth")))
print(written:seek("end"))

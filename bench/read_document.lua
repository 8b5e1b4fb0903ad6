-- What a script does with a document: zel read_document.lua KIND FILE TIMES [NUMBER]
-- Reads FILE so many TIMES, then takes NUMBER of its records as structures. Prints how many records it saw.
-- The copy that is kept of a document is given the document's own name, so that nothing is copied.

local kinds = {
  wms = {"ZELnetOGCWMS", "GetCapabilities", "CAPABILITIES_FILENAME", "GetLayers"},
  briefs = {"ZELnetOGCWCS", "GetCapabilities", "CAPABILITIES_FILENAME", "GetCoverageOfferingBriefs"},
  offerings = {"ZELnetOGCWCS", "DescribeCoverage", "DESCRIBE_COVERAGE_FILENAME"},
}

local kind, file, times, number = ...
local class, read, copy_name, take = table.unpack(kinds[kind])
local client <close> = assert(zel.new(class, {[copy_name] = file:gsub("%.xml$", "")}))

local found
for _ = 1, tonumber(times) do found = client[read](client, {FROM_FILE = file}) end
if type(found) == "table" then found = #found end

if number then
  found = 0
  for _, record in ipairs(client[take](client, {NUMBER = tonumber(number)})) do
    if record.NAME then found = found + 1 end
  end
end
print(found)

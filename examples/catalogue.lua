-- Writes a catalogue of a Web Map Service: one HTML page with all its layers and their pictures.
--
--   zel catalogue.lua URL OUT.html

local url, to = table.unpack(arg)
if not to then
  io.stderr:write("Usage: zel catalogue.lua URL OUT.html\n")
  os.exit(2, true)
end
local done, result = pcall(require("zel.catalogue").write, {url = url, to = to})
if not done then
  io.stderr:write(tostring(result), "\n")
  os.exit(1, true)
end
io.stderr:write(("%d layers, %d with a picture\n"):format(result.layers, result.pictures))
print("Catalogue: " .. to)

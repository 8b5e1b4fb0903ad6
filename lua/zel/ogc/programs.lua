--- Programs of gdal-bin, run with arguments and input as texts.

local errors = require "zel.ogc.errors"

local programs = {}

local function quoted(word) return "'" .. tostring(word):gsub("'", "'\\''") .. "'" end

local function remove(...)
  for _, path in ipairs{...} do os.remove(path) end
end

--- Runs a program. Returns what it wrote to standard output and what it wrote to standard error; raises when it failed.
function programs.run(words, input)
  local line, given, said = {}, os.tmpname(), os.tmpname()
  for i, word in ipairs(words) do line[i] = quoted(word) end
  local file <close> = assert(io.open(given, "w"))
  file:write(input or "")
  file:close()
  local pipe = io.popen(("LC_ALL=C %s <%s 2>%s"):format(table.concat(line, " "), quoted(given), quoted(said)))
  local output = pipe:read("a")
  local well, _, status = pipe:close()
  local complaints <close> = assert(io.open(said))
  local text = complaints:read("a")
  remove(given, said)
  if status == 127 then errors.raise(words[1] .. " is missing; it comes with the package gdal-bin") end
  if not well then errors.raise(("%s failed: %s"):format(words[1], (text .. output):gsub("%s+", " "))) end
  return output, text
end

return programs

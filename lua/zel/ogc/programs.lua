--- Programs of gdal-bin, run with arguments and input as texts.

local errors = require "zel.ogc.errors"

local MISSING = 127 -- what a shell answers when there is no such program

local programs = {}

--- A word of a shell's command.
function programs.quoted(word) return "'" .. tostring(word):gsub("'", "'\\''") .. "'" end

local quoted = programs.quoted

--- Runs a program. Returns what it wrote to standard output, nil when it failed, and what it wrote to standard error.
function programs.try(words, input)
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
  os.remove(given)
  os.remove(said)
  if status == MISSING then errors.raise(words[1] .. " is missing; it comes with the package gdal-bin") end
  return well and output or nil, text
end

--- As try(), and raises when the program failed.
function programs.run(words, input)
  local output, complaints = programs.try(words, input)
  if not output then errors.raise(("%s failed: %s"):format(words[1], (complaints:gsub("%s+", " ")))) end
  return output, complaints
end

return programs

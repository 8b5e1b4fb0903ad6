--- What is raised when something goes wrong: a table that reads as text and has the server's words as fields.
--
-- message, fit for a terminal, and, when the server refused: text, code, locator (of its first ServiceException),
-- exceptions (all of them), as they came.
-- tostring() puts the line of the script before the message.

local printable = require "zel.ogc.printable"

local Error = {}
Error.__index = Error
function Error:__tostring() return self.where .. self.message end
function Error.__concat(a, b) return tostring(a) .. tostring(b) end

local LIBRARY = debug.getinfo(1, "S").source:match("^(.*/)ogc/")
local MOST_NAMES = 20

-- The line that called the library.
local function position()
  for level = 3, math.huge do
    local frame = debug.getinfo(level, "Sl")
    if not frame then return "" end
    if frame.currentline > 0 and frame.source:sub(1, #LIBRARY) ~= LIBRARY then
      return frame.short_src .. ":" .. frame.currentline .. ": "
    end
  end
end

local errors = {}

function errors.raise(message, fields)
  local raised = setmetatable({}, Error)
  for name, value in pairs(fields or {}) do raised[name] = value end
  raised.message, raised.where = printable(message, "\n"), position()
  error(raised, 0)
end

function errors.is(value) return getmetatable(value) == Error end

-- The number of letters to insert, drop or replace between two words (Levenshtein's distance).
local function distance(a, b)
  local row = {}
  for j = 0, #b do row[j] = j end
  for i = 1, #a do
    local corner = row[0]
    row[0] = i
    for j = 1, #b do
      local replaced = corner + (a:byte(i) == b:byte(j) and 0 or 1)
      corner = row[j]
      row[j] = math.min(replaced, row[j] + 1, row[j - 1] + 1)
    end
  end
  return row[#b]
end

-- The most letters in which a name may be wrong. Of a reference system such as EPSG:4326 the number alone counts.
local function tolerance(name)
  local code = name:match(":(%d+)$")
  return code and #code // 3 or math.min(math.max(2, #name // 3), #name - 1)
end

-- The name that was likely meant.
local function near(name, names)
  local best, least = nil, tolerance(name) + 1
  for _, candidate in ipairs(names) do
    local steps = math.abs(#candidate - #name) < least and distance(name:lower(), candidate:lower()) or least
    if steps < least then best, least = candidate, steps end
  end
  return best
end

--- Raises that there is no such name: what it is ("layer"), the name, the names there are, and where ("of map").
function errors.unknown(what, name, names, where)
  local text = ('there is no %s "%s"'):format(what, name) .. (where and " " .. where or "")
  local meant = near(name, names)
  if meant then text = text .. ('; did you mean "%s"?'):format(meant) end
  if #names == 0 then errors.raise(text .. ", nor any other") end
  local listed = table.concat(names, ", ", 1, math.min(#names, MOST_NAMES))
  if #names > MOST_NAMES then listed = listed .. (" and %d more"):format(#names - MOST_NAMES) end
  errors.raise(text .. (meant and " There are: " or "; there are: ") .. listed)
end

return errors

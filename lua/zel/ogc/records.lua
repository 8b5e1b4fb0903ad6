--- Structures of the classes as Lua values: an empty text is nil, a list has its own entries only.

local records = {}

--- The text; nil when it is empty.
function records.text(value) return type(value) == "string" and value ~= "" and value or nil end

--- The first number in a text; nil without one, or when it is too large for a number.
function records.number(value)
  if not value or value == "" then return nil end
  local number = tonumber(value) or tonumber(value:match("%S+"))
  return number and math.abs(number) < math.huge and number or nil
end

--- All numbers of a text, separated by blanks or commas.
function records.numbers(text)
  local found = {}
  for word in text:gmatch("[^%s,]+") do found[#found + 1] = tonumber(word) end
  return found
end

--- The first n entries of a list tag, or all that are not empty.
function records.list(value, n)
  if type(value) ~= "table" then value = {value} end
  if n and tonumber(n) == #value then return value end
  local entries = {}
  for i = 1, tonumber(n) or #value do
    if value[i] ~= nil and value[i] ~= "" then entries[#entries + 1] = value[i] end
  end
  return entries
end

--- As list(), each entry given to a function.
function records.map(value, n, make)
  local entries = {}
  for i, entry in ipairs(records.list(value, n)) do entries[i] = make(entry) end
  return entries
end

--- The four numbers of a box; nil when one is missing.
function records.box(west, south, east, north)
  local box = {records.number(west), records.number(south), records.number(east), records.number(north)}
  return box[1] and box[2] and box[3] and box[4] and box
end

return records

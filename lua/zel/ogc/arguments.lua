--- Checks of the tables that people pass to the library.

local errors = require "zel.ogc.errors"

local arguments = {}

local function sorted_keys(set)
  local keys = {}
  for key in pairs(set) do keys[#keys + 1] = tostring(key) end
  table.sort(keys)
  return keys
end

--- Raises unless the table's names are among those of `types`, each a type or several with "|" between; "list" is a
-- table or a text.
function arguments.check(call, given, types)
  if type(given) ~= "table" then errors.raise(call .. " wants a table of arguments") end
  for key, value in pairs(given) do
    if types[key] == nil then
      errors.unknown("argument", tostring(key), sorted_keys(types), "of " .. call)
    end
    local wanted = types[key]
    if not ("|" .. wanted .. "|"):find("|" .. type(value) .. "|", 1, true) then
      errors.raise(("%s of %s must be a %s, not a %s"):format(key, call, wanted:gsub("|", " or a "), type(value)))
    end
  end
end

--- A text or a list of texts as a list.
function arguments.list(value)
  if value == nil then return {} end
  return type(value) == "table" and value or {value}
end

--- The entry of a list that equals the name in any letter case.
function arguments.find(list, name)
  for _, entry in ipairs(list) do
    if entry:lower() == name:lower() then return entry end
  end
end

--- Raises unless the number is a whole one, from 1 to `most`, if that is given.
function arguments.check_count(name, number, most)
  if number and (math.type(number) == nil or number < 1 or number % 1 ~= 0) then
    errors.raise(("%s must be a whole number of 1 or more, not %s"):format(name, number))
  end
  if number and most and number > most then
    errors.raise(("%s must be %d or less, not %d"):format(name, most, number))
  end
  return number and math.tointeger(number)
end

return arguments

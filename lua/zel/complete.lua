--- Completion of names: complete(before, word) gives the names that can follow the text `before` and begin with `word`,
-- in any letter case, sorted. It runs nothing that a script brought: no metamethod, and no function put in the place of
-- a library's.

local reference = require "zel.reference"

local find, gmatch, gsub, lower, match = string.find, string.gmatch, string.gsub, string.lower, string.match
local sub, upper, sort, move = string.sub, string.upper, table.sort, table.move
local getmetatable, ipairs, next, rawget = getmetatable, ipairs, next, rawget
local tonumber, tostring, type = tonumber, tostring, type
local globals, strings, method_names = _G, string, zel.methods

local WORDS = {"and", "break", "do", "else", "elseif", "end", "false", "for", "function", "goto", "if", "in", "local",
               "nil", "not", "or", "repeat", "return", "then", "true", "until", "while"}

-- Documented methods by class ("" for both), and the names of the tables in a method's section.
local methods, classes = {[""] = {}}, {}
for _, section in ipairs(reference.sections) do
  local class = section.level == 3 and match(section.topic, "^Methods of (.*)$")
  if class then
    class = match(class, "^ZEL%w+$") or ""
    if not methods[class] then
      methods[class] = {}
      classes[#classes + 1] = class
    end
    methods[class][#methods[class] + 1] = section.title
  end
end

local function keywords(method)
  local found, section = {}, reference.find(method)
  for _, row in ipairs(section and find(section.topic, "^Methods") and reference.rows(section) or {}) do
    local names = reference.names(row)
    move(names, 1, #names, #found + 1, found)
  end
  return found
end

-- The properties of a class, all of them without one. The table names the class where only one has a property.
local function properties(class)
  local found = {}
  for _, row in ipairs(reference.rows(reference.find("Properties"))) do
    local only = match(row[2], "W[MC]S$")
    if not only or not class or find(upper(class), only, 1, true) then found[#found + 1] = reference.names(row)[1] end
  end
  return found
end

-- The value of a path of names and numbers, "layers[1].STYLE[2]"; nil when there is none.
local function value_of(path)
  local value = rawget(globals, match(path, "^[%a_][%w_]*"))
  for name, index in gmatch(gsub(path, "^[%a_][%w_]*", ""), "%.?([%a_]?[%w_]*)%[?(%d*)%]?") do
    for _, key in ipairs{name, tonumber(index)} do
      if key ~= "" then
        if type(value) ~= "table" then return nil end
        value = rawget(value, key)
      end
    end
  end
  return value
end

-- The class of what a path leads to, when it is an object, and the value itself.
local function class_of(path)
  local value = value_of(path)
  return type(value) == "userdata" and getmetatable(value) == "object" and match(tostring(value), "^%S+") or nil, value
end

local function keys_of(value)
  local keys = {}
  for key in next, type(value) == "table" and value or {} do keys[#keys + 1] = key end
  return keys
end

-- Methods that are documented, in the reference's spelling; of all classes when the path leads to no object.
local function methods_of(path)
  local class, value = class_of(path)
  if type(value) == "string" then return keys_of(strings) end
  local known = class and {} or nil
  for _, name in ipairs(class and method_names(value) or {}) do known[name] = true end
  local found = {}
  for _, list in next, methods do
    for _, name in ipairs(list) do
      if not known or known[upper(name)] or name == "close" then found[#found + 1] = name end
    end
  end
  return found
end

-- What can follow the last open brace: keywords or properties.
local function within_braces(before)
  local depth = 0
  for i = #before, 1, -1 do
    local c = sub(before, i, i)
    if c == "}" then depth = depth + 1 end
    if c == "{" then depth = depth - 1 end
    if depth < 0 then
      local call = sub(before, 1, i - 1)
      local class = match(call, "zel%.new%s*%(%s*[\"'](%w+)[\"']%s*,%s*$")
      if class then return properties(class) end
      local path, method = match(call, "([%a_][%w_%.%[%]]*):(%a+)%s*%([^()]*$")
      if not method then path, method = match(call, "([%a_][%w_%.%[%]]*):(%a+)%s*$") end
      if not method then return {} end
      if find(lower(method), "etproperty$") then return properties((class_of(path))) end
      return keywords(method)
    end
  end
end

local function help_names()
  local names = properties()
  for _, section in ipairs(reference.sections) do
    if section.level > 1 then names[#names + 1] = section.title end
  end
  return names
end

-- What can follow this text within an open string.
local function names_in_string(before)
  if find(before, "zel%.new%s*%(?%s*$") then return classes end
  if find(before, "zel%.help%s*%(?%s*$") then return help_names() end
  return find(before, "[{,]%s*$") and within_braces(before) or {}
end

local function names_at(before)
  local outside = gsub(gsub(before, "\"[^\"\n]*\"", ""), "'[^'\n]*'", "")
  if find(outside, "[\"']") then return names_in_string(match(before, "^(.*)[\"']")) end
  local path, mark = match(before, "([%a_][%w_%.%[%]]*)([.:])$")
  if mark == ":" then return methods_of(path) end
  if mark == "." then return keys_of(value_of(path)) end
  local inside = find(before, "[{,]%s*$") and within_braces(before)
  if inside then return inside end
  local names = keys_of(globals)
  return move(WORDS, 1, #WORDS, #names + 1, names)
end

return function(before, word)
  local found, seen = {}, {}
  for _, name in ipairs(names_at(before)) do
    if type(name) == "string" and not seen[name] and sub(lower(name), 1, #word) == lower(word) then
      seen[name] = true
      found[#found + 1] = name
    end
  end
  sort(found)
  return found
end

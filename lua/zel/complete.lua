--- What may stand at a place of a statement: complete(before, word) gives the names that begin with `word` (a piece of
-- a name, in any letter case for names of the host) behind the text `before`, sorted.

local reference = require "zel.reference"

local WORDS = {"and", "break", "do", "else", "elseif", "end", "false", "for", "function", "goto", "if", "in", "local",
               "nil", "not", "or", "repeat", "return", "then", "true", "until", "while"}

-- Documented methods by class ("" for both), and the names of the tables in a method's section.
local methods, classes = {[""] = {}}, {}
for _, section in ipairs(reference.sections) do
  local class = section.level == 3 and section.topic:match("^Methods of (.*)$")
  if class then
    class = class:match("^ZEL%w+$") or ""
    if not methods[class] then
      methods[class] = {}
      classes[#classes + 1] = class
    end
    table.insert(methods[class], section.title)
  end
end

local function keywords(method)
  local found, section = {}, reference.find(method)
  for _, row in ipairs(section and section.topic:find("^Methods") and reference.rows(section) or {}) do
    table.move(reference.names(row), 1, #reference.names(row), #found + 1, found)
  end
  return found
end

-- The properties of a class, all of them without one. The table names the class where only one has a property.
local function properties(class)
  local found = {}
  for _, row in ipairs(reference.rows(reference.find("Properties"))) do
    local only = row[2]:match("W[MC]S$")
    if not only or not class or class:upper():find(only, 1, true) then found[#found + 1] = reference.names(row)[1] end
  end
  return found
end

-- The value of a path of names and numbers, "layers[1].STYLE[2]"; nil when there is none. Calls nothing.
local function value_of(path)
  local value = _G[path:match("^[%a_][%w_]*")]
  for name, index in path:gsub("^[%a_][%w_]*", ""):gmatch("%.?([%a_]?[%w_]*)%[?(%d*)%]?") do
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
  return type(value) == "userdata" and getmetatable(value) == "object" and tostring(value):match("^%S+") or nil, value
end

local function keys_of(value)
  local keys = {}
  for key in pairs(type(value) == "table" and value or {}) do keys[#keys + 1] = key end
  return keys
end

-- Methods that are documented, in the reference's spelling; of all classes when the path leads to no object.
local function methods_of(path)
  local class, value = class_of(path)
  if type(value) == "string" then return keys_of(string) end
  local known = class and {} or nil
  for _, name in ipairs(class and zel.methods(value) or {}) do known[name] = true end
  local found = {}
  for _, list in pairs(methods) do
    for _, name in ipairs(list) do
      if not known or known[name:upper()] or name == "close" then found[#found + 1] = name end
    end
  end
  return found
end

-- What may stand behind the last brace that is open: keywords or properties.
local function within_braces(before)
  local depth = 0
  for i = #before, 1, -1 do
    local c = before:sub(i, i)
    if c == "}" then depth = depth + 1 end
    if c == "{" then depth = depth - 1 end
    if depth < 0 then
      local call = before:sub(1, i - 1)
      local class = call:match("zel%.new%s*%(%s*[\"'](%w+)[\"']%s*,%s*$")
      if class then return properties(class) end
      local path, method = call:match("([%a_][%w_%.%[%]]*):(%a+)%s*%([^()]*$")
      if not method then path, method = call:match("([%a_][%w_%.%[%]]*):(%a+)%s*$") end
      if not method then return {} end
      if method:lower():find("etproperty$") then return properties((class_of(path))) end
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

-- What may stand within an open string behind this text.
local function names_in_string(before)
  if before:find("zel%.new%s*%(?%s*$") then return classes end
  if before:find("zel%.help%s*%(?%s*$") then return help_names() end
  return before:find("[{,]%s*$") and within_braces(before) or {}
end

local function names_at(before)
  local outside = before:gsub("\"[^\"\n]*\"", ""):gsub("'[^'\n]*'", "")
  if outside:find("[\"']") then return names_in_string(before:match("^(.*)[\"']")) end
  local path, mark = before:match("([%a_][%w_%.%[%]]*)([.:])$")
  if mark == ":" then return methods_of(path) end
  if mark == "." then return keys_of(value_of(path)) end
  local inside = before:find("[{,]%s*$") and within_braces(before)
  if inside then return inside end
  local names = keys_of(_G)
  return table.move(WORDS, 1, #WORDS, #names + 1, names)
end

return function(before, word)
  local found, seen = {}, {}
  for _, name in ipairs(names_at(before)) do
    if type(name) == "string" and not seen[name] and name:lower():sub(1, #word) == word:lower() then
      seen[name] = true
      found[#found + 1] = name
    end
  end
  table.sort(found)
  return found
end

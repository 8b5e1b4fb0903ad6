--- zel.show(value, rows): prints a value; of a structure every tag that is not empty, in the order of the tags. With
-- `rows`, at most so many rows of the terminal. Returns true when that cut something off, nothing otherwise.

local terminal = require "zel.terminal"
local paint, printable, length = terminal.paint, terminal.printable, terminal.length

-- Like ipairs, of what the table itself holds: its metatable may make entries without end.
local function raw_list(value)
  return function(t, i)
    local entry = rawget(t, i + 1)
    if entry ~= nil then return i + 1, entry end
  end, value, 0
end

-- Whether a value is an empty text, or holds nothing else.
local function is_empty(value, outer)
  if type(value) ~= "table" then return value == "" end
  outer = outer or {}
  if outer[value] then return false end
  outer[value] = true
  for _, entry in next, value do
    if not is_empty(entry, outer) then return false end
  end
  return true
end

-- The names of a table's entries: a structure's tags in their order, or the keys of another table.
local function names(value)
  local made_by_host, tags = pcall(zel.tags, value)
  if made_by_host then return tags end
  local keys = {}
  for key in next, value do
    if not (math.type(key) == "integer" and rawget(value, 1) ~= nil) then keys[#keys + 1] = key end
  end
  table.sort(keys, function(a, b) return tostring(a) < tostring(b) end)
  return keys
end

-- A list of plain values that fits a line, nil for everything else.
local function inline(value, width)
  local texts, total = {}, 0
  for _, entry in raw_list(value) do
    if type(entry) == "table" or total > width then return nil end
    if entry ~= "" then
      texts[#texts + 1] = printable(entry)
      total = total + length(texts[#texts]) + 2
    end
  end
  return #texts > 0 and total <= width and table.concat(texts, ", ") or nil
end

-- Prints lines until the rows are used up.
local Output = {}
Output.__index = Output

function Output:line(indent, name, text)
  if self.cut then return end
  local rows = math.max(1, math.ceil((length(indent) + length(name) + length(text)) / self.width))
  self.cut = rows > self.left
  if self.cut then return end
  self.left = self.left - rows
  io.write(indent, name ~= "" and paint("name", name) or "", text, "\n")
end

function Output:entry(name, value, indent, outer)
  if type(value) ~= "table" then return self:line(indent, name, ": " .. printable(value)) end
  if outer[value] then return self:line(indent, name, ": (itself)") end
  if next(value) == nil then return self:line(indent, name, ": {}") end
  local text = inline(value, self.width - #indent - length(name) - 2)
  if text then return self:line(indent, name, ": " .. text) end
  self:line(indent, name, ":")
  self:entries(value, indent .. "  ", outer)
end

function Output:entries(value, indent, outer)
  outer[value] = true
  local empty = {}
  for i, entry in raw_list(value) do
    if self.cut then return end
    if not is_empty(entry) then self:entry("[" .. i .. "]", entry, indent, outer) end
  end
  for _, tag in ipairs(names(value)) do
    if self.cut then return end
    local entry = rawget(value, tag)
    if entry == "" or type(entry) == "table" and next(entry) ~= nil and is_empty(entry) then
      empty[#empty + 1] = printable(tag)
    else
      self:entry(printable(tag), entry, indent, outer)
    end
  end
  if #empty > 0 then self:line(indent, "", paint("note", "(empty: " .. table.concat(empty, ", ") .. ")")) end
  outer[value] = nil
end

return function(value, rows)
  local output = setmetatable({left = rows or math.huge, width = (terminal.size())}, Output)
  if type(value) ~= "table" then
    output:line("", "", printable(value))
  elseif next(value) == nil then
    output:line("", "", "{}")
  else
    output:entries(value, "", {})
  end
  if output.cut then return true end
end

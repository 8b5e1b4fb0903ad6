--- zel.show(value): prints a value; of a structure every tag that is not empty, in the order of the tags.

local WIDTH = 100

-- Control characters of a server's text must not reach a terminal.
local function printable(value) return (tostring(value):gsub("%c", " "):gsub("\xC2[\x80-\x9F]", " ")) end

-- Whether a value is an empty text, or holds nothing else.
local function is_empty(value, outer)
  if type(value) ~= "table" then return value == "" end
  outer = outer or {}
  if outer[value] then return false end
  outer[value] = true
  for _, entry in pairs(value) do
    if not is_empty(entry, outer) then return false end
  end
  return true
end

-- The names of a table's entries: a structure's tags in their order, or the keys of another table.
local function names(value)
  local made_by_host, tags = pcall(zel.tags, value)
  if made_by_host then return tags end
  local keys = {}
  for key in pairs(value) do
    if not (math.type(key) == "integer" and value[1] ~= nil) then keys[#keys + 1] = key end
  end
  table.sort(keys, function(a, b) return tostring(a) < tostring(b) end)
  return keys
end

-- A list of plain values that fits a line, nil for everything else.
local function inline(value)
  local texts = {}
  for _, entry in ipairs(value) do
    if type(entry) == "table" then return nil end
    if entry ~= "" then texts[#texts + 1] = printable(entry) end
  end
  local text = table.concat(texts, ", ")
  return #texts > 0 and #text < WIDTH and text or nil
end

local show

local function show_entry(name, value, indent, outer)
  if type(value) ~= "table" then
    print(indent .. name .. ": " .. printable(value))
  elseif outer[value] then
    print(indent .. name .. ": (itself)")
  elseif inline(value) then
    print(indent .. name .. ": " .. inline(value))
  else
    print(indent .. name .. ":")
    show(value, indent .. "  ", outer)
  end
end

function show(value, indent, outer)
  outer[value] = true
  local empty = {}
  for i, entry in ipairs(value) do
    if not is_empty(entry) then show_entry("[" .. i .. "]", entry, indent, outer) end
  end
  for _, tag in ipairs(names(value)) do
    if is_empty(value[tag]) then
      empty[#empty + 1] = printable(tag)
    else
      show_entry(printable(tag), value[tag], indent, outer)
    end
  end
  if #empty > 0 then print(indent .. "(empty: " .. table.concat(empty, ", ") .. ")") end
  outer[value] = nil
end

return function(value)
  if type(value) == "table" then return show(value, "", {}) end
  print(printable(value))
end

--- zel.help(name): prints what the reference says of a method, a property, a function or a topic; without a name, the
-- names there are.

local reference = require "zel.reference"

local WIDTH = 100

-- Text without the marks of Markdown.
local function plain(text) return (text:gsub("%[([^%]]*)%]%([^)]*%)", "%1"):gsub("[`*]", "")) end

local function wrap(text, indent)
  local lines, line = {}, ""
  for word in text:gmatch("%S+") do
    if line ~= "" and utf8.len(line) + utf8.len(word) + indent >= WIDTH then
      lines[#lines + 1], line = line, ""
    end
    line = line == "" and word or line .. " " .. word
  end
  lines[#lines + 1] = line
  return table.concat(lines, "\n" .. (" "):rep(indent))
end

-- Rows of cells in columns, the last one wrapped.
local function print_rows(rows)
  local widths, columns = {}, #rows[1]
  for _, row in ipairs(rows) do
    for i = 1, columns - 1 do widths[i] = math.max(widths[i] or 0, utf8.len(plain(row[i]))) end
  end
  for _, row in ipairs(rows) do
    local line = "  "
    for i = 1, columns - 1 do
      local cell = plain(row[i])
      line = line .. cell .. (" "):rep(widths[i] - utf8.len(cell) + 2)
    end
    print(line .. wrap(plain(row[columns]), #line))
  end
end

local function print_section(section)
  local paragraph, rows, code = {}, reference.rows(section), false
  local function flush()
    if paragraph[1] then print(wrap(plain(table.concat(paragraph, " ")), 0)) end
    paragraph = {}
  end
  print(section.title)
  for _, line in ipairs(section.lines) do
    if line:find("^```") then
      flush()
      code = not code
    elseif code then
      print("    " .. line)
    elseif line:find("^|") then
      if rows then print_rows(rows) end
      rows = nil
    elseif line == "" then
      flush()
      print()
    else
      paragraph[#paragraph + 1] = line
    end
  end
  flush()
end

-- Prints a name's row wherever a table has one, with the title of its section. Returns whether there was one.
local function print_entries(name)
  local found = false
  for _, section in ipairs(reference.sections) do
    for _, row in ipairs(reference.rows(section)) do
      for _, entry in ipairs(reference.names(row)) do
        if entry:lower() == name:lower() or entry:lower() == "zel." .. name:lower() then
          print(section.title)
          print_rows{row}
          found = true
        end
      end
    end
  end
  return found
end

local function print_names()
  local lists, topics = {}, {}
  for _, section in ipairs(reference.sections) do
    if section.level == 2 and not section.topic:find("^Methods") then topics[#topics + 1] = section.title end
    if section.level == 3 and section.topic:find("^Methods") then
      if not lists[#lists] or lists[#lists].topic ~= section.topic then lists[#lists + 1] = {topic = section.topic} end
      table.insert(lists[#lists], section.title)
    end
  end
  topics.topic = "Topics"
  local properties = {topic = "Properties"}
  for _, row in ipairs(reference.rows(reference.find("Properties"))) do properties[#properties + 1] = reference.names(row)[1] end
  for _, list in ipairs{lists[1], lists[2], lists[3], properties, topics} do
    print(list.topic)
    print("  " .. wrap(table.concat(list, ", "), 2))
  end
  print('zel.help("GetMap") prints what there is to say about a name.')
end

return function(name)
  if name == nil then return print_names() end
  name = tostring(name)
  local section = reference.find(name:match("[:.](%a%w*)$") or name) or reference.find(name)
  if section then return print_section(section) end
  if not print_entries(name) then print("There is nothing about " .. name .. "; zel.help() lists the names.") end
end

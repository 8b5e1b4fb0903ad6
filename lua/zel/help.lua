--- zel.help(name): prints what the reference says of a method, a property, a tag, a function or a topic, or the
-- sentences that contain a word; without a name, all names. An object means its class.

local reference = require "zel.reference"
local terminal = require "zel.terminal"
local paint, length = terminal.paint, terminal.length

local WIDEST = 100 -- characters of a line, for the eye
local MOST = 20    -- places of a word that are quoted

local width -- of a line, determined at each call

-- Text without the marks of Markdown.
local function plain(text)
  return (text:gsub("%[([^%]]*)%]%([^)]*%)", "%1"):gsub("%*%*", ""):gsub("\\(%p)", "%1"):gsub("`", ""))
end

-- Text in lines of the screen's width, all but the first indented; the first one begins in column `start`.
local function wrap(text, indent, start)
  local lines, line, room = {}, "", width - (start or indent)
  for word in text:gmatch("%S+") do
    if line ~= "" and length(line) + 1 + length(word) > room then
      lines[#lines + 1], line, room = line, "", width - indent
    end
    line = line == "" and word or line .. " " .. word
  end
  lines[#lines + 1] = line
  return table.concat(lines, "\n" .. (" "):rep(indent))
end

-- Rows of cells: side by side with the last cell wrapped, or, when that leaves it less than half of the width, the last
-- cell below the others.
local function print_rows(rows)
  local widths, columns, start = {}, #rows[1], 2
  for i = 1, columns - 1 do
    widths[i] = 0
    for _, row in ipairs(rows) do widths[i] = math.max(widths[i], length(plain(row[i]))) end
    start = start + widths[i] + 2
  end
  for _, row in ipairs(rows) do
    local cells = {}
    for i = 1, columns do cells[i] = plain(row[i] or "") end
    local last = table.remove(cells)
    if start > width / 2 then
      local first, rest = cells[1], table.concat(cells, ", ", 2)
      local fits = length(first) + length(rest) + 4 <= width
      print("  " .. paint("name", wrap(first, 4, 2)) .. (rest ~= "" and fits and "  " .. rest or ""))
      if not fits and rest ~= "" then print("      " .. wrap(rest, 6)) end
      print("      " .. wrap(last, 6))
    else
      for i, cell in ipairs(cells) do
        cells[i] = (i == 1 and paint("name", cell) or cell) .. (" "):rep(widths[i] - length(cell) + 2)
      end
      print("  " .. table.concat(cells) .. wrap(last, start))
    end
  end
end

local function print_title(section) print(paint("title", section.title)) end

-- A section as the reference has it: paragraphs, lists, tables, and indented code.
local function print_section(section)
  print_title(section)
  for _, block in ipairs(reference.blocks(section)) do
    print()
    if block.kind == "rows" then
      print_rows(block)
    elseif block.kind == "code" then
      for _, line in ipairs(block) do print("    " .. line) end
    else
      local text = plain(table.concat(block, " "))
      print(wrap(text, text:find("^%- ") and 2 or 0, 0))
    end
  end
  local below = {}
  for _, other in ipairs(reference.below(section)) do below[#below + 1] = other.title end
  if below[1] then print("\nMore: " .. wrap(table.concat(below, ", "), 6)) end
end

-- Prints the rows of all tables that have a name, with the titles of their sections. Returns whether there was one.
local function print_entries(name)
  local found = false
  for _, section in ipairs(reference.sections) do
    local rows = {}
    for _, row in ipairs(reference.rows(section)) do
      for _, entry in ipairs(reference.names(row)) do
        if (entry:lower() == name:lower() or entry:lower() == "zel." .. name:lower()) and rows[#rows] ~= row then
          rows[#rows + 1] = row
        end
      end
    end
    if rows[1] then
      print(paint("title", section.level > 2 and section.topic .. ": " .. section.title or section.title))
      print_rows(rows)
      found = true
    end
  end
  return found
end

-- Prints which other names and titles hold a name.
local function print_related(name)
  name = name:lower()
  local related, seen = {}, {[name] = true, ["zel." .. name] = true}
  local function look(other)
    local lower = other:lower()
    if lower:find(name, 1, true) and not seen[lower] then related[#related + 1] = other end
    seen[lower] = true
  end
  for _, section in ipairs(reference.sections) do
    for _, row in ipairs(reference.rows(section)) do
      for _, entry in ipairs(reference.names(row)) do look(entry) end
    end
    look(section.title)
  end
  if related[1] and #related <= MOST then print("See also: " .. wrap(table.concat(related, ", "), 10)) end
end

-- Prints the section whose title has the name as a word, or the titles when several have it.
local function print_titled(name)
  local found = {}
  for _, section in ipairs(reference.sections) do
    if (" " .. section.title:lower():gsub("[^%w%-]", " ") .. " "):find(" " .. name:lower() .. " ", 1, true) then
      found[#found + 1] = section
    end
  end
  if #found == 1 then
    print_section(found[1])
  elseif found[1] then
    print("Topics:")
    for _, section in ipairs(found) do print("  " .. section.title) end
  end
  return found[1] ~= nil
end

-- Prints the sentences and table rows that hold a text, by section. Returns whether there were any.
local function print_quotations(text)
  local places, topics = 0, {}
  local function quote(section, sentence)
    if not plain(sentence):lower():find(text:lower(), 1, true) then return end
    places = places + 1
    if places > MOST then
      if topics[#topics] ~= section.title then topics[#topics + 1] = section.title end
      return
    end
    if topics.last ~= section then print_title(section) end
    topics.last = section
    print("  " .. wrap(plain(sentence), 2))
  end
  for _, section in ipairs(reference.sections) do
    for _, block in ipairs(reference.blocks(section)) do
      if block.kind == "rows" then
        for _, row in ipairs(block) do quote(section, table.concat(row, ": ")) end
      elseif block.kind == "text" then
        local paragraph = table.concat(block, " ") .. " "
        for sentence in paragraph:gsub("([.:?]) ", "%1\n"):gmatch("[^\n]+") do quote(section, sentence) end
      end
    end
  end
  if topics[1] then print("More in: " .. wrap(table.concat(topics, ", "), 9)) end
  return places > 0
end

-- Prints lists of names with their titles, of one class or of all.
local function print_names(class)
  local function list(title, names)
    print(paint("title", title))
    print("  " .. wrap(table.concat(names, ", "), 2))
  end
  local topics, properties = {}, {}
  for _, section in ipairs(reference.sections) do
    local owner = section.level == 2 and section.title:match("^Methods of (.*)$")
    if owner and (not class or not owner:find("^ZEL") or owner:lower() == class:lower()) then
      local methods = {}
      for _, method in ipairs(reference.below(section)) do methods[#methods + 1] = method.title end
      list(section.title, methods)
    elseif section.level == 2 and not owner then
      topics[#topics + 1] = section.title
    end
  end
  for _, row in ipairs(reference.rows(reference.find("Properties"))) do
    local only = row[2]:match("W[MC]S$")
    if not class or not only or class:upper():find(only, 1, true) then
      properties[#properties + 1] = reference.names(row)[1]
    end
  end
  list("Properties", properties)
  if class then return end
  list("Topics", topics)
  print('zel.help("GetMap") explains a name, zel.help("proxy") finds a word.')
end

local function print_class(name)
  if not reference.find("Methods of " .. name) then return false end
  print_names(name)
  return true
end

-- What a value is called in the reference: an object by its class, a function of the library by its place there.
local function name_of(value)
  for name, member in pairs(zel) do
    if rawequal(member, value) then return "zel." .. name end
  end
  return type(value) == "userdata" and tostring(value):match("^%S+") or tostring(value)
end

return function(name)
  width = math.max(20, math.min((terminal.size()), WIDEST))
  if name == nil then return print_names() end
  if name == zel then name = "zel" end
  if type(name) ~= "string" then name = name_of(name) end
  name = name:match("^%s*(.-)[%s(){}]*$")
  local last = name:match("[:.](%a%w*)$")
  local section = reference.find(name) or last and reference.find(last)
  if section and not print_class(name) then return print_section(section) end
  if section or print_class(name) then return end
  if print_entries(last or name) then return print_related(last or name) end
  if print_titled(name) then return end
  if name ~= "" and print_quotations(name) then return end
  print("There is nothing about " .. name .. "; zel.help() lists the names.")
end

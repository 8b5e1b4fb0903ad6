--- The reference for script users, reference.md beside the Lua modules, by its sections.
--
-- sections   in order: {level =, title =, topic = title of the chapter it is in, lines = {...}}
-- find(name)        the section of that title in any letter case, nil when there is none
-- rows(section)     the rows of its tables, each a list of cells
-- names(row)        the names in backticks in a row's first cell

local _, path = ...
local reference = {sections = {}}

local function read()
  local file = assert(io.open((path:gsub("lua/zel/[^/]*$", "reference.md"))))
  local section, topic, code
  for line in file:lines() do
    if line:find("^```") then code = not code end
    local marks, title = line:match("^(#+) (.*)$")
    if marks and not code then
      if #marks <= 2 then topic = title end
      section = {level = #marks, title = title, topic = topic, lines = {}}
      table.insert(reference.sections, section)
    else
      table.insert(section.lines, line)
    end
  end
  file:close()
end

function reference.find(name)
  for _, section in ipairs(reference.sections) do
    if section.title:lower() == name:lower() then return section end
  end
end

function reference.rows(section)
  local rows = {}
  for _, line in ipairs(section.lines) do
    if line:find("^| `") then
      local cells = {}
      for cell in line:gmatch("|%s*([^|]-)%s*%f[|]") do cells[#cells + 1] = cell end
      rows[#rows + 1] = cells
    end
  end
  return rows
end

function reference.names(row)
  local names = {}
  for name in row[1]:gmatch("`([%w_.]+)") do names[#names + 1] = name end
  return names
end

read()
return reference

--- The reference for script users, reference.md beside the Lua modules, by its sections.
--
-- sections          in order: {level =, title =, topic = title of the chapter it is in, lines = {...}}
-- find(name)        the section of that title in any letter case, nil when there is none
-- below(section)    the sections one level below it
-- blocks(section)   its parts in order, each a list with a kind: "text" (lines), "code" (lines) or "rows" (of cells)
-- rows(section)     the rows of all its tables, without their heads
-- names(row)        the names in backticks in a row's first cell

-- Kept from the start: completion must not run what a script puts in their place.
local find, gmatch, gsub = string.find, string.gmatch, string.gsub
local lower, match, sub = string.lower, string.match, string.sub
local ipairs = ipairs

local _, path = ...
local reference = {sections = {}}

local function read()
  local file = assert(io.open((gsub(path, "lua/zel/[^/]*$", "reference.md"))))
  local section, topic, code
  for line in file:lines() do
    if find(line, "^```") then code = not code end
    local marks, title = match(line, "^(#+) (.*)$")
    if marks and not code then
      if #marks <= 2 then topic = title end
      section = {level = #marks, title = title, topic = topic, lines = {}}
      reference.sections[#reference.sections + 1] = section
    else
      section.lines[#section.lines + 1] = line
    end
  end
  file:close()
end

function reference.find(name)
  for _, section in ipairs(reference.sections) do
    if lower(section.title) == lower(name) then return section end
  end
end

function reference.below(section)
  local found, inside = {}, false
  for _, other in ipairs(reference.sections) do
    if other == section then
      inside = true
    elseif inside then
      if other.level <= section.level then break end
      if other.level == section.level + 1 then found[#found + 1] = other end
    end
  end
  return found
end

local function cells_of(line)
  local cells = {}
  for cell in gmatch(line, "|%s*([^|]-)%s*%f[|]") do cells[#cells + 1] = cell end
  return cells
end

function reference.blocks(section)
  local blocks, block, code = {}, nil, false
  local function add(kind, item)
    if not block or block.kind ~= kind then
      block = {kind = kind}
      blocks[#blocks + 1] = block
    end
    block[#block + 1] = item
  end
  for _, line in ipairs(section.lines) do
    if find(line, "^```") then
      code, block = not code, nil
    elseif code then
      add("code", line)
    elseif find(line, "^    ") then
      add("code", sub(line, 5))
    elseif find(line, "^| `") then
      add("rows", cells_of(line))
    elseif line == "" then
      block = nil
    elseif not find(line, "^|") then
      if find(line, "^%- ") then block = nil end
      add("text", line)
    end
  end
  return blocks
end

function reference.rows(section)
  local rows = {}
  for _, line in ipairs(section.lines) do
    if find(line, "^| `") then rows[#rows + 1] = cells_of(line) end
  end
  return rows
end

function reference.names(row)
  local names = {}
  for name in gmatch(row[1], "`([%w_.%-]+)[^`]*`") do names[#names + 1] = name end
  return names
end

read()
return reference

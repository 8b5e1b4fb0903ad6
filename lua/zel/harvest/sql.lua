--- Values as SQL, and statements that insert many rows at once.

local find, format, gsub, valid = string.find, string.format, string.gsub, utf8.len
local concat = table.concat

local ROWS = 500 -- of one statement, so that a service of 70,000 layers does not become one text

local sql = {}

-- What is no UTF-8 byte by byte: "?" for each byte that belongs to no character.
local function mended(text)
  local place = 1
  while true do
    local _, wrong = valid(text, place)
    if not wrong then return text end
    text = text:sub(1, wrong - 1) .. "?" .. text:sub(wrong + 1)
    place = wrong
  end
end

--- A text; NULL without one or for an empty one.
function sql.text(value)
  if value == nil or value == "" then return "NULL" end
  if find(value, "\0", 1, true) then value = gsub(value, "\0", " ") end
  if find(value, "'", 1, true) then value = gsub(value, "'", "''") end
  if not valid(value) then value = mended(value) end
  return "'" .. value .. "'"
end

--- A number; NULL without one and for what is none.
function sql.number(value)
  if value == nil or value ~= value or value == math.huge or value == -math.huge then return "NULL" end
  return math.type(value) == "integer" and format("%d", value) or format("%.17g", value)
end

--- 1, 0, or NULL when nothing is known.
function sql.flag(value) return value == nil and "NULL" or value and "1" or "0" end

--- Appends to `statements` what inserts rows, each a text that row() made. With `known` a row that is there stays.
function sql.insert(statements, into, rows, known)
  for first = 1, #rows, ROWS do
    statements[#statements + 1] = (known and "INSERT OR IGNORE INTO " or "INSERT INTO ") .. into .. " VALUES "
                                  .. concat(rows, ",", first, math.min(first + ROWS - 1, #rows))
  end
end

--- A row of values in SQL.
function sql.row(...) return "(" .. concat({...}, ",") .. ")" end

return sql

--- Finds services, layers and coverages in a harvest's database.

local boxes = require "zel.ogc.boxes"
local schema = require "zel.harvest.schema"
local sql = require "zel.harvest.sql"

local SIZE = "(box.east - box.west) * (box.north - box.south)"

-- Words as people type them as a query of the index. Texts in double quotes are phrases, a "*" at the end of a word
-- stands for any ending; all else is looked for as it is.
local function query(words, prefix)
  local terms = {}
  local function add(text, star)
    if text:find("[%w\x80-\xFF]") then terms[#terms + 1] = '"' .. text:gsub('"', '""') .. '"' .. star end
  end
  for before, phrase in (words .. '""'):gmatch('([^"]*)"([^"]*)"?') do
    for word in before:gmatch("%S+") do
      local stem, star = word:match("^(.-)(%**)$")
      add(stem, (star ~= "" or prefix) and " *" or "")
    end
    add(phrase, prefix and " *" or "")
  end
  return #terms > 0 and table.concat(terms, " AND ") or nil
end

-- Conditions on the box of an item: it shares a place with one of the boxes that lie a turn of the Earth apart.
local function touching(bbox)
  local west, south, east, north = table.unpack(boxes.unrolled(bbox))
  local turns = {}
  for turn = -360, 360, 360 do
    turns[#turns + 1] = ("(box.west <= %s AND box.east >= %s)"):format(sql.number(east + turn), sql.number(west + turn))
  end
  return ("(%s) AND box.south <= %s AND box.north >= %s"):format(table.concat(turns, " OR "), sql.number(north),
                                                                 sql.number(south))
end

-- How little a box and the one asked for share, from -1 (they are the same) to 0.
local function unlike(bbox)
  local west, south, east, north = table.unpack(boxes.unrolled(bbox))
  local shared = ("max(0.0, min(box.east, %s) - max(box.west, %s)) * max(0.0, min(box.north, %s) - max(box.south, %s))")
    :format(sql.number(east), sql.number(west), sql.number(north), sql.number(south))
  local area = sql.number((east - west) * (north - south) + 1e-9)
  return ("-(%s) / (%s + %s - %s)"):format(shared, SIZE, area, shared)
end

-- What matches, as the end of a query.
local function matches(match, bbox, kind)
  local from, where = "words", {}
  if match then
    where[1] = "words MATCH " .. sql.text(match)
    if bbox then from = "words JOIN box ON box.id = words.rowid" end
  else
    from = "box"
  end
  if bbox then where[#where + 1] = touching(bbox) end
  local id = match and "words.rowid" or "box.id"
  if kind then
    where[#where + 1] = ("(SELECT kind FROM service WHERE service.id = %s - %s %% %d) = %s"):format(
      id, id, schema.SPAN, sql.text(kind))
  end
  return (" FROM %s WHERE %s"):format(from, table.concat(where, " AND "))
end

local function statement(match, bbox, kind, limit)
  return ("SELECT %s AS id, %s AS score%s ORDER BY score, id LIMIT %d"):format(
    match and "words.rowid" or "box.id", match and "words.rank" or unlike(bbox), matches(match, bbox, kind), limit)
end

-- The rows of what a statement finds, in its order.
local function collect(database, text)
  local found, places, ids = {}, {}, {}
  for row in database:rows(text) do
    found[#found + 1] = row
    ids[#ids + 1], places[row.id] = row.id, #found
  end
  local details = "SELECT item.*, service.url, service.kind AS type, service.title AS service_title "
                  .. "FROM item JOIN service ON service.id = item.service WHERE item.id IN (%s)"
  for row in database:rows(details:format(table.concat(ids, ","))) do
    row.score = found[places[row.id]].score
    row.box = row.west and {row.west, row.south, row.east, row.north} or nil
    found[places[row.id]] = row
  end
  return found
end

--- The best of what has all the words and touches the box, at most `limit`; words that are found nowhere as they are
-- are taken as the beginnings of words. Rows of the view `item` with url, type and title of their service, and box; and
-- how many there are without a limit.
return function(database, words, bbox, kind, limit)
  local match = query(words, false)
  if words ~= "" and not match then return {}, 0 end -- nothing but signs
  local found = collect(database, statement(match, bbox, kind, limit))
  if #found == 0 and match then
    match = query(words, true)
    found = collect(database, statement(match, bbox, kind, limit))
  end
  if #found < limit then return found, #found end
  return found, database:value("SELECT count(*)" .. matches(match, bbox, kind))
end

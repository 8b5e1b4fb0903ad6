--- Merges databases of harvests, such as those of the parts of a list: each service from the one that read it last.
--
-- Ids of services differ between databases, and nothing else does: what belongs to a service moves by one number.

local database = require "zel.harvest.database"
local errors = require "zel.ogc.errors"
local rows = require "zel.harvest.rows"
local schema = require "zel.harvest.schema"
local sql = require "zel.harvest.sql"

-- What belongs to a service: its tables with the columns that are ids.
local TABLES = {
  {"layer", {id = true, service = true, parent = true}}, {"coverage", {id = true, service = true}},
  {"bounds", {layer = true}}, {"style", {layer = true}}, {"dimension", {layer = true}}, {"keyword", {item = true}},
}

-- The names of the columns of each table.
local function read_columns(base)
  local found = {}
  for row in base:rows("SELECT t.name AS owner, c.name AS name FROM main.sqlite_master AS t, "
                       .. "pragma_table_info(t.name) AS c WHERE t.type = 'table' ORDER BY t.name, c.cid") do
    found[row.owner] = found[row.owner] or {}
    table.insert(found[row.owner], row.name)
  end
  return found
end

-- The columns of a table as they are selected, ids moved by a number.
local function moved(names, ids, by)
  local list = {}
  for i, name in ipairs(names) do list[i] = ids[name] and ("%s + (%d)"):format(name, by) or name end
  return table.concat(list, ",")
end

-- The statements that put a service of the other database in the place of what is stored.
local function replacement(columns, other_id, id, is_stored)
  local list, first, last = is_stored and rows.removal(id) or {}, rows.range(other_id)
  local own = {}
  for _, name in ipairs(columns.service) do
    if name ~= "id" and name ~= "url" and name ~= "kind" then own[#own + 1] = name end
  end
  local all = table.concat(own, ",")
  local update = "UPDATE main.service SET (%s) = (SELECT %s FROM other.service WHERE id = %d) WHERE id = %d"
  list[#list + 1] = update:format(all, all, other_id, id)
  for _, entry in ipairs(TABLES) do
    local name, ids = table.unpack(entry)
    local key = ids.id and "id" or next(ids)
    list[#list + 1] = ("INSERT INTO main.%s SELECT %s FROM other.%s WHERE %s BETWEEN %d AND %d"):format(
      name, moved(columns[name], ids, id - other_id), name, key, first, last)
  end
  list[#list + 1] = ("INSERT OR IGNORE INTO main.system SELECT * FROM other.system WHERE list IN "
                     .. "(SELECT systems FROM other.layer WHERE id BETWEEN %d AND %d)"):format(first, last)
  return table.move(rows.indexing(id), 1, 2, #list + 1, list)
end

-- Runs and tries that are not there yet.
local HISTORY = {
  "INSERT OR IGNORE INTO main.run (list, started, finished) SELECT list, started, finished FROM other.run",
  "UPDATE main.run SET finished = coalesce(finished, (SELECT other.run.finished FROM other.run WHERE other.run.list = "
    .. "main.run.list AND other.run.started = main.run.started))",
  [[INSERT OR IGNORE INTO main.attempt SELECT own.id, attempt.started, run.id, attempt.seconds, attempt.bytes,
attempt.version, attempt.result, attempt.again, attempt.words FROM other.attempt AS attempt
JOIN other.service AS service ON service.id = attempt.service JOIN main.service AS own ON own.url = service.url
  AND own.kind = service.kind
JOIN other.run AS made ON made.id = attempt.run
JOIN main.run AS run ON run.list = made.list AND run.started = made.started]],
}

-- Merges the attached database in one transaction. Returns how many services were taken from it.
local function merge_attached(base)
  local statements, taken, columns = {}, 0, read_columns(base)
  local last = base:value("SELECT coalesce(max(id), 0) FROM main.service")
  for row in base:rows("SELECT other.id, other.url, other.kind, other.harvested, "
                       .. "own.id AS own, own.harvested AS before FROM other.service AS other "
                       .. "LEFT JOIN main.service AS own ON own.url = other.url "
                       .. "AND own.kind = other.kind ORDER BY other.id") do
    local id = row.own
    if not id then
      last = last + schema.SPAN
      id = last
      statements[#statements + 1] = "INSERT INTO main.service (id, url, kind) VALUES "
                                    .. sql.row(id, sql.text(row.url), sql.text(row.kind))
    end
    if row.harvested and (not row.before or row.before < row.harvested) then
      for _, statement in ipairs(replacement(columns, row.id, id, row.before)) do
        statements[#statements + 1] = statement
      end
      taken = taken + 1
    end
  end
  table.move(HISTORY, 1, #HISTORY, #statements + 1, statements)
  base:transaction(statements)
  return taken
end

--- Merges the databases at `paths` into that at `path`, which is made when it is not there; `told(path, taken, total)`
-- is called after each.
return function(path, paths, told)
  local names = {}
  for _, other in ipairs(paths) do -- all are known to be good before one is merged
    local opened <close> = database.open(other)
    names[opened:file()] = true
  end
  local base <close> = database.open(path, true)
  if names[base:file()] then errors.raise(path .. " cannot be merged with itself") end
  for _, other in ipairs(paths) do
    base:attach(other)
    local taken = merge_attached(base)
    told(other, taken, base:value("SELECT count(*) FROM other.service"))
    base:run("DETACH other")
  end
  base:finish()
end

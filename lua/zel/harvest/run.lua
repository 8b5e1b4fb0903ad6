--- A run: one pass over a list. One that did not come to its end is continued by the next harvest of the same list.
--
-- A service is done in a run when it was read or refused, or failed so that trying again is no use, or as often as
-- tries are allowed.

local schema = require "zel.harvest.schema"
local sql = require "zel.harvest.sql"

local DAY = 86400 -- seconds

local run = {}

-- What tells one list, or part of a list, from another: its services.
local function digest(entries)
  local lines = {}
  for i, entry in ipairs(entries) do lines[i] = entry.kind .. " " .. entry.public end
  return zel.digest(table.concat(lines, "\n"))
end

-- Gives every entry its row in the database, `known`; new services get one.
local function add_services(database, entries)
  local rows = {}
  for row in database:rows("SELECT id, url, kind, version, update_sequence, document_hash, harvested FROM service") do
    rows[row.kind .. " " .. row.url] = row
  end
  local last = database:value("SELECT coalesce(max(id), 0) FROM service")
  local new, statements = {}, {}
  for _, entry in ipairs(entries) do
    local known = rows[entry.kind .. " " .. entry.public]
    if not known then
      last = last + schema.SPAN
      known = {id = last, kind = entry.kind}
      new[#new + 1] = sql.row(last, sql.text(entry.public), sql.text(entry.kind))
    end
    entry.known, entry.tries = known, 0
  end
  sql.insert(statements, "service (id, url, kind)", new)
  database:transaction(statements)
end

-- The services that need not be asked: read not longer ago than `seconds`.
local function fresh_services(database, seconds, clock)
  local fresh = {}
  local since = sql.text(clock.text(os.time() - seconds))
  for row in database:rows("SELECT DISTINCT service FROM attempt WHERE result IN ('new', 'changed', 'unchanged') "
                           .. "AND started > " .. since) do
    fresh[row.service] = true
  end
  return fresh
end

--- Begins a run, or continues one. `days` is the age up to which services are not
-- asked again. Returns the number of the run and the entries that are left to ask, each with `known`, its row, and
-- `tries`, how often it was tried in this run.
function run.begin(database, entries, days, retries, clock, now)
  add_services(database, entries)
  local list = sql.text(digest(entries))
  local id = database:value("SELECT max(id) FROM run WHERE finished IS NULL AND list = " .. list)
  local tried, done = {}, {}
  if id then
    for row in database:rows("SELECT service, count(*) AS tries, min(again) AS again FROM attempt WHERE run = " .. id
                             .. " GROUP BY service") do
      tried[row.service] = row.tries
      done[row.service] = row.again == 0 or row.tries > retries
    end
  else
    id = database:value("SELECT coalesce(max(id), 0) + 1 FROM run")
    database:run(("INSERT INTO run (id, list, started) VALUES (%d, %s, %s)"):format(id, list, sql.text(now())))
  end
  local fresh = days > 0 and fresh_services(database, days * DAY, clock) or {}
  local left = {}
  for _, entry in ipairs(entries) do
    entry.tries = tried[entry.known.id] or 0
    if not done[entry.known.id] and not fresh[entry.known.id] then left[#left + 1] = entry end
  end
  return id, left
end

--- The statement that notes a try.
function run.attempt(id, service, started, seconds, tried)
  return "INSERT INTO attempt VALUES " .. sql.row(
    service, sql.text(started), id, ("%.3f"):format(seconds), sql.number(tried.bytes or 0), sql.text(tried.version),
    sql.text(tried.result), sql.flag(tried.again), sql.text(tried.words))
end

--- Notes that the run came to its end.
function run.finish(database, id, now)
  database:run(("UPDATE run SET finished = %s WHERE id = %d"):format(sql.text(now()), id))
end

return run

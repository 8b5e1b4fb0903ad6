--- A process of a harvest: asks the services of one batch, and leaves what is to be stored in files.
--
-- The directory has settings, BATCH.batch with the entries and, from an earlier process of that batch that was killed,
-- BATCH.log. The statements of a try go to BATCH.N.sql; a line of standard output reports each: the batch, N, the
-- result, and "last" or "again". While a server is slow: the batch, "waiting", the host and the seconds.

local files = require "zel.ogc.files"
local new_clock = require "zel.harvest.clock".new
local outcome = require "zel.harvest.outcome"
local run = require "zel.harvest.run"
local work = require "zel.harvest.work"

local function load_table(path) return load("return " .. files.read(path), path, "t", {})() end

-- What the log says: how far each service is, the one that was being asked at the end, and the number of tries.
local function read_log(path)
  local state, current, count = {}, nil, 0
  for word, id in (files.read(path) or ""):gmatch("(%a+) (%d+)\n") do
    id = math.tointeger(tonumber(id))
    state[id] = state[id] or {tries = 0}
    current = word == "asking" and id or nil
    if word ~= "asking" then
      count = count + 1
      state[id].tries, state[id].done = state[id].tries + 1, word == "last"
    end
  end
  return state, current, count
end

--- Works through a batch. `status` is that with which an earlier process ended.
return function(directory, batch, status)
  local base = ("%s/%s."):format(directory, batch)
  local settings = load_table(directory .. "/settings")
  settings.file = base .. "document"
  local state, killed_at, number = read_log(base .. "log")
  local log <close> = assert(io.open(base .. "log", "a"))
  log:setvbuf("no")
  local now = new_clock(settings.offset)

  local function report(entry, tried, statements, last)
    number = number + 1
    local file <close> = assert(io.open(("%s%d.sql"):format(base, number), "wb"))
    for _, statement in ipairs(statements) do assert(file:write(#statement, "\n", statement)) end
    assert(file:close())
    local word = last and "last" or "again"
    log:write(word, " ", entry.known.id, "\n")
    io.write(("%s %d %s %s\n"):format(batch, number, tried.result, word))
    io.flush()
  end

  local told = -math.huge
  function settings.waiting(_, host, seconds)
    if zel.clock() - told < 1 then return end
    told = zel.clock()
    io.write(("%s waiting %s %d\n"):format(batch, host, seconds // 1))
    io.flush()
  end

  local left = {}
  for _, entry in ipairs(load_table(base .. "batch")) do
    local before = state[entry.known.id]
    entry.tries = entry.tries + (before and before.tries or 0)
    if entry.known.id == killed_at then
      local tried = outcome.failed(("the process that read it was killed (status %d)"):format(status))
      report(entry, tried, {run.attempt(settings.run, killed_at, now(), 0, tried)}, true)
    elseif not before or not before.done then
      left[#left + 1] = entry
    end
  end
  work(left, settings, report, function(entry) log:write("asking ", entry.known.id, "\n") end)
end

--- A harvest: the capabilities of many services, in a database.
--
--   require("zel.harvest").run{list = "services.txt", database = "services.db"}
--
--   list          file with a URL a line, "-" for standard input
--   database      the file; made when it is not there
--   older         days: services that were read within them are not asked again; 0
--   jobs          how many processes ask; 1
--   shard         {2, 8}: only the second of eight parts, divided by host
--   options       options of zel.ogc and properties of its objects; retries, 1 without it, and pause are among them
--   quiet         true: nothing on standard error
--
-- Returns the numbers of services, and of those that were new, changed, unchanged, refused, failed and skipped (not
-- asked again), of lines of the list that are not usable, and the seconds it took.

local arguments = require "zel.ogc.arguments"
local clock = require "zel.harvest.clock"
local database = require "zel.harvest.database"
local errors = require "zel.ogc.errors"
local guard = require "zel.harvest.guard"
local most_jobs = require "zel.most_jobs"
local new_progress = require "zel.work_progress"
local ogc_options = require "zel.ogc.options"
local read_list = require "zel.harvest.list"
local new_store = require "zel.harvest.store"
local run = require "zel.harvest.run"
local work = require "zel.harvest.work"
local workers = require "zel.harvest.workers"

local DEFAULTS = {timeout = 60, connect_timeout = 20, retries = 1} -- patience with one of thousands
local TYPES = {
  list = "string", database = "string", older = "number", jobs = "number", shard = "table", options = "table",
  quiet = "boolean",
}

-- Whether a host belongs to a part: the same on every machine.
local function in_shard(host, shard)
  return tonumber(zel.digest(host):sub(1, 12), 16) % shard[2] == shard[1] - 1
end

local function select_hosts(entries, shard)
  local part, parts = math.tointeger(shard[1]), math.tointeger(shard[2])
  if not (part and parts and part >= 1 and part <= parts) then
    errors.raise("shard must be {I, N}, such as {3, 8}, the third of eight parts")
  end
  local chosen = {}
  for _, entry in ipairs(entries) do
    if in_shard(entry.host, shard) then chosen[#chosen + 1] = entry end
  end
  return chosen
end

local harvest = {}

--- Harvests a list.
function harvest.run(given)
  arguments.check("harvest.run", given, TYPES)
  if not given.list or not given.database then errors.raise("harvest.run wants a list and a database") end
  local say = function(text) if not given.quiet then io.stderr:write("zel-ogc: ", text, "\n") end end
  local jobs = arguments.check_count("jobs", given.jobs, most_jobs.harvest) or 1
  local options = ogc_options.merge("harvest.run", given.options, DEFAULTS)
  local began = zel.clock()
  local entries, unusable = read_list(given.list, say)
  if given.shard then entries = select_hosts(entries, given.shard) end

  local base <close> = database.open(given.database, true, given.shard ~= nil)
  local directory <close> = guard.directory()
  local offset = clock.offset(base)
  local now = clock.new(offset)
  local id, left = run.begin(base, entries, given.older or 0, options.retries, clock, now)
  local counts = {services = #entries, new = 0, changed = 0, unchanged = 0, refused = 0, failed = 0,
                  skipped = #entries - #left, unusable = unusable}
  local progress = given.quiet and function() end or new_progress(#entries, "services", "failed", counts.skipped)
  local done, store <close> = counts.skipped, new_store(base)
  local waits = {} -- for whom, and since when, by entry or batch
  local function draw()
    local longest
    for _, wait in pairs(waits) do longest = longest and longest.since < wait.since and longest or wait end
    progress(done, counts.failed + counts.refused, longest and longest.host, longest and zel.clock() - longest.since)
  end
  if #left > 0 then draw() end
  local function take(who, tried, statements, last)
    waits[who] = nil
    store:add(statements)
    if not last then return end
    counts[tried.result] = counts[tried.result] + 1
    done = done + 1
    draw()
  end
  local settings = {run = id, file = directory.path .. "/document", options = options, offset = offset,
                    properties = ogc_options.properties(options)}
  function settings.waiting(who, host, seconds)
    waits[who] = {host = host, since = zel.clock() - seconds}
    draw()
  end
  if jobs > 1 and #left > 0 then workers(left, settings, jobs, directory.path, take) else work(left, settings, take) end
  store:flush()
  run.finish(base, id, now)
  base:finish()
  counts.seconds = zel.clock() - began
  return counts
end

return harvest

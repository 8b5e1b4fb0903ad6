--- Asks services one after the other, and hands what came to whoever stores it.

local new_clock = require "zel.harvest.clock".new
local new_queue = require "zel.harvest.queue"
local read = require "zel.harvest.read"
local run = require "zel.harvest.run"

local MUCH = 2000000 -- bytes of a document after which memory is given back at once

--- Asks all entries. settings: run (its number), file, options, properties, offset (of the clock), and waiting, which
-- zel.harvest.read has. For each try it calls `store(entry, tried, statements, last)`, in which `tried` is the outcome
-- and `last` is false when the service will be tried again; `before(entry)`, if given, is called before each.
return function(entries, settings, store, before)
  -- Nearly all that is made for a service is garbage after it.
  local mode = collectgarbage("generational", 100)
  local _ <close> = setmetatable({}, {__close = function() collectgarbage(mode) end})
  local now = new_clock(settings.offset)
  local queue = new_queue(entries, settings.options.pause)
  settings.now, settings.lists = now, {bytes = 0, numbers = {}}
  for entry in queue.take, queue do
    if before then before(entry) end
    local started, began = now(), zel.clock()
    local tried, statements = read(entry, entry.known, settings)
    entry.tries = entry.tries + 1
    statements = statements or {}
    statements[#statements + 1] = run.attempt(settings.run, entry.known.id, started, zel.clock() - began, tried)
    local last = not tried.again or entry.tries > settings.options.retries
    store(entry, tried, statements, last)
    statements = nil -- so that they can be collected
    if (tried.bytes or 0) > MUCH then zel.collect() end
    queue:done(entry, not last and tried.wait or nil)
  end
end

--- zel-ogc harvest: what is printed at the end of a harvest.

local harvest = require "zel.harvest"

local RESULTS = {"new", "changed", "unchanged", "refused", "failed"}

return function(o, options)
  options.pause = o.pause
  local counts = harvest.run{list = o.list, database = o.database, older = o.older, jobs = o.jobs, shard = o.shard,
                             quiet = o.quiet, options = options}
  if o.quiet then return end
  local parts = {}
  for _, result in ipairs(RESULTS) do parts[#parts + 1] = counts[result] .. " " .. result end
  if counts.skipped > 0 then parts[#parts + 1] = counts.skipped .. " not asked again" end
  if counts.unusable > 0 then
    parts[#parts + 1] = ("%d %s not usable"):format(counts.unusable, counts.unusable == 1 and "line" or "lines")
  end
  local services = counts.services == 1 and "service" or "services"
  io.stderr:write(("%d %s: %s; %.1f s\n"):format(counts.services, services, table.concat(parts, ", "), counts.seconds))
end

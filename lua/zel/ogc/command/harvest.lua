--- zel-ogc harvest: what is printed around a harvest.

local harvest = require "zel.harvest"

return function(o, options)
  options.pause = o.pause
  local counts = harvest.run{list = o.list, database = o.database, older = o.older, jobs = o.jobs, shard = o.shard,
                             quiet = o.quiet, options = options}
  if o.quiet then return end
  local text = ("%d services: %d new, %d changed, %d unchanged"):format(counts.services, counts.new, counts.changed,
                                                                         counts.unchanged)
  if counts.refused > 0 then text = text .. (", %d refused"):format(counts.refused) end
  if counts.failed > 0 then text = text .. (", %d failed"):format(counts.failed) end
  io.stderr:write(text, (" in %.1f s\n"):format(counts.seconds))
end

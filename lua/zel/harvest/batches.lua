--- Cuts services into batches, the work of one process each: all services of a host are in one batch.

local LARGEST = 200 -- services of a batch, unless one host has more
local SHARE = 4     -- batches for each process at least, so that all end at about the same time

--- Lists of entries, the longest first.
return function(entries, jobs)
  local size = math.max(1, math.min(LARGEST, math.ceil(#entries / (jobs * SHARE))))
  local hosts, order = {}, {}
  for _, entry in ipairs(entries) do
    if not hosts[entry.host] then
      hosts[entry.host] = {}
      order[#order + 1] = entry.host
    end
    table.insert(hosts[entry.host], entry)
  end
  local batches, open = {}, nil
  for _, name in ipairs(order) do
    local host = hosts[name]
    if not open or #open + #host > size then
      open = {}
      batches[#batches + 1] = open
    end
    table.move(host, 1, #host, #open + 1, open)
  end
  table.sort(batches, function(a, b) return #a > #b end)
  return batches
end

--- The order in which services are asked: host after host in turn, each after its pause.

local Queue = {}
Queue.__index = Queue

-- Puts a host where it belongs by its time; hosts that are due keep their turn.
local function place(self, host)
  local low, high = self.first, self.last + 1
  while low < high do
    local middle = (low + high) // 2
    if self.hosts[middle].due <= host.due then low = middle + 1 else high = middle end
  end
  table.move(self.hosts, low, self.last, low + 1)
  self.hosts[low] = host
  self.last = self.last + 1
end

--- Takes the next entry; nil when there is none. Waits until its host may be asked again.
function Queue:take()
  local host = self.hosts[self.first]
  if not host then return nil end
  self.hosts[self.first] = nil
  self.first = self.first + 1
  if host.due > zel.clock() then zel.sleep(host.due - zel.clock()) end
  local entry = host.entries[host.next]
  host.entries[host.next] = nil
  host.next = host.next + 1
  self.taken[entry] = host
  return entry
end

--- Gives back the host of an entry that was taken. With `seconds` the entry is to be asked once more, after that time.
function Queue:done(entry, seconds)
  local host = self.taken[entry]
  self.taken[entry] = nil
  local now = zel.clock()
  if seconds then
    entry.due = now + seconds
    host.count = host.count + 1
    host.entries[host.count] = entry
  end
  local following = host.entries[host.next]
  if not following then return end
  host.due = math.max(now + self.pause, following.due or 0)
  place(self, host)
end

--- A queue of entries, each with its host; `pause` is the time in seconds between two requests to a host.
return function(entries, pause)
  local self = setmetatable({pause = pause, hosts = {}, first = 1, last = 0, taken = {}}, Queue)
  local known = {}
  for _, entry in ipairs(entries) do
    local host = known[entry.host]
    if not host then
      host = {entries = {}, count = 0, next = 1, due = 0}
      known[entry.host] = host
      self.last = self.last + 1
      self.hosts[self.last] = host
    end
    host.count = host.count + 1
    host.entries[host.count] = entry
  end
  return self
end

--- Progress of a map in tiles, on standard error: one line that is redrawn on a terminal, a line every few seconds
-- elsewhere.

local PAUSE = 5 -- seconds between two lines where there is no terminal

local Progress = {}
Progress.__index = Progress

local function duration(seconds) return ("%d:%02d"):format(seconds // 60, seconds % 60) end

local function show(self)
  local now = zel.clock()
  if self.quiet or (not self.terminal and now - self.shown < PAUSE and self.done < self.total) then return end
  local left = self.fetched > 0 and math.ceil((now - self.began) / self.fetched * (self.total - self.done)) or 0
  io.stderr:write(self.terminal and self.shown > self.began and "\27[A\r\27[K" or "",
    ("tile %d of %d, %s left\n"):format(self.done, self.total, duration(left)))
  self.shown = now
end

--- Counts a tile that was fetched, or that an earlier run had left.
function Progress:step(there)
  self.done = self.done + 1
  if not there then self.fetched = self.fetched + 1 end
  show(self)
end

function Progress:__close()
  if self.hidden then self.hidden:SetProperty{CALLBACK_FUNCTION = require "zel.progress"} end
end

--- progress(s, total): `local shown <close>`. Until it is closed, single transfers draw no bars.
return function(s, total)
  local now = zel.clock()
  local terminal = zel.columns(io.stderr)
  local hidden = terminal and not s.options.quiet and not s.options.status and s.object or nil
  if hidden then hidden:SetProperty{CALLBACK_FUNCTION = ""} end
  return setmetatable({total = total, done = 0, fetched = 0, began = now, shown = now, terminal = terminal,
                       quiet = s.options.quiet, hidden = hidden}, Progress)
end

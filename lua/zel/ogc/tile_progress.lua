--- Progress of a map in tiles, on standard error. While it is shown, single transfers draw no bars.
--
--   local shown <close> = progress(s, 8, 3)   of eight tiles, three of which an earlier run left
--   shown:step()                              one more

local new_progress = require "zel.work_progress"

local Progress = {}
Progress.__index = Progress

function Progress:step()
  self.done = self.done + 1
  self.draw(self.done, 0)
end

function Progress:__close()
  if self.hidden then self.hidden:SetProperty{CALLBACK_FUNCTION = require "zel.progress"} end
end

return function(s, total, before)
  local draws_bars = zel.columns(io.stderr) and not s.options.quiet and not s.options.status
  if draws_bars then s.object:SetProperty{CALLBACK_FUNCTION = ""} end
  return setmetatable({
    done = before, hidden = draws_bars and s.object or nil,
    draw = s.options.quiet and function() end or new_progress(total, "tiles", "failed", before)}, Progress)
end

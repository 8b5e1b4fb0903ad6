--- Progress of a job of many parts, on standard error: one line that is redrawn on a terminal, a line every few seconds
-- elsewhere.
--
--   local progress = require "zel.work_progress"(40, "pictures", "without")
--   progress(12, 3)      "12 of 40 pictures, 3 without, 0:05 left"

local count = require "zel.thousands"
local duration = require "zel.duration"

local TERMINAL_PAUSE, PLAIN_PAUSE = 0.1, 5 -- seconds between two lines
local WIDEST_BAR, NARROWEST_BAR = 30, 8

local function bar(part, room)
  if room < NARROWEST_BAR then return "" end
  local full = math.floor(room * part)
  return "[" .. ("#"):rep(full) .. ("."):rep(room - full) .. "] "
end

--- A function that draws how many parts are done, how many of them failed, and, if given, for whom it has waited how
-- many seconds. `before` parts were done earlier.
return function(total, parts, failing, before)
  before = before or 0
  local width = os.getenv("TERM") ~= "dumb" and zel.columns(io.stderr) or nil
  local pause = width and TERMINAL_PAUSE or PLAIN_PAUSE
  local began, drawn = zel.clock(), nil
  local function line(done, failed, now, host, seconds)
    local text = ("%s of %s %s"):format(count(done), count(total), parts)
    if failed > 0 then text = text .. (", %s %s"):format(count(failed), failing) end
    if done > before and done < total then
      text = text .. (", %s left"):format(duration((now - began) / (done - before) * (total - done)))
    end
    return host and text .. (", waiting %s for %s"):format(duration(seconds), host) or text
  end
  return function(done, failed, host, seconds)
    local now = zel.clock()
    if drawn and now - drawn < pause and done < total then return end
    local text = line(done, failed, now, host, seconds)
    if width then
      text = (bar(done / total, math.min(WIDEST_BAR, width - #text - 4)) .. text):sub(1, width - 1)
      io.stderr:write(drawn and "\27[A\r\27[K" or "", text, "\n")
    elseif drawn then -- the first line would say nothing
      io.stderr:write("  ", text, "\n")
    end
    drawn = now
  end
end

--- A status routine that shows how transfers go: `CALLBACK_FUNCTION = require "zel.progress"`.
--
-- It writes to standard error. On a terminal a transfer that takes a while gets one line with a bar, bytes, speed
-- and time left, and of the status texts only errors and warnings appear. Elsewhere every status text is a line,
-- and a transfer adds at most a line a second. It always answers 1, so that the transfer goes on; a routine of your
-- own may call it with what it was given itself and answer 0 to cancel.
--
-- The cursor rests below what was drawn, so that whatever ends a transfer (an error, Ctrl-C) starts on a new line.

local duration = require "zel.duration"
local printable = require "zel.terminal".printable

local FIRST_DRAW = 0.5      -- seconds: what ends earlier is not worth a line
local TERMINAL_PAUSE = 0.1  -- seconds between two drawings
local PLAIN_PAUSE = 1
local SPEED_MEMORY = 3      -- seconds: how far back the speed is averaged, the weight falling to 1/e
local WIDEST = 79
local FIGURES = 52          -- columns beside the bar

local transfer -- the one that is running

local function bytes(n)
  local units, i = {"B", "kB", "MB", "GB", "TB"}, 1
  while n >= 999.5 and i < #units do n, i = n / 1000, i + 1 end
  return (i == 1 or n >= 99.95) and ("%.0f %s"):format(n, units[i]) or ("%.1f %s"):format(n, units[i])
end

local function columns()
  local width = os.getenv("TERM") ~= "dumb" and zel.columns(io.stderr)
  return width and math.min(width - 1, WIDEST)
end

local function start(time, drawn)
  return {began = time, counted = time, drawn = drawn, total = 0, now = 0, bytes = 0, seconds = 0}
end

-- Adds new figures; older ones count less and less in the speed.
local function count(t, time, total, now)
  local seconds = time - t.counted
  local kept = math.exp(-seconds / SPEED_MEMORY)
  t.bytes, t.seconds = t.bytes * kept + now - t.now, t.seconds * kept + seconds
  t.counted, t.total, t.now = time, total, now
end

local function figures(t, ended)
  if ended then
    local seconds = t.counted - t.began
    return ("%s in %s (%s/s)"):format(bytes(t.now), duration(seconds), bytes(t.now / seconds))
  end
  if t.now == 0 then return "waiting " .. duration(t.counted - t.began) end
  local speed = t.seconds > 0 and t.bytes / t.seconds or 0
  if t.total <= 0 then return ("%s  %s/s"):format(bytes(t.now), bytes(speed)) end
  local left = speed > 0 and duration((t.total - t.now) / speed) or "-:--"
  local percent = 100 * t.now / t.total
  return ("%3.0f %%  %s of %s  %s/s  %s left"):format(percent, bytes(t.now), bytes(t.total), bytes(speed), left)
end

-- Filled as far as bytes have come; for an unknown total, a mark that moves to and fro while they come.
local function bar(t, width)
  if t.total > 0 then
    local full = math.floor(width * math.min(1, t.now / t.total))
    return "[" .. ("#"):rep(full) .. ("."):rep(width - full) .. "]"
  end
  local mark = math.min(3, width)
  local way = width - mark
  local place = t.now == 0 and 0 or way - math.abs(math.floor(t.counted * 10) % (2 * way + 1) - way)
  return "[" .. ("."):rep(place) .. ("#"):rep(mark) .. ("."):rep(way - place) .. "]"
end

local function draw(t, ended)
  local width, text = columns(), figures(t, ended)
  if not width then
    io.stderr:write("  ", text, "\n")
  else
    local room = width - FIGURES
    if room >= 5 and (not ended or t.now == t.total) then text = bar(t, room) .. " " .. text end
    io.stderr:write(t.drawn and "\27[A\r\27[K" or "", text:sub(1, width), "\n")
  end
  t.drawn = t.counted
end

-- Nothing reports the end of a transfer that broke off: the next request finds it, and does not draw it again, since
-- other lines may be below its bar.
local function finish(text)
  local t = transfer
  transfer = nil
  if t and t.drawn and t.now > 0 and columns() and not text:find("^Sending ") then draw(t, true) end
end

return function(text, progress)
  local valid, total, now, up_total, up_now = table.unpack(progress)
  if valid == 0 then
    finish(text)
    if not columns() or text:find("^Error") or text:find("^Warning") then
      io.stderr:write("  ", printable(text), "\n")
    end
    return 1
  end
  if up_now > now then total, now = up_total, up_now end
  local time = zel.clock()
  if not transfer or now < transfer.now then -- fewer: a new answer, as after a redirect
    transfer = start(time, transfer and transfer.drawn)
  end
  count(transfer, time, total, now)
  local due = transfer.drawn and transfer.drawn + (columns() and TERMINAL_PAUSE or PLAIN_PAUSE)
  if time >= (due or transfer.began + FIRST_DRAW) then draw(transfer) end
  return 1
end

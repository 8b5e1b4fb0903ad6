--- The time of day as it is stored: UTC to the millisecond, each one later than the one before.

local FORMAT = "!%Y-%m-%dT%H:%M:%S"

local clock = {}

--- Seconds since 1970 as text.
function clock.text(seconds)
  local whole = seconds // 1
  return os.date(FORMAT, math.tointeger(whole)) .. (".%03dZ"):format(math.floor((seconds - whole) * 1000))
end

--- Seconds that zel.clock() is behind the time of day, alike for all processes on this machine.
function clock.offset(database)
  return database:value("SELECT (julianday('now') - 2440587.5) * 86400.0") - zel.clock()
end

--- A function that tells the time.
function clock.new(offset)
  local last = 0
  return function()
    last = math.max(last + 0.001, offset + zel.clock())
    return clock.text(last)
  end
end

return clock

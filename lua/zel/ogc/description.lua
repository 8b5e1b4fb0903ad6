--- The description of a coverage as a table: c:describe(name).
--
-- name, title, abstract          texts
-- box                            in degrees
-- envelopes                      {crs, box}: the domain in its own systems
-- grids                          {crs, size {columns, rows}, low, high, axes (names), origin, offsets (one list
--                                for each axis), rectified}
-- times                          positions and periods ("begin/end/resolution") as texts
-- axes                           of the values: {name, title, values, intervals {min, max, step}, default}
-- range                          {name, title, abstract, null (values), null_intervals}
-- systems                        names of the systems to ask for; native_systems
-- formats, native_format, interpolations, native_interpolation
-- record                         the raw structure

local records = require "zel.ogc.records"

-- Servers name degrees as the standard's lonLatEnvelope does.
local function system(name) return name:find("WGS84(DD)", 1, true) and "CRS:84" or records.text(name) end

local function envelope(entry)
  local low, high = records.numbers(entry.POS1), records.numbers(entry.POS2)
  return {crs = system(entry.SRS_NAME), box = high[2] and {low[1], low[2], high[1], high[2]} or nil}
end

local function grid(entry)
  local low, high = records.numbers(entry.LIMITS_ENV_LOW), records.numbers(entry.LIMITS_ENV_HIGH)
  local size = {}
  for i in ipairs(low) do size[i] = high[i] - low[i] + 1 end
  return {crs = records.text(entry.SRS_NAME), size = size, low = low, high = high,
          axes = records.list(entry.AXIS_NAMES), origin = records.numbers(entry.ORIGIN_POS),
          offsets = records.map(entry.OFFSET_VECTORS, nil, records.numbers), rectified = entry.RECTIFIED == "Yes"}
end

local function interval(entry)
  return {min = records.number(entry.MIN), max = records.number(entry.MAX), step = records.number(entry.RES)}
end

local function axis(entry)
  return {name = entry.NAME, title = records.text(entry.LABEL), values = records.list(entry.SINGLE_VALUE),
          intervals = records.map(entry.INTERVAL, entry.NUM_INTERVALS, interval), default = records.text(entry.DEFAULT)}
end

local function times(record)
  local found = {}
  for _, entry in ipairs(records.list(record.TEMP_TM_POSITION, record.NUM_TEMP_TM_POSITIONS)) do
    found[#found + 1] = entry.POSITION
  end
  for _, entry in ipairs(records.list(record.TEMP_TM_PERIOD, record.NUM_TEMP_TM_PERIODS)) do
    local step = entry.RESOLUTION ~= "" and "/" .. entry.RESOLUTION or ""
    found[#found + 1] = entry._BEGIN .. "/" .. entry._END .. step
  end
  return found
end

local function range(entry)
  return {name = records.text(entry.NAME), title = records.text(entry.LABEL), abstract = records.text(entry.DESC),
          null = records.map(entry.NULL_SINGLE_VALUES, nil, function(text) return tonumber(text) or text end),
          null_intervals = records.map(entry.NULL_INTERVAL, entry.NUM_NULL_INTERVALS, interval)}
end

-- Lists of names, in one entry or several, each name once.
local function names(...)
  local found, seen = {}, {}
  for _, list in ipairs{...} do
    for _, text in ipairs(records.list(list)) do
      for name in text:gmatch("%S+") do
        if not seen[name] then found[#found + 1] = name end
        seen[name] = true
      end
    end
  end
  return found
end

return function(record)
  return {
    record = record, name = record.CO_NAME, title = records.text(record.CO_LABEL),
    abstract = records.text(record.CO_DESC), box = envelope(record.LONLATENV).box,
    envelopes = records.map(record.SPAT_DOM_LONLATENV, record.NUM_SPAT_DOM_LLES, envelope),
    grids = records.map(record.SPAT_DOM_GRID, record.NUM_SPAT_DOM_GRIDS, grid), times = times(record),
    axes = records.map(record.RANGE_AXIS, record.NUM_RANGE_AXES, axis), range = range(record.RANGE),
    systems = names(record.CRS.REQUEST_RESPONSE, record.CRS.REQUEST), native_systems = names(record.CRS.NATIVE),
    formats = records.list(record.FORMATS), native_format = records.text(record.NATIVE_FORMAT),
    interpolations = records.list(record.INTERPOLATION_METHOD),
    native_interpolation = records.text(record.NATIVE_INTERPOLATION),
  }
end

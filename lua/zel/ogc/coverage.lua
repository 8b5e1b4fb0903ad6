--- c:get{...} fetches a coverage.
--
--   name         the coverage; the only argument that must be there
--   crs          "EPSG:32632", or a number of EPSG's; the coverage's own without it
--   bbox         {west, south, east, north} in the system; the whole coverage without it
--   bbox_crs     the system of bbox, when it is not crs: what is fetched is the box around it
--   width, height  cells; a missing one by the shape of the box. Or:
--   resx, resy   size of a cell in units of the system; the same in both without resy. The coverage's own resolution
--                without all four
--   format       "GeoTIFF"; a GeoTIFF where it is offered
--   to           the file to write; its extension chooses the format. Without it the user's store
--   time         a time or a list; needed where the coverage has several
--   interpolation  "nearest neighbor", "bilinear", ...
--   ranges       values of the axes: {bands = {1, 3}}, {depth = {min = 0, max = 50}}
--   extra        further parameters of this server
--
-- Returns {file, size = {width, height}, box, crs, format}. A picture gets a world file and a .aux.xml beside it.

local arguments = require "zel.ogc.arguments"
local boxes = require "zel.ogc.boxes"
local choice = require "zel.ogc.choice"
local crs = require "zel.ogc.crs"
local errors = require "zel.ogc.errors"
local fetch = require "zel.ogc.fetch"
local files = require "zel.ogc.files"
local georeference = require "zel.ogc.georeference"
local query = require "zel.ogc.query"

local MOST_CELLS = 100 * 1000 * 1000 -- that are fetched unless a size is given
local USUAL = 1024                   -- cells of the longer side, for a system that the coverage has no grid in

local TYPES = {
  name = "string", crs = "string|number", bbox = "table", bbox_crs = "string|number", width = "number",
  height = "number", resx = "number", resy = "number", format = "string", to = "string",
  time = "string|table", interpolation = "string", ranges = "table", extra = "table",
}

-- Words that names of formats contain, by extensions and names that people use.
local FORMAT_WORDS = {tif = "tif", tiff = "tif", geotiff = "tif", nc = "netcdf", netcdf = "netcdf", png = "png",
                      jpg = "jp", jpeg = "jp", gif = "gif", hdf = "hdf", img = "img"}

local function system_of(d, given)
  if not given then
    local own = d.envelopes[1] and d.envelopes[1].crs
    return own and (#d.systems == 0 or arguments.find(d.systems, own)) and own or d.native_systems[1] or d.systems[1]
      or own or "EPSG:4326"
  end
  local name = crs.name(given)
  if #d.systems > 0 and not arguments.find(d.systems, name) then
    errors.unknown("reference system", name, d.systems, "for coverage " .. d.name)
  end
  return arguments.find(d.systems, name) or name
end

-- The coverage's own box in the system: as described, or from degrees.
local function own_box(d, system)
  for _, envelope in ipairs(d.envelopes) do
    if envelope.box and envelope.crs and envelope.crs:lower() == system:lower() then return envelope.box end
  end
  return d.box and crs.from_degrees(d.box, system)
end

local function box_of(d, o, system)
  local box = choice.box(o.bbox, o.bbox_crs, system, function() return own_box(d, system) end)
  if not box or not boxes.valid(box) then
    errors.raise(("coverage %s has no box in %s: say which with bbox"):format(d.name, system))
  end
  return box
end

local function whole(number) return math.max(1, math.floor(number + 0.5)) end

-- Columns and rows of the box at the coverage's own resolution, when its grid is in the system.
local function own_size(d, box, system)
  local grid = d.grids[1]
  local envelope = own_box(d, system)
  if not grid or #grid.size < 2 or not envelope or (grid.crs and grid.crs:lower() ~= system:lower()) then
    local longer = math.max(box[3] - box[1], box[4] - box[2])
    return whole(USUAL * (box[3] - box[1]) / longer), whole(USUAL * (box[4] - box[2]) / longer)
  end
  local width = whole(grid.size[1] * (box[3] - box[1]) / (envelope[3] - envelope[1]))
  local height = whole(grid.size[2] * (box[4] - box[2]) / (envelope[4] - envelope[2]))
  if width * height > MOST_CELLS then
    errors.raise(("at its own resolution that is %d x %d cells: say how many with width, or how large with resx")
      :format(width, height))
  end
  return width, height
end

-- The parameters of size, and the size they give.
local function size_of(d, o, box, system)
  local width, height = arguments.check_count("width", o.width), arguments.check_count("height", o.height)
  local resx, resy = o.resx, o.resy or o.resx
  if resx or resy then
    resx = resx or resy
    if width or height then errors.raise("give either width and height or resx and resy") end
    if not (resx > 0 and resy > 0) then errors.raise("resx and resy must be more than 0") end
    return {{"RESX", query.number(resx)}, {"RESY", query.number(resy)}},
      {whole((box[3] - box[1]) / resx), whole((box[4] - box[2]) / resy)}
  end
  local shape = (box[4] - box[2]) / (box[3] - box[1])
  if not width and not height then width, height = own_size(d, box, system) end
  width, height = width or whole(height / shape), height or whole(width * shape)
  return {{"WIDTH", width}, {"HEIGHT", height}}, {width, height}
end

local function format_of(d, given, extension)
  local exact = given and arguments.find(d.formats, given)
  if exact then return exact end
  local word = FORMAT_WORDS[(given or extension or "tif"):lower()]
  for _, format in ipairs(word and d.formats or {}) do
    if format:lower():find(word, 1, true) then return format end
  end
  if (given or extension) and #d.formats > 0 then errors.unknown("format", given or extension, d.formats) end
  return given or d.native_format or d.formats[1] or "GeoTIFF"
end

local function range_text(name, value)
  if type(value) ~= "table" then return tostring(value) end
  if value.min and value.max then return value.min .. "/" .. value.max .. (value.step and "/" .. value.step or "") end
  if value.min or value.max or #value == 0 then
    errors.raise("the range of " .. name .. " must be a value, a list of values, or {min = ..., max = ...} with both")
  end
  return table.concat(value, ",")
end

local function range_parameters(d, ranges)
  local names, parameters = {}, {}
  for i, axis in ipairs(d.axes) do names[i] = axis.name end
  for name, value in pairs(ranges or {}) do
    local found = arguments.find(names, tostring(name))
    if not found then errors.unknown("axis", tostring(name), names, "of coverage " .. d.name) end
    parameters[#parameters + 1] = {found, range_text(found, value)}
  end
  return parameters
end

local function time_of(d, time)
  if time and #d.times == 0 then errors.raise("coverage " .. d.name .. " has no times") end
  if not time and #d.times > 1 then
    errors.raise(("coverage %s has several times, say which: %s"):format(d.name, table.concat(d.times, ", ")))
  end
  return table.concat(arguments.list(time or d.times[1]), ",")
end

local function interpolation_of(d, given)
  if not given then return nil end
  local found = arguments.find(d.interpolations, given)
  if not found and #d.interpolations > 0 then errors.unknown("interpolation", given, d.interpolations) end
  return found or given
end

return function(c, o)
  arguments.check("get", o, TYPES)
  if not o.name then errors.raise("get wants the name of a coverage") end
  local d = c:describe(o.name)
  local system = system_of(d, o.crs)
  local box = box_of(d, o, system)
  local format = format_of(d, o.format, o.to and files.extension(o.to))
  if o.to then files.check_directory(o.to) end
  local parameters, size = size_of(d, o, box, system)
  local time = time_of(d, o.time)
  table.insert(parameters, 1, {"BBOX", query.box(box)})
  table.insert(parameters, 1, {"CRS", system})
  table.insert(parameters, 1, {"COVERAGE", d.name})
  for _, parameter in ipairs{{"FORMAT", format}, {"TIME", time ~= "" and time or nil},
                             {"INTERPOLATION", interpolation_of(d, o.interpolation)},
                             table.unpack(range_parameters(d, o.ranges))} do
    table.insert(parameters, parameter)
  end
  for name, value in pairs(o.extra or {}) do table.insert(parameters, {name, value}) end
  local file = fetch(c, "GetCoverage", "COVERAGE_FILENAME", query.join(parameters, c.object), o.to, function(path)
    local extension = files.extension(path)
    if extension == "png" or extension == "jpg" or extension == "jpeg" or extension == "gif" then
      georeference.write(path, box, size[1], size[2], system)
    end
  end)
  return {file = file, size = size, box = box, crs = system, format = format}
end

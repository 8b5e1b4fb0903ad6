--- The command zel-ogc: require("zel.ogc.command")(arguments) runs it and ends the process.
--
-- Results go to standard output, everything else to standard error. Status 0 when all went well, 1 after a failure,
-- 2 for a wrong command line, 130 after Ctrl-C.

local errors = require "zel.ogc.errors"
local read_options = require "zel.ogc.command.options"

local FAILED, BAD_USAGE, INTERRUPTED = 1, 2, 130

local function exit(status, message)
  if message then io.stderr:write("zel-ogc: ", message, "\n") end
  os.exit(status, true)
end

local function is_file(name)
  local file = io.open(name)
  return file and file:close()
end

-- A word that cannot be meant as a URL is a wrong command line.
local function check_url(o)
  local host = o.url:match("^[Hh][Tt][Tt][Pp][Ss]?://(.+)$")
  if host and host:find("^[^/?]*:[^/?]*@") then
    exit(BAD_USAGE, "a password in the URL is seen by everyone on this machine: use --user")
  end
  if not host and not (o.command == "info" and is_file(o.url)) then
    exit(BAD_USAGE, ('"%s" is no URL: it should begin with http:// or https://'):format(o.url))
  end
end

-- Prints what status routines are told, the trace included.
local function print_status(text, progress)
  if progress[1] == 0 then io.stderr:write("  ", (text:gsub("%c", " ")), "\n") end
end

local function service_options(o)
  local password = o.user and require "zel.ogc.command.credentials"(o.user, o.password_file)
  return {user = o.user, password = password, proxy = o.proxy, ca = o.ca, timeout = o.timeout, retries = o.retries,
          verbose = o.verbose, quiet = o.quiet, status = o.verbose and print_status or nil}
end

local function wms(o)
  local options = service_options(o)
  options.version = o.wms
  return require "zel.ogc".wms(o.url, options)
end

local function wcs(o) return require "zel.ogc".wcs(o.url, service_options(o)) end

-- The pairs of a repeated NAME=VALUE as a table.
local function named(pairs_given)
  local table_of = {}
  for _, entry in ipairs(pairs_given or {}) do table_of[entry[1]] = entry[2] end
  return next(table_of) and table_of or nil
end

-- The file when none is given: in the working directory, named after what it shows.
local function usual_file(name) return (name:gsub("[^%w%-_.\x80-\xFF]+", "-")) end

local function describe(result, o)
  for _, note in ipairs(result.notes or {}) do
    if not o.quiet then io.stderr:write("zel-ogc: ", note, "\n") end
  end
  if not o.quiet then
    local edges = {}
    for i, edge in ipairs(result.box) do edges[i] = ("%.10g"):format(edge) end
    local width, height = table.unpack(result.size)
    io.stderr:write(("%d x %d, %s in %s\n"):format(width, height, table.concat(edges, " "), result.crs))
  end
  print(result.file)
end

local commands = {}

function commands.info(o)
  local s <close> = (o.wcs and wcs or wms)(o)
  local listing, details = require "zel.ogc.command.listing", nil
  for i, name in ipairs(o.names) do
    details = details or {}
    local known = s.layers and s.layer or s.coverage
    if s.layers and not known[name] then require "zel.ogc.choice".layers(s, "info", name) end
    details[i] = s.layers and known[name] or s:describe(name)
  end
  if o.geojson then return listing.geojson(s, details) end
  if o.json then return listing.json(s, details) end
  if details then return listing.details(details, s) end
  listing.text(s)
end

function commands.map(o)
  local s <close> = wms(o)
  describe(s:map{layers = o.layers, styles = o.style, crs = o.crs, bbox = o.bbox, bbox_crs = o.bbox_crs,
                 width = o.size and o.size[1], height = o.size and o.size[2], tile = o.tile, format = o.format,
                 transparent = o.transparent, bgcolor = o.bgcolor, time = o.time, elevation = o.elevation,
                 dimensions = named(o.dimension), extra = named(o.extra), to = o.to or usual_file(o.layers[1])}, o)
end

function commands.feature(o)
  local s <close> = wms(o)
  local text = s:info{layers = o.layer, lon = o.lon, lat = o.lat, format = o.format, count = o.count, time = o.time}
  if zel.columns(io.stdout) then text = require "zel.ogc.printable"(text, "\t\n") end
  io.write(text, text:sub(-1) == "\n" and "" or "\n")
end

function commands.coverage(o)
  local c <close> = wcs(o)
  describe(c:get{name = o.name, crs = o.crs, bbox = o.bbox, bbox_crs = o.bbox_crs, width = o.size and o.size[1],
                 height = o.size and o.size[2], resx = o.res, format = o.format, time = o.time,
                 interpolation = o.interpolation, extra = named(o.extra), to = o.to or usual_file(o.name)}, o)
end

function commands.catalogue(o)
  local options = service_options(o)
  options.version = o.wms
  local result = require "zel.catalogue".write{url = o.url, to = o.to, jobs = o.jobs, pictures = o.pictures,
                                               quiet = o.quiet, properties = options}
  if not o.quiet then io.stderr:write(("%d layers, %d pictures\n"):format(result.layers, result.pictures)) end
  print(o.to)
  if result.stopped then exit(INTERRUPTED, "interrupted: the page has the pictures that came") end
end

function commands.harvest(o)
  local options = service_options(o)
  options.version, options.quiet = o.wms, not o.verbose
  require "zel.ogc.command.harvest"(o, options)
end

function commands.merge(o)
  require "zel.harvest.merge"(o.database, o.databases, function(path, taken, total)
    if not o.quiet then io.stderr:write(("%s: %d services read, %d new or newer\n"):format(path, total, taken)) end
  end)
end

function commands.search(o) require "zel.ogc.command.findings"(o) end

-- What went wrong as one line.
local function one_line(why)
  local text = errors.is(why) and why.message or tostring(why):gsub("^[^\n]-:%d+: ", "")
  return (text:gsub("%s*\n%s*", " "))
end

return function(words)
  local o, wrong = read_options.parse(words)
  if not o then exit(BAD_USAGE, wrong) end
  if o.url then check_url(o) end
  local done, why = pcall(commands[o.command], o)
  if done then exit(0) end
  if tostring(why):find("interrupted!", 1, true) or tostring(why):find("Cancel request detected", 1, true) then
    exit(INTERRUPTED, "interrupted" .. (o.command == "harvest" and ": the same command continues the harvest" or ""))
  end
  exit(FAILED, one_line(why))
end

--- The command line of zel-ogc.

local argparse = require "argparse"

local COMMANDS = {info = true, map = true, feature = true, coverage = true, catalogue = true,
                  harvest = true, search = true, merge = true}

local function positive(text)
  local number = tonumber(text)
  if number and number > 0 then return number end
  return nil, ("'%s' is not a number above 0"):format(text)
end

local function whole(text)
  local number = math.tointeger(tonumber(text))
  if number and number >= 0 then return number end
  return nil, ("'%s' is not a whole number from 0 on"):format(text:match("%S+") or "")
end

local function number(text)
  local value = tonumber(text)
  if value then return value end
  return nil, ("'%s' is not a number"):format(text:match("%S+") or "")
end

local function not_negative(text)
  local value = tonumber(text)
  if value and value >= 0 and value < math.huge then return value end
  return nil, ("'%s' is not a number from 0 on"):format(text:match("%S+") or "")
end

local KINDS = {wms = "WMS", wcs = "WCS"}

local function kind(text)
  return KINDS[text:lower()], ("'%s' is no kind of service: wms and wcs are known"):format(text)
end

-- I/N: the Ith of N parts.
local function part(text)
  local number_of, parts = text:match("^(%d+)/(%d+)$")
  number_of, parts = math.tointeger(number_of), math.tointeger(parts)
  if number_of and number_of >= 1 and number_of <= parts then return {number_of, parts} end
  return nil, ("'%s' is no part like 3/8, the third of eight"):format(text)
end

-- WIDTHxHEIGHT, or the width alone.
local function size(text)
  local width, height = text:match("^(%d+)x?(%d*)$")
  if width then return {math.tointeger(width), math.tointeger(height)} end
  return nil, ("'%s' is no size like 800 or 800x600"):format(text)
end

local function pair(text)
  local name, value = text:match("^([^=]+)=(.*)$")
  if name then return {name, value} end
  return nil, ("'%s' is not like NAME=VALUE"):format(text)
end

local function add_box(command)
  command:option("--bbox", "The box to show, x before y whatever the system."):args(4):argname{"W", "S", "E N"}
    :convert(number)
  command:option("--crs", "Reference system: EPSG:3857"):argname("SYSTEM")
  command:option("--bbox-crs", "Reference system of the box, when it is another."):argname("SYSTEM")
  command:option("--format", "Format of the file."):argname("FORMAT")
  command:option("--time", "Time, as the service writes it."):argname("TIME")
  command:option("--to", "The file to write, named after the layer without it; its extension chooses the format.")
    :argname("FILE")
  command:option("--extra", "A further parameter of this server."):argname("NAME=VALUE"):convert(pair):count("*")
end

-- Options of the requests; they may stand before and after the command's own.
local function add_common(command, retries)
  command:option("--user", "User; the password is asked for, or comes from ZEL_OGC_PASSWORD."):argname("NAME")
  command:option("--password-file", "File whose first line is the password."):argname("FILE")
  command:option("--proxy", "Proxy: http://host:port"):argname("URL")
  command:option("--ca", "Certificates of the authorities to trust."):argname("FILE")
  command:option("--timeout", "Seconds for a transfer."):argname("SECONDS"):convert(positive)
  command:option("--retries", ("Tries after a failure that may pass; %d without it."):format(retries or 3))
    :argname("COUNT"):convert(whole)
  command:option("--wms", "Version of the Web Map Service: 1.1.1"):argname("VERSION")
  command:flag("--verbose", "Trace the transfers.")
  command:flag("--quiet", "Print results and errors only.")
end

local function add_commands(parser)
  local info = parser:command("info", "List what a service offers, or all about some layers or coverages.")
  info:argument("url", "URL of the service, or a file with its capabilities."):argname("URL")
  info:argument("names", "Layers or coverages."):args("*"):argname("NAME")
  info:flag("--wcs", "Ask for coverages.")
  info:mutex(info:flag("--json", "Print JSON."), info:flag("--geojson", "Print the footprints as GeoJSON."))

  local map = parser:command("map", "Fetch a map, placed on the Earth by files beside it.")
  map:argument("url", "URL of the service."):argname("URL")
  map:argument("layers", "Layers, the lowest first."):args("+"):argname("LAYER")
  add_box(map)
  map:option("--size", "Pixels."):argname("W[xH]"):convert(size)
  map:option("--tile", "Fetch tiles of at most so many pixels, joined by a .vrt."):argname("PIXELS"):convert(positive)
  map:option("--style", "Style of a layer; again for the next layer."):argname("NAME"):count("*")
  map:option("--elevation", "Elevation."):argname("VALUE")
  map:option("--dimension", "Value of a further dimension."):argname("NAME=VALUE"):convert(pair):count("*")
  map:option("--bgcolor", "Colour of the background: #ff8000"):argname("COLOUR")
  map:flag("--transparent", "Leave the background out.")

  local feature = parser:command("feature", "Ask what is at a place.")
  feature:argument("url", "URL of the service."):argname("URL")
  feature:argument("layer", "Layer."):argname("LAYER")
  feature:argument("lon", "Degrees east."):argname("LON"):convert(number)
  feature:argument("lat", "Degrees north."):argname("LAT"):convert(number)
  feature:option("--format", "Format of the answer."):argname("FORMAT")
  feature:option("--count", "Features at most; 10 without it."):argname("COUNT"):convert(positive)
  feature:option("--time", "Time, as the service writes it."):argname("TIME")

  local coverage = parser:command("coverage", "Fetch a coverage, the numbers themselves.")
  coverage:argument("url", "URL of the service."):argname("URL")
  coverage:argument("name", "Coverage."):argname("NAME")
  add_box(coverage)
  coverage:option("--res", "Size of a cell in units of the system."):argname("SIZE"):convert(positive)
  coverage:option("--size", "Cells."):argname("W[xH]"):convert(size)
  coverage:option("--interpolation", "How values between cells are made."):argname("METHOD")

  local catalogue = parser:command("catalogue", "Write a page with all layers and their pictures.")
  catalogue:argument("url", "URL of the service."):argname("URL")
  catalogue:argument("to", "The page to write."):argname("OUT.html")
  catalogue:option("--jobs", "Pictures that are fetched at once; 4 without it."):argname("COUNT"):convert(positive)
  catalogue:option("--pictures", "How many layers get a picture; all without it."):argname("COUNT"):convert(positive)

  local harvest = parser:command("harvest", "Read many services into a database.")
  harvest:argument("list", "File with a URL a line, \"-\" for standard input."):argname("LIST")
  harvest:argument("database", "SQLite database to make or to bring up to date."):argname("DATABASE")
  harvest:option("--older", "Ask only what was not read within so many days."):argname("DAYS"):convert(not_negative)
  harvest:option("--pause", "Seconds between two requests to a host."):argname("SECONDS"):convert(not_negative)
  harvest:option("--jobs", "Processes that ask; 1 without it."):argname("COUNT"):convert(positive)
  harvest:option("--shard", "Only the Ith of N parts, cut by hosts."):argname("I/N"):convert(part)

  for _, command in ipairs{info, map, feature, coverage, catalogue} do add_common(command) end
  add_common(harvest, 1)

  local merge = parser:command("merge", "Put databases of harvests together.")
  merge:argument("database", "Database to make or to bring up to date."):argname("DATABASE")
  merge:argument("databases", "Databases of harvests, such as those of shards."):args("+"):argname("SHARD.db")
  merge:flag("--quiet", "Print errors only.")

  local search = parser:command("search", "Find services, layers and coverages in a database.")
  search:argument("database", "Database of a harvest."):argname("DATABASE")
  search:argument("words", "Words of titles, names, keywords and abstracts."):args("*"):argname("WORD")
  search:option("--bbox", "Box in degrees that is to be touched."):args(4):argname{"W", "S", "E N"}:convert(number)
  search:option("--kind", "Only services of this kind: wms, wcs."):argname("KIND"):convert(kind)
  search:option("--limit", "Results at most; 20 without it."):argname("COUNT"):convert(positive)
  search:mutex(search:flag("--json", "Print JSON."), search:flag("--geojson", "Print the boxes as GeoJSON."))
end

local options = {}

function options.parser()
  local parser = argparse("zel-ogc", "Maps and coverages from Web Map and Web Coverage Services.")
  parser:command_target("command")
  parser:epilog("Each command explains itself: zel-ogc map --help")
  parser:flag("--version", "Print the version."):action(function()
    print("zel-ogc " .. zel.version)
    os.exit(0, true)
  end)
  parser:add_complete()
  add_commands(parser)
  return parser
end

-- Numbers below 0 would be taken for options, so they get a blank in front; W,S,E,N in one word become four.
local function prepared(words)
  local list = {}
  for i, word in ipairs(words) do
    if words[i - 1] == "--bbox" and word:find(",", 1, true) then
      for edge in word:gmatch("[^,]+") do list[#list + 1] = " " .. edge end
    else
      list[#list + 1] = word:find("^%-%.?%d") and " " .. word or word
    end
  end
  return list
end

--- The options of a command line; nil and what is wrong with it.
function options.parse(words)
  local well, result = options.parser():pparse(prepared(words))
  if well then return result end
  local command = COMMANDS[words[1]] and words[1] .. " " or ""
  return nil, result:gsub("%s*\n%s*", "; ") .. "\nzel-ogc " .. command .. "--help explains the usage"
end

return options

--- The command line of zel-ogc.

local argparse = require "zel.ogc.packaged" "argparse"
local longest_timeout = require "zel.ogc.options".LONGEST_TIMEOUT
local most_jobs = require "zel.most_jobs"

local COMMANDS = {info = true, map = true, feature = true, coverage = true, catalogue = true,
                  harvest = true, search = true, merge = true}

local function positive(text)
  local number = tonumber(text)
  if number and number > 0 then return number end
  return nil, ("'%s' is not a number above 0"):format(text)
end

local function seconds(text)
  local number, wrong = positive(text)
  if not number or number <= longest_timeout then return number, wrong end
  return nil, ("%s is more than %d, the most there can be"):format(text, longest_timeout)
end

local function whole(text, least, most)
  local number = math.tointeger(tonumber(text))
  if number and most and number > most then
    return nil, ("%d is more than %d, the most there can be"):format(number, most)
  end
  if number and number >= least then return number end
  return nil, ("'%s' is not a whole number from %d on"):format(text:match("%S+") or "", least)
end

local function whole_or_zero(text) return whole(text, 0) end
local function count(text) return whole(text, 1) end
local function jobs(most) return function(text) return whole(text, 1, most) end end

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
  return KINDS[text:lower()], ("'%s' is not a kind of service: give wms or wcs"):format(text)
end

-- I/N: the Ith of N parts.
local function part(text)
  local number_of, parts = text:match("^(%d+)/(%d+)$")
  number_of, parts = math.tointeger(number_of), math.tointeger(parts)
  if number_of and parts and number_of >= 1 and number_of <= parts then return {number_of, parts} end
  return nil, ("'%s' is not a part such as 3/8, the third of eight"):format(text)
end

-- WIDTHxHEIGHT, or the width alone.
local function size(text)
  local width, high = text:match("^(%d+)x?(%d*)$")
  local height = math.tointeger(high)
  width = math.tointeger(width)
  if width and width > 0 and (high == "" or height and height > 0) then return {width, height} end
  return nil, ("'%s' is not a size such as 800 or 800x600"):format(text)
end

local function pair(text)
  local name, value = text:match("^([^=]+)=(.*)$")
  if name then return {name, value} end
  return nil, ("'%s' is not of the form NAME=VALUE"):format(text)
end

local function add_box(command)
  command:option("--bbox", "Box, x before y in every system."):args(4):argname{"W", "S", "E N"}
    :convert(number)
  command:option("--crs", "Reference system, such as EPSG:3857."):argname("SYSTEM")
  command:option("--bbox-crs", "Reference system of the box, if it is another."):argname("SYSTEM")
  command:option("--format", "Format of the file."):argname("FORMAT")
  command:option("--time", "Time, as the service writes it."):argname("TIME")
  command:option("--to", "File to write; its extension chooses the format (default: the layer's or coverage's name).")
    :argname("FILE")
  command:option("--extra", "Another parameter that this server knows."):argname("NAME=VALUE"):convert(pair):count("*")
end

-- Options of requests. `retries` says how many there are without the option.
local function add_common(command, retries)
  command:option("--user", "User; the password comes from ZEL_OGC_PASSWORD or is asked for."):argname("NAME")
  command:option("--password-file", "File whose first line is the password."):argname("FILE")
  command:option("--proxy", "Proxy: http://host:port"):argname("URL")
  command:option("--ca", "Certificates of the authorities to trust."):argname("FILE")
  command:option("--timeout", "Longest time for one transfer."):argname("SECONDS"):convert(seconds)
  command:option("--retries", ("How often to try again after a failure that may pass (default %s)."):format(retries))
    :argname("COUNT"):convert(whole_or_zero)
  command:flag("--verbose", "Trace the transfers.")
  command:flag("--quiet", "Print results and errors only.")
end

local function add_commands(parser)
  local info = parser:command("info", "List what a service offers, or describe some layers or coverages.")
  info:argument("url", "URL of the service, or a file with its capabilities."):argname("URL")
  info:argument("names", "Layers or coverages."):args("*"):argname("NAME")
  info:flag("--wcs", "List coverages instead of layers.")
  info:mutex(info:flag("--json", "Print JSON."), info:flag("--geojson", "Print the footprints as GeoJSON."))

  local map = parser:command("map", "Fetch a map, georeferenced by files beside it.")
  map:argument("url", "URL of the service."):argname("URL")
  map:argument("layers", "Layers, from bottom to top."):args("+"):argname("LAYER")
  add_box(map)
  map:option("--size", "Size in pixels."):argname("W[xH]"):convert(size)
  map:option("--tile", "Fetch tiles of at most this many pixels a side, joined by a .vrt.")
    :argname("PIXELS"):convert(count)
  map:option("--style", "Style of a layer; repeat for the next layer."):argname("NAME"):count("*")
  map:option("--elevation", "Elevation."):argname("VALUE")
  map:option("--dimension", "Value of another dimension."):argname("NAME=VALUE"):convert(pair):count("*")
  map:option("--bgcolor", "Background colour, such as #ff8000."):argname("COLOUR")
  map:flag("--transparent", "Make the background transparent.")

  local feature = parser:command("feature", "Ask what is at a place.")
  feature:argument("url", "URL of the service."):argname("URL")
  feature:argument("layer", "Layer."):argname("LAYER")
  feature:argument("lon", "Degrees east."):argname("LON"):convert(number)
  feature:argument("lat", "Degrees north."):argname("LAT"):convert(number)
  feature:option("--format", "Format of the answer."):argname("FORMAT")
  feature:option("--count", "Most features to return (default 10)."):argname("COUNT"):convert(count)
  feature:option("--time", "Time, as the service writes it."):argname("TIME")

  local coverage = parser:command("coverage", "Fetch a coverage: the values, not a picture of them.")
  coverage:argument("url", "URL of the service."):argname("URL")
  coverage:argument("name", "Coverage."):argname("NAME")
  add_box(coverage)
  coverage:option("--res", "Cell size in units of the reference system."):argname("SIZE"):convert(positive)
  coverage:option("--size", "Size in cells."):argname("W[xH]"):convert(size)
  coverage:option("--interpolation", "How to interpolate between cells."):argname("METHOD")

  local catalogue = parser:command("catalogue", "Write a web page with a picture of every layer.")
  catalogue:argument("url", "URL of the service."):argname("URL")
  catalogue:argument("to", "Page to write."):argname("OUT.html")
  catalogue:option("--jobs", "Pictures to fetch at a time (default 4)."):argname("COUNT")
    :convert(jobs(most_jobs.catalogue))
  catalogue:option("--pictures", "How many layers get a picture (default all)."):argname("COUNT"):convert(count)

  local harvest = parser:command("harvest", "Read what many services offer into a database.")
  harvest:argument("list", "File with one URL a line; \"-\" for standard input."):argname("LIST")
  harvest:argument("database", "SQLite database to create or update."):argname("DATABASE")
  harvest:option("--older", "Ask only services not read within this many days."):argname("DAYS"):convert(not_negative)
  harvest:option("--pause", "Pause between two requests to one host."):argname("SECONDS"):convert(not_negative)
  harvest:option("--jobs", "Processes to run (default 1)."):argname("COUNT"):convert(jobs(most_jobs.harvest))
  harvest:option("--shard", "Harvest only the Ith of N parts, divided by host."):argname("I/N"):convert(part)

  for _, command in ipairs{info, map, feature, coverage} do add_common(command, "3") end
  add_common(catalogue, "3, for pictures 1")
  add_common(harvest, "1")
  for _, command in ipairs{info, map, feature, catalogue, harvest} do
    command:option("--wms", "Version of the Web Map Service, such as 1.1.1."):argname("VERSION")
  end

  local merge = parser:command("merge", "Merge databases of harvests.")
  merge:argument("database", "Database to create or update."):argname("DATABASE")
  merge:argument("databases", "Databases of harvests, such as those of shards."):args("+"):argname("SHARD.db")
  merge:flag("--quiet", "Print errors only.")

  local search = parser:command("search", "Find services, layers and coverages in a database.")
  search:argument("database", "Database of a harvest."):argname("DATABASE")
  search:argument("words", "Words of titles, names, keywords and abstracts."):args("*"):argname("WORD")
  search:option("--bbox", "Box in degrees that results must touch."):args(4):argname{"W", "S", "E N"}:convert(number)
  search:option("--kind", "Only services of this kind: wms or wcs."):argname("KIND"):convert(kind)
  search:option("--limit", "Most results to print (default 20)."):argname("COUNT"):convert(count)
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

-- Numbers below 0 would be taken for options, so a blank is put before them; W,S,E,N in one word becomes four.
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

-- What is wrong with the options together.
local function fault(o)
  if o.command ~= "search" then return nil end
  if #o.words == 0 and not o.bbox then return "search wants words to look for, or --bbox" end
  if o.bbox and o.bbox[2] > o.bbox[4] then return "the box's south is beyond its north: --bbox takes W S E N" end
end

--- The options of a command line; nil and what is wrong with it.
function options.parse(words)
  local well, result = options.parser():pparse(prepared(words))
  if well and not fault(result) then return result end
  if well then result = fault(result) end
  local command = COMMANDS[words[1]] and words[1] .. " " or ""
  return nil, result:gsub("%s*\n%s*", "; ") .. "\nzel-ogc " .. command .. "--help explains the usage"
end

return options

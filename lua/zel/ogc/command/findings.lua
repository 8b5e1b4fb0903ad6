--- zel-ogc search: what was found, as lines, as JSON or as GeoJSON.

local json = require "zel.ogc.packaged" "dkjson"

local arguments = require "zel.ogc.arguments"
local database = require "zel.harvest.database"
local listing = require "zel.ogc.command.listing"
local printable = require "zel.ogc.printable"
local search = require "zel.harvest.search"
local thousands = require "zel.thousands"

local LIMIT = 20

local function line(item)
  local place = item.kind == "service" and "" or ", " .. item.kind .. " of " .. (item.service_title or "a service")
  return ("%s\n  %s\n  %s"):format(printable(listing.label(item) .. place), printable(item.url),
                                   listing.box_text(item.box))
end

local function properties(item)
  return {kind = item.kind, type = item.type, name = item.name, title = item.title, abstract = item.abstract,
          keywords = item.keywords, url = item.url, service = item.service_title, score = -item.score}
end

local function print_json(found)
  local list = setmetatable({}, {__jsontype = "array"})
  for i, item in ipairs(found) do
    list[i] = properties(item)
    list[i].box = item.box
  end
  print(json.encode(list, {indent = true}))
end

local function print_text(found)
  for _, item in ipairs(found) do print(line(item)) end
  if #found == 0 then io.stderr:write("zel-ogc: nothing was found\n") end
end

return function(o)
  local store <close> = database.open(o.database)
  local limit = arguments.check_count("limit", o.limit) or LIMIT
  local found, total = search(store, table.concat(o.words, " "), o.bbox, o.kind, limit)
  if o.geojson then listing.features(found, properties) elseif o.json then print_json(found) else print_text(found) end
  if total > #found then
    io.stdout:flush() -- what is read last says that there is more
    io.stderr:write(("zel-ogc: %s of %s; --limit shows more\n"):format(thousands(#found), thousands(total)))
  end
end

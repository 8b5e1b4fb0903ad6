--- zel-ogc search: what was found, as lines, as JSON or as GeoJSON.

local json = require "dkjson"

local arguments = require "zel.ogc.arguments"
local database = require "zel.harvest.database"
local listing = require "zel.ogc.command.listing"
local printable = require "zel.ogc.printable"
local search = require "zel.harvest.search"

local LIMIT = 20

local function line(item)
  local name = item.name and " [" .. item.name .. "]" or ""
  local place = item.kind == "service" and "" or ", " .. item.kind .. " of " .. (item.service_title or "a service")
  return ("%s%s%s\n  %s\n  %s"):format(printable(item.title or "(no title)"), printable(name), printable(place),
                                       printable(item.url), listing.box_text(item.box))
end

local function properties(item)
  return {kind = item.kind, type = item.type, name = item.name, title = item.title, abstract = item.abstract,
          keywords = item.keywords, url = item.url, service = item.service_title, score = -item.score}
end

return function(o)
  local store <close> = database.open(o.database)
  local limit = arguments.check_count("limit", o.limit) or LIMIT
  local found = search(store, table.concat(o.words, " "), o.bbox, o.kind, limit)
  if o.geojson then return listing.features(found, properties) end
  if o.json then
    local list = setmetatable({}, {__jsontype = "array"})
    for i, item in ipairs(found) do
      list[i] = properties(item)
      list[i].box = item.box
    end
    return print(json.encode(list, {indent = true}))
  end
  for _, item in ipairs(found) do print(line(item)) end
  if #found == 0 then io.stderr:write("zel-ogc: nothing was found\n") end
end

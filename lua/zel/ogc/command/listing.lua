--- What zel-ogc info prints: a service as lines, as JSON or as GeoJSON.

local json = require "zel.ogc.packaged" "dkjson"

local boxes = require "zel.ogc.boxes"
local printable = require "zel.ogc.printable"

local NO_TITLE = "(no title)"

local listing = {}

--- A box for people.
function listing.box_text(box)
  if not box then return "no box" end
  local edges = {}
  for i, edge in ipairs(box) do edges[i] = ("%g"):format(edge) end
  return table.concat(edges, " ")
end

local function items(s) return s.layers or s.coverages end

local function heading(s)
  local title = s.title or NO_TITLE
  return s.version and ("%s (WMS %s)"):format(title, s.version) or title .. " (WCS 1.0.0)"
end

--- Title and name.
function listing.label(item)
  local words = {item.title or not item.name and NO_TITLE or nil}
  words[#words + 1] = item.name and "[" .. item.name .. "]"
  return table.concat(words, " ")
end

local function line(item)
  local queryable = item.queryable and ", queryable" or ""
  return ("  "):rep(item.level or 1) .. listing.label(item) .. queryable .. ", " .. listing.box_text(item.box)
end

--- Prints a service, an item a line.
function listing.text(s)
  print(printable(heading(s)))
  for _, item in ipairs(items(s)) do print(printable(line(item))) end
end

local function array(list) return setmetatable(list, {__jsontype = "array"}) end
local function copied(list) return list and array(table.move(list, 1, #list, 1, {})) end

local function dimension(d) return {name = d.name, units = d.units, default = d.default, values = copied(d.values)} end

local function mapped(list, make)
  local made = {}
  for i, entry in ipairs(list or {}) do made[i] = make(entry) end
  return array(made)
end

local function layer(l)
  return {name = l.name, title = l.title, abstract = l.abstract, level = l.level, parent = l.parent and l.parent.name,
          keywords = copied(l.keywords), queryable = l.queryable, box = copied(l.box), crs = copied(l.crs),
          styles = l.styles and mapped(l.styles, function(style) return {name = style.name, title = style.title} end),
          dimensions = l.dimensions and mapped(l.dimensions, dimension),
          scale = l.scale and (l.scale.min or l.scale.max) and l.scale or nil}
end

-- A table that holds plain values and further such tables, as JSON.
local function plain(value)
  if type(value) ~= "table" then return value end
  if next(value) == nil or value[1] ~= nil then return mapped(value, plain) end
  local made = {}
  for name, entry in pairs(value) do
    if name ~= "record" then made[name] = plain(entry) end
  end
  return made
end

local ORDER = {"name", "title", "abstract", "version", "url", "type", "level", "parent", "box"}

local function write(value) print(json.encode(value, {indent = true, keyorder = ORDER})) end

local function service(s, list, make)
  local kind = s.layers and "layers" or "coverages"
  return {title = s.title, abstract = s.abstract, version = s.version or "1.0.0", url = s.url,
          type = s.layers and "WMS" or "WCS", formats = copied(s.formats), info_formats = copied(s.info_formats),
          max_width = s.max_width, max_height = s.max_height, [kind] = mapped(list, make)}
end

--- Prints a service as JSON, or all that is known about some of its layers or coverages.
function listing.json(s, details)
  if details then return write(service(s, details, s.layers and layer or plain)) end
  write(service(s, items(s), layer))
end

-- A ring around the box as GeoJSON wants it: counterclockwise, closed.
local function ring(b) return {{{b[1], b[2]}, {b[3], b[2]}, {b[3], b[4]}, {b[1], b[4]}, {b[1], b[2]}}} end

-- A box over the date line is cut there (RFC 7946, 3.1.9).
local function footprint(box)
  if not box then return json.null end
  local b = boxes.unrolled(box)
  if b[3] <= 180 then return {type = "Polygon", coordinates = ring(b)} end
  return {type = "MultiPolygon", coordinates = {ring{b[1], b[2], 180, b[4]}, ring{-180, b[2], b[3] - 360, b[4]}}}
end

--- Prints items with their boxes as GeoJSON; `properties(item)` are those of its feature.
function listing.features(found, properties)
  write{type = "FeatureCollection", features = mapped(found, function(item)
    return {type = "Feature", properties = properties(item), geometry = footprint(item.box)}
  end)}
end

--- Prints the boxes of the service's layers or coverages as GeoJSON.
function listing.geojson(s, list)
  listing.features(list or items(s), function(item)
    return {name = item.name, title = item.title, abstract = item.abstract}
  end)
end

local function is_plain_list(value)
  for _, entry in ipairs(value) do
    if type(entry) == "table" then return false end
  end
  return #value > 0
end

local function print_value(name, value, indent)
  if type(value) ~= "table" then
    print(indent .. printable(("%s: %s"):format(name, value)))
  elseif is_plain_list(value) then
    print(indent .. printable(name .. ": " .. table.concat(value, ", ")))
  elseif next(value) ~= nil then
    print(indent .. name .. ":")
    local names = {}
    for key in pairs(value) do names[#names + 1] = key end
    table.sort(names, function(a, b) return tostring(a) < tostring(b) end)
    for _, key in ipairs(names) do print_value(tostring(key), value[key], indent .. "  ") end
  end
end

--- Prints everything about layers or coverages.
function listing.details(details, s)
  for _, item in ipairs(details) do
    local shown = s.layers and layer(item) or plain(item)
    print(printable(line(item)):match("^%s*(.*)$"))
    for _, name in ipairs{"abstract", "keywords", "crs", "styles", "dimensions", "scale", "envelopes", "grids", "times",
                          "axes", "range", "systems", "formats", "interpolations"} do
      if shown[name] ~= nil then print_value(name, shown[name], "  ") end
    end
  end
end

return listing

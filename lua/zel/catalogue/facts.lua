--- Facts about a service and its layers: terms and their descriptions, as HTML.

local html = require "zel.catalogue.html"

local fill, each, escape = html.fill, html.each, html.escape

local FOLDED_FROM = 7     -- entries of a list; from there on it is folded
local MOST_KEYWORDS = 100

local facts = {}

-- A term and its description, as HTML; nothing without a description.
local function fact(term, text)
  return text == "" and "" or fill("<div><dt>{term}</dt><dd>{*text}</dd></div>\n", {term = term, text = text})
end

local function present(...)
  local found, given = {}, table.pack(...)
  for i = 1, given.n do
    local text = given[i]
    if text and text ~= "" then found[#found + 1] = text end
  end
  return table.concat(found, ", ")
end

local function words(term, ...) return fact(term, escape(present(...))) end

--- HTML that is folded under a line that names it.
function facts.folded(summary, text)
  return fill("<details><summary>{summary}</summary>{*text}</details>", {summary = summary, text = text})
end

-- Names to copy, folded when there are many.
local function codes(term, values, what)
  local text = each(values, "<code>{value}</code>")
  if #values >= FOLDED_FROM then text = facts.folded(html.number(#values) .. " " .. what, text) end
  return fact(term, text)
end

-- The links of a list tag; `tag` is the one with their names.
local function links(term, record, list, tag)
  local found = {}
  for i = 1, tonumber(record["NUM_" .. list]) or 0 do
    local entry = record[list][i]
    found[i] = html.link(entry.ONLINE, entry[tag])
  end
  return fact(term, table.concat(found, ", "))
end

--- A denominator to three digits, as "1:50,000".
function facts.scale_number(denominator)
  local unit = 10 ^ math.max(0, math.floor(math.log(denominator, 10)) - 2)
  return "1:" .. html.number(math.floor(denominator / unit + 0.5) * unit)
end

--- "1:50,000 to 1:500,000"; nil without limits.
function facts.scales(scale)
  if scale.min and scale.max then return facts.scale_number(scale.min) .. " to " .. facts.scale_number(scale.max) end
  if scale.min then return facts.scale_number(scale.min) .. " and smaller scales" end
  if scale.max then return facts.scale_number(scale.max) .. " and larger scales" end
end

-- "24° W" or "45.5° N"
local function degrees(number, positive, negative)
  if number > 180 then number = number - 360 end
  return (("%.4f"):format(math.abs(number)):gsub("%.?0+$", "")) .. "° " .. (number < 0 and negative or positive)
end

local function box_text(b)
  return ("%s to %s, %s to %s"):format(degrees(b[1], "E", "W"), degrees(b[3], "E", "W"), degrees(b[2], "N", "S"),
                                       degrees(b[4], "N", "S"))
end

local function boxes(layer)
  local rows = {}
  for _, own in ipairs(layer.bounding_boxes) do
    local box = own.box
    if box then rows[#rows + 1] = ("%s: %.10g, %.10g to %.10g, %.10g"):format(own.crs or "?", table.unpack(box)) end
  end
  local own = #rows == 0 and "" or facts.folded(#rows == 1 and "1 bounding box" or #rows .. " bounding boxes",
                                                     each(rows, "<div>{value}</div>", ""))
  return fact("Area", (layer.box and escape(box_text(layer.box)) or "") .. own)
end

-- The reference systems of a group as a set; services have thousands, and groups thousands of layers.
local sets = setmetatable({}, {__mode = "k"})
local function set_of_systems(group)
  local set = sets[group] or {}
  if not sets[group] then
    for _, name in ipairs(group.crs) do set[name] = true end
    sets[group] = set
  end
  return set
end

-- The reference systems that a layer has besides those of the group around it.
local function own_systems(layer)
  local known, own = layer.parent and set_of_systems(layer.parent) or {}, {}
  for _, name in ipairs(layer.crs) do
    if not known[name] then own[#own + 1] = name end
  end
  return own
end

local function dimension_text(one)
  local values = one.values
  local text = #values > 4 and ("%s … %s (%s values)"):format(values[1], values[#values], html.number(#values))
               or table.concat(values, ", ")
  local from, to, step = text:match("^([^/,]*)/([^/,]*)/([^/,]*)$")
  if from then text = ("%s to %s, every %s"):format(from, to, step) end
  return fill("<div><code>{name}</code> {rest}</div>", {name = one.name, rest = present(
    text, one.units and one.units ~= "ISO8601" and "in " .. one.units,
    one.default and one.default ~= text and one.default .. " unless asked otherwise")})
end

local function dimensions(layer)
  local found = {}
  for i, one in ipairs(layer.dimensions) do found[i] = dimension_text(one) end
  return fact("Dimensions", table.concat(found))
end

local function styles(layer)
  local found = {}
  for i, style in ipairs(layer.styles) do
    local named = style.title and style.title:lower() ~= style.name:lower()
    found[i] = "<code>" .. escape(style.name) .. "</code>" .. (named and " " .. escape(style.title) or "")
  end
  local text = table.concat(found, #found < FOLDED_FROM and "<br>" or ", ")
  return fact("Styles", #found >= FOLDED_FROM and facts.folded(#found .. " styles", text) or text)
end

--- What people call a layer.
function facts.title(layer) return layer.title or layer.name or "Layer without a name" end

--- Of a layer; a group's facts are not repeated for the layers in it.
function facts.layer(layer)
  local systems = own_systems(layer)
  local source = layer.record.ATTRIBUTION.ONLINE
  return table.concat {
    words("Keywords", table.unpack(layer.keywords, 1, math.min(#layer.keywords, MOST_KEYWORDS))), boxes(layer),
    words("Scales", facts.scales(layer.scale)), dimensions(layer), styles(layer),
    codes("Reference systems", systems, layer.parent and "besides those of the group" or "reference systems"),
    fact("Source", source ~= "" and html.link(source, layer.attribution) or escape(layer.attribution or "")),
    links("Metadata", layer.record, "METADATA_URL", "TYPE"), links("Data", layer.record, "DATA_URL", "FORMAT"),
  }
end

--- Of the service at a public address.
function facts.service(service, url)
  local s = setmetatable({}, {__index = function(_, tag) return service.record and service.record[tag] or "" end})
  return table.concat {
    fact("Address", html.link(url)), words("Keywords", table.unpack(s.KEYWORD, 1, tonumber(s.NUM_KEYWORD) or 0)),
    words("Contact", s.PERSON, s.POSITION, s.ORGANIZATION),
    words("Postal address", s.ADDRESS, s.POSTAL_CODE, s.CITY, s.STATE, s.COUNTRY),
    words("Telephone", s.VOICE), words("Fax", s.FAX), words("E-mail", s.EMAIL),
    words("Fees", s.FEES), words("Access constraints", s.ACCESS),
    fact("Website", s.ONLINE ~= "" and html.link(s.ONLINE) or ""),
    words("Layers in one map", s.LAYER_LIMIT),
    words("Largest map", s.MAX_WIDTH ~= "" and s.MAX_WIDTH .. " × " .. s.MAX_HEIGHT .. " pixels"),
    codes("Map formats", service.formats, "formats"), codes("Feature formats", service.info_formats, "formats"),
  }
end

return facts

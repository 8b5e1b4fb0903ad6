-- Writes a catalogue of a Web Map Service: one HTML page with everything in it, pictures included.
--
--   zel catalogue.lua [--max N] [--version VERSION] URL OUT
--
-- URL is the address of the service, OUT the page to write. --max fetches pictures for the first N layers only;
-- --version asks for a version of the service's protocol other than 1.1.1, such as 1.3.0.
-- A layer whose picture cannot be had is in the page with the reason.

local show_progress = require "zel.progress"

local WIDTH, HEIGHT = 240, 160  -- a thumbnail lies within
local LARGEST = 4000000         -- bytes of a picture
local PATIENCE = 60             -- seconds for a picture
local PAGE = 50                 -- layers read at a time
local LAST_INDEX = 32767        -- layers behind it come in one piece
local MANY = 30                 -- layers; from there on those with a map are folded at first

local USAGE = [[
Usage: zel catalogue.lua [--max N] [--version VERSION] URL OUT

Writes one HTML page about the Web Map Service at URL into the file OUT.
  --max N             pictures for the first N layers only
  --version VERSION   ask for this version of the protocol (1.1.0, 1.1.1, 1.3.0); 1.1.1 without it]]

local function give_up(...)
  io.stderr:write(table.concat({...}, "\n"), "\n")
  os.exit(1, true)
end

local function read_arguments()
  local options, plain, i = {["--max"] = math.huge, ["--version"] = "1.1.1"}, {}, 1
  while arg[i] do
    if options[arg[i]] then
      options[arg[i]] = arg[i + 1] or give_up(arg[i] .. " needs a value", USAGE)
      i = i + 1
    elseif arg[i]:find("^%-") then
      give_up("There is no option " .. arg[i], USAGE)
    else
      plain[#plain + 1] = arg[i]
    end
    i = i + 1
  end
  if #plain ~= 2 then give_up(USAGE) end
  local most = tonumber(options["--max"])
  if not most or most < 0 then give_up("--max needs a number, not " .. options["--max"], USAGE) end
  if not plain[1]:find("^https?://") then give_up("The URL must begin with http:// or https://, not " .. plain[1], USAGE) end
  return plain[1]:find("?", 1, true) and plain[1] or plain[1] .. "?", plain[2], most, options["--version"]
end

-- Server data ---------------------------------------------------------------------------------------------------------

-- The entries of a list; the shorter ones of lists that came together end in empty texts.
local function texts(value)
  local found = {}
  for _, text in ipairs(type(value) == "table" and value or {value}) do
    if text ~= "" then found[#found + 1] = text end
  end
  return found
end

-- The records of a list, as many as its count says.
local function records(layer, tag) return {table.unpack(layer[tag], 1, tonumber(layer["NUM_" .. tag]) or 0)} end

local function contains(list, wanted)
  for _, text in ipairs(list) do
    if text == wanted then return true end
  end
  return false
end

-- All layers of the service, one after the other in the order of its document.
local function layers(wms, total)
  return coroutine.wrap(function()
    local index = 0
    while index < total do
      local piece = index + PAGE <= LAST_INDEX and {INDEX = index, NUMBER = PAGE} or {INDEX = index}
      local part = wms:GetLayers(piece)
      for _, layer in ipairs(part) do coroutine.yield(layer) end
      index = index + #part
    end
  end)
end

-- The four bounds, as numbers that can be drawn; nothing when they cannot.
local function bounds(...)
  local box = {}
  for i, text in ipairs {...} do
    local number = tonumber(text)
    if not number or number ~= number or math.abs(number) > 1e12 then return nil end
    box[i] = number
  end
  return #box == 4 and box[1] < box[3] and box[2] < box[4] and box or nil
end

-- West, south, east, north of a layer in degrees.
local function degrees(layer)
  local a, b = layer.LAT_LON_BBOX, layer.EX_GEOBBOX
  return bounds(a.MINX, a.MINY, a.MAXX, a.MAXY) or bounds(b.WEST, b.SOUTH, b.EAST, b.NORTH)
end

-- What GetMap wants to know of the place: parameters, and width by height of the area. Before 1.3.0 longitude comes
-- first; 1.3.0 has it first in CRS:84, but latitude first in EPSG:4326. A bounding box is in the order of its system.
local function area(layer)
  local latest = layer.VERSION == "1.3.0"
  local parameter, systems = latest and "CRS" or "SRS", texts(latest and layer.CRS or layer.SRS)
  local box = degrees(layer)
  local function place(system, b, wide, high)
    return ("%s=%s&BBOX=%.10g,%.10g,%.10g,%.10g"):format(parameter, system, b[1], b[2], b[3], b[4]), wide, high
  end
  if box then
    local wide, high = box[3] - box[1], box[4] - box[2]
    if latest and contains(systems, "CRS:84") then return place("CRS:84", box, wide, high) end
    if contains(systems, "EPSG:4326") then
      return place("EPSG:4326", latest and {box[2], box[1], box[4], box[3]} or box, wide, high)
    end
  end
  for _, own in ipairs(records(layer, "BOUNDING_BOX")) do
    local b = bounds(own.MINX, own.MINY, own.MAXX, own.MAXY)
    local system = own[parameter]
    if b and system:find("^[%w:._-]+$") then return place(system, b, b[3] - b[1], b[4] - b[2]) end
  end
  return nil, "the service names no area that can be drawn"
end

local function encode(text)
  return (text:gsub("[^%w._~-]", function(byte) return ("%%%02X"):format(byte:byte()) end))
end

-- The GetMap query of a layer's thumbnail; nil and the reason when there can be none.
local function thumbnail_query(layer)
  local place, wide, high = area(layer)
  if not place then return nil, wide end
  local formats, format = texts(layer.MAP_FORMAT), nil
  for _, known in ipairs {"image/png", "image/jpeg", "image/gif", "image/webp"} do
    format = format or contains(formats, known) and known
  end
  if not format then return nil, "the service has no format that a page can show" end
  local scale = math.min(WIDTH / wide, HEIGHT / high)
  local function pixels(fixed, size)
    local number = math.tointeger(tonumber(fixed))
    return number and number > 0 and number <= 4096 and number or math.max(1, math.floor(size * scale + 0.5))
  end
  return ("LAYERS=%s&STYLES=&%s&WIDTH=%d&HEIGHT=%d&FORMAT=%s"):format(
    encode(layer.NAME), place, pixels(layer.FIXED_WIDTH, wide), pixels(layer.FIXED_HEIGHT, high), encode(format))
end

-- Requests ------------------------------------------------------------------------------------------------------------

-- By their first bytes: what a server says about them is not needed.
local PICTURES = {["^\x89PNG\r\n"] = "image/png", ["^\xFF\xD8\xFF"] = "image/jpeg", ["^GIF8"] = "image/gif",
                  ["^RIFF....WEBP"] = "image/webp"}

local DIGITS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"

local function base64(data)
  return (data:gsub("..?.?", function(three)
    local a, b, c = three:byte(1, 3)
    local bits = a << 16 | (b or 0) << 8 | (c or 0)
    local digits = ""
    for shift = 18, 18 - 6 * #three, -6 do
      local digit = (bits >> shift & 63) + 1
      digits = digits .. DIGITS:sub(digit, digit)
    end
    return digits .. ("="):rep(3 - #three)
  end))
end

local total = 0

-- The number of layers stands in a status text; what GetCapabilities returns ends at 32767.
local function watch_capabilities(text, figures)
  total = math.tointeger(text:match("^Number of layers found: (%d+)")) or total
  return show_progress(text, figures)
end

local server_words, too_large -- about the picture that is fetched

local function watch_picture(text, figures)
  local report = text:match("^Error: Remote OGC server returned .-: %((.*)%)")
  server_words = report and (report:match("Service Exception Text= *(.*)") or report) or server_words
  too_large = too_large or figures[3] > LARGEST
  return not too_large
end

-- pcall, but Ctrl-C goes through.
local function try(...)
  local done, result = pcall(...)
  if not done and (": " .. tostring(result)):find(": interrupted!$") then error(result, 0) end
  return done, result
end

-- Runs a request that fetches a picture. Returns it as data URI, or nil and why there is none.
local function picture(client, request, argument)
  server_words, too_large = nil, false
  local fetched, why = try(client[request], client, argument)
  local path = client:GetProperty{"LAST_FILE"}.LAST_FILE
  local file = fetched and io.open(path, "rb")
  local data = file and file:read("a") or ""
  if file then file:close() end
  os.remove(path)
  if not fetched then
    if too_large then return nil, "it is larger than " .. LARGEST .. " bytes" end
    return nil, server_words or (tostring(why):gsub("^.-:%d+: ", "", 1))
  end
  for start, kind in pairs(PICTURES) do
    if data:find(start) then return "data:" .. kind .. ";base64," .. base64(data) end
  end
  return nil, "what came is not a picture"
end

local function is_web_address(url) return url:find("^[Hh][Tt][Tt][Pp][Ss]?://[^%s%c\"'<>\\]+$") ~= nil end

-- Page ----------------------------------------------------------------------------------------------------------------

local ESCAPES = {["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;", ['"'] = "&quot;", ["'"] = "&#39;"}

-- {name} becomes the value with everything escaped that means something to HTML, {*name} a value that is HTML.
local function fill(template, values)
  return (template:gsub("{(%*?)(%w+)}", function(html, name)
    local value = tostring(values[name])
    return html == "*" and value or value:gsub("[&<>\"']", ESCAPES)
  end))
end

local function escaped(text) return fill("{text}", {text = text}) end

-- A template filled with each of the values.
local function each(values, template)
  local html = {}
  for i, value in ipairs(values) do html[i] = fill(template, {value = value}) end
  return html
end

-- A term and what is to be said about it, as HTML; nothing when there is nothing.
local function fact(term, html)
  html = table.concat(html, " ")
  return html == "" and "" or fill("<dt>{term}</dt><dd>{*html}</dd>\n", {term = term, html = html})
end

local function words(term, ...) return fact(term, each(texts {...}, "<span>{value}</span>")) end

-- Names to copy; many of them fold.
local function codes(term, values)
  local html = each(values, "<code>{value}</code>")
  if #html > 12 then
    html = {fill("<details><summary>{count} of them</summary>{*all}</details>", {count = #html, all = table.concat(html, " ")})}
  end
  return fact(term, html)
end

local function link(url, text)
  if not is_web_address(url) then return escaped(url) end
  return fill('<a href="{url}" rel="noopener noreferrer">{text}</a>', {url = url, text = text ~= "" and text or url})
end

local function links(term, list, tag)
  local html = {}
  for i, entry in ipairs(list) do html[i] = link(entry.ONLINE, entry[tag]) end
  return fact(term, html)
end

local function box_text(system, b) return ("%s: %.10g, %.10g to %.10g, %.10g"):format(system, b[1], b[2], b[3], b[4]) end

local function boxes(layer)
  local found = {}
  local box = degrees(layer)
  if box then found[1] = box_text("longitude, latitude", box) end
  for _, own in ipairs(records(layer, "BOUNDING_BOX")) do
    local b = bounds(own.MINX, own.MINY, own.MAXX, own.MAXY)
    if b then found[#found + 1] = box_text(own.CRS ~= "" and own.CRS or own.SRS, b) end
  end
  return fact("Boxes", each(found, "<span>{value}</span><br>"))
end

-- The reference systems that a layer has besides those of the layer around it, which are kept by level.
local around = {[0] = {}}
local function own_systems(layer, level)
  local all, own = {}, {}
  for _, tag in ipairs {"CRS", "SRS"} do
    for _, name in ipairs(texts(layer[tag])) do
      if not all[name] and not around[level - 1][name] then own[#own + 1] = name end
      all[name] = true
    end
  end
  around[level] = all
  return own
end

local function dimensions(layer)
  local found = {}
  for _, tag in ipairs {"DIMENSION", "EXTENT"} do
    for _, one in ipairs(records(layer, tag)) do
      if one.EXTENT ~= "" then found[#found + 1] = fill("<code>{NAME}</code> {EXTENT}", one) end
    end
  end
  return fact("Dimensions", found)
end

local function layer_facts(layer, level)
  local styles = {}
  for _, style in ipairs(records(layer, "STYLE")) do
    styles[#styles + 1] = fill('<span title="{TITLE}"><code>{NAME}</code></span>', style)
  end
  return table.concat {
    words("Keywords", table.unpack(texts(layer.KEYWORD))), boxes(layer),
    codes(level > 1 and "Reference systems besides those above" or "Reference systems", own_systems(layer, level)),
    fact("Styles", styles), dimensions(layer),
    words("Queries", layer.QUERYABLE == "1" and "answers what is at a place" or ""),
    words("Scale", layer.MIN_SCALE ~= "" and "from " .. layer.MIN_SCALE or "",
          layer.MAX_SCALE ~= "" and "to " .. layer.MAX_SCALE or ""),
    fact("Source", {link(layer.ATTRIBUTION.ONLINE, layer.ATTRIBUTION.TITLE)}),
    links("Metadata", records(layer, "METADATA_URL"), "TYPE"), links("Data", records(layer, "DATA_URL"), "FORMAT"),
  }
end

local FIGURE = '<figure><img src="{source}" alt="{alt}"><figcaption>{caption}</figcaption></figure>\n'
local NO_FIGURE = '<figure class="none"><div>No {what}: {why}</div></figure>\n'

local function figure(source, why, what, caption, alt)
  if source then return fill(FIGURE, {source = source, caption = caption, alt = alt}) end
  return fill(NO_FIGURE, {what = what, why = why})
end

local function service_facts(service, first)
  local function present(...) return table.concat(texts {...}, ", ") end
  return table.concat {
    fact("Address", {link(service.ONLINE, "")}),
    words("Version", first.VERSION), words("Keywords", table.unpack(texts(service.KEYWORD))),
    words("Contact", present(service.PERSON, service.POSITION, service.ORGANIZATION)),
    words("Postal address", present(service.ADDRESS, service.POSTAL_CODE, service.CITY, service.STATE, service.COUNTRY)),
    words("Telephone", service.VOICE), words("Fax", service.FAX), words("E-mail", service.EMAIL),
    words("Fees", service.FEES), words("Access constraints", service.ACCESS),
    words("Layers in one map", service.LAYER_LIMIT),
    words("Largest map", present(service.MAX_WIDTH, service.MAX_HEIGHT)),
    codes("Map formats", texts(first.MAP_FORMAT)), codes("Feature formats", texts(first.FEATURE_FORMAT)),
  }
end

local STYLE = [[
:root { color-scheme: light; --line: #d7dde3; --soft: #5b6875; --blue: #12598f; }
body { margin: 0; background: #f4f6f8; color: #1c2630; font: 15px/1.5 system-ui, "Liberation Sans", Arial, sans-serif; }
main { max-width: 1080px; margin: 0 auto; padding: 28px 24px 60px; }
h1 { margin: 0; font-size: 28px; line-height: 1.25; } h2 { margin: 28px 0 10px; font-size: 19px; }
h1, h2, p, dd, summary, code, figcaption { unicode-bidi: isolate; overflow-wrap: anywhere; }
.abstract { margin: 6px 0 10px; max-width: 75ch; white-space: pre-line; }
a { color: var(--blue); }
code { padding: 0 4px; border-radius: 4px; background: #e9eef3; font: 13px/1.5 ui-monospace, "Liberation Mono", monospace; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: 3px 16px; margin: 0; font-size: 14px; }
dt { max-width: 15em; color: var(--soft); } dd { margin: 0; } dd > span + span::before { content: "· "; color: var(--soft); }
.card, .layer > details { border: 1px solid var(--line); border-radius: 8px; background: #fff; }
.card { margin-top: 16px; padding: 14px 18px; }
.filter { display: flex; gap: 12px; align-items: center; margin-bottom: 12px; }
input { flex: 0 1 420px; padding: 8px 12px; border: 1px solid #b9c3cd; border-radius: 6px; font: inherit; }
output { color: var(--soft); }
ul { margin: 0; padding: 0; list-style: none; } ul ul { padding: 0 10px 4px 22px; }
.layer { display: block; margin: 8px 0; }
summary { padding: 8px 14px; cursor: pointer; } dd summary { padding: 0; }
.layer > details > summary { font-weight: 600; } summary code { margin-left: 6px; font-weight: 400; }
.own { display: flex; flex-wrap: wrap; gap: 6px 20px; align-items: flex-start; padding: 2px 14px 12px; }
.legends { max-width: 260px; }
.about { flex: 1 1 380px; min-width: 0; }
figure { margin: 4px 0 0; } figcaption { color: var(--soft); font-size: 12.5px; }
figure img { display: block; max-width: 240px; border: 1px solid var(--line); background: #fff; }
.none div { box-sizing: border-box; width: 242px; padding: 22px 12px; border: 1px dashed #b9c3cd; color: var(--soft); font-size: 13px; text-align: center; overflow-wrap: anywhere; }
footer { margin-top: 28px; color: var(--soft); font-size: 13px; }
]]

-- A layer stays when all words of the filter stand in it, or in a layer below it. The others leave the document:
-- browsers take minutes to hide thousands of them.
local SCRIPT = [[
const layers = [...document.querySelectorAll('.layer')].map(item => {
  const fold = item.firstElementChild;
  const [title, own] = fold.children;
  const texts = [title, ...own.querySelectorAll('p, dd')];
  return {item, fold, open: fold.open, text: texts.map(e => e.textContent).join(' ').toLowerCase()};
});
const at = new Map(layers.map(layer => [layer.item, layer]));
for (const layer of layers) layer.around = at.get(layer.item.parentElement.closest('.layer'));
const lists = Map.groupBy(layers, layer => layer.item.parentElement);
const field = document.getElementById('filter');
field.addEventListener('input', () => {
  const words = field.value.toLowerCase().split(/\s+/).filter(word => word);
  for (const layer of layers) layer.hit = layer.shown = words.every(word => layer.text.includes(word));
  for (const layer of [...layers].reverse()) if (layer.shown && layer.around) layer.around.shown = true;
  for (const [list, inside] of lists) list.replaceChildren(...inside.filter(layer => layer.shown).map(layer => layer.item));
  for (const layer of layers) if (layer.shown) layer.fold.open = words.length ? true : layer.open;
  const hits = layers.filter(layer => layer.hit).length;
  document.getElementById('found').textContent = words.length ? hits + ' of ' + layers.length + ' layers' : '';
});
]]

local HEAD = [[
<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; img-src data:; style-src 'nonce-{nonce}'; script-src 'nonce-{nonce}'; base-uri 'none'; form-action 'none'">
<meta name="referrer" content="no-referrer">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{title}</title>
<style nonce="{nonce}">
{*style}</style>
</head>
<body>
<main>
<h1>{title}</h1>
<p class="abstract">{abstract}</p>
<dl class="card">
{*facts}</dl>
<h2>Layers</h2>
<div class="filter"><input id="filter" type="search" placeholder="Filter: a word of a title, name, keyword …" aria-label="Filter the layers" autocomplete="off"><output id="found"></output></div>
<ul>
]]

local LAYER = [[
<li class="layer"><details{*open}><summary>{title}{*name}</summary>
<div class="own">{*picture}<div class="about">{*abstract}<dl>
{*facts}</dl></div>{*legends}</div>
<ul>
]]

local FOOT = [[
</ul>
<footer>{layers} layers of {url}, {pictures} with a picture, on {date}</footer>
</main>
<script nonce="{nonce}">
{*script}</script>
</body>
</html>
]]

local function random_text()
  local source <close> = assert(io.open("/dev/urandom", "rb"))
  return base64(source:read(18))
end

-- The file that the page is written to; it gets its name once it is complete.
local Page = {}
Page.__index = Page

local function new_page(path)
  local page = setmetatable({path = path, part = path .. ".part"}, Page)
  page.file = page:need(io.open(page.part, "wb"))
  return page
end

function Page:need(done, why) return done or give_up("Cannot write " .. self.path .. ": " .. why) end

function Page:write(template, values) self:need(self.file:write(fill(template, values))) end

function Page:finish()
  self:need(self.file:close())
  self:need(os.rename(self.part, self.path))
  self.done = true
end

function Page:__close()
  if self.done then return end
  if io.type(self.file) == "file" then self.file:close() end
  os.remove(self.part)
end

-- Catalogue -----------------------------------------------------------------------------------------------------------

local function new_client(settings)
  local client = assert(zel.new("ZELnetOGCWMS"))
  -- Files of its own, so that none of the user's is overwritten.
  local directory = client:GetProperty{"MAP_FILENAME"}.MAP_FILENAME:match("^(.*)/") or "."
  local base = ("%s/catalogue-%08x"):format(directory, math.random(0, 0xFFFFFFFF))
  client:SetProperty{CAPABILITIES_FILENAME = base, MAP_FILENAME = base}
  client:SetProperty(settings)
  return client
end

local url, out, most, version = read_arguments()
local page <close> = new_page(out)
local wms <close> = new_client{CALLBACK_FUNCTION = watch_capabilities, WMS_VERSION = version}
local legend_client <close> = new_client{CALLBACK_FUNCTION = watch_picture, TIMEOUT = PATIENCE}
wms:ParseUrl(url)

io.stderr:write("Asking ", url, " for its layers\n")
local answered, why = try(wms.GetCapabilities, wms)
os.remove(wms:GetProperty{"LAST_FILE"}.LAST_FILE)
if not answered then give_up("No Web Map Service answered at " .. url, why) end
if total == 0 then give_up("The service at " .. url .. " offers no layers") end

local service, first = wms:GetServiceSection()[1], wms:GetLayers{NUMBER = 1}[1]
wms:SetProperty{CALLBACK_FUNCTION = watch_picture, WMS_VERSION = first.VERSION, TIMEOUT = PATIENCE}

local legends_by_url = {}
local function legends(layer)
  local html = {}
  for _, style in ipairs(records(layer, "STYLE")) do
    local address = style.LEGEND_ONLINE
    if is_web_address(address) then
      legends_by_url[address] = legends_by_url[address] or {picture(legend_client, "GetCapabilities", {FROM_URL = address})}
      local source, why = table.unpack(legends_by_url[address], 1, 2)
      local name = style.TITLE ~= "" and style.TITLE or style.NAME
      html[#html + 1] = figure(source, why, "legend", "Legend: " .. name, "Legend of " .. name)
    end
  end
  return #html > 0 and '<div class="legends">' .. table.concat(html) .. "</div>" or ""
end

local drawn, pictures = 0, 0
local function thumbnail(layer)
  if drawn >= most then return figure(nil, "only the first " .. math.tointeger(most) .. " were asked for", "picture"), "" end
  drawn = drawn + 1
  io.stderr:write(("Layer %d of %d: %s\n"):format(layer.LAYER + 1, total, (layer.NAME:gsub("%c", " "))))
  local query, source, why = thumbnail_query(layer)
  if query then
    source, why = picture(wms, "GetMap", query)
  else
    why = source
  end
  if source then pictures = pictures + 1 end
  return figure(source, why, "picture", "", "Map of " .. layer.TITLE), legends(layer)
end

local nonce = random_text()
page:write(HEAD, {nonce = nonce, style = STYLE, title = service.TITLE, abstract = service.ABSTRACT,
                  facts = service_facts(service, first)})
local depth = 0
for layer in layers(wms, total) do
  local level = tonumber(layer.LEVEL)
  page:write("{*ends}", {ends = ("</ul></details></li>\n"):rep(depth - level + 1)})
  depth = level
  local shown, explained = "", ""
  if layer.NAME ~= "" then shown, explained = thumbnail(layer) end
  page:write(LAYER, {
    open = (layer.NAME == "" or total < MANY) and " open" or "",
    title = layer.TITLE ~= "" and layer.TITLE or layer.NAME,
    name = layer.NAME ~= "" and fill("<code>{NAME}</code>", layer) or "",
    abstract = layer.ABSTRACT ~= "" and fill('<p class="abstract">{ABSTRACT}</p>', layer) or "",
    picture = shown, legends = explained, facts = layer_facts(layer, level),
  })
end
page:write("{*ends}", {ends = ("</ul></details></li>\n"):rep(depth)})
page:write(FOOT, {layers = total, pictures = pictures, url = url, date = os.date("%Y-%m-%d"), nonce = nonce, script = SCRIPT})
page:finish()
io.stderr:write(("%d layers, %d with a picture\n"):format(total, pictures))
print("Catalogue: " .. out)

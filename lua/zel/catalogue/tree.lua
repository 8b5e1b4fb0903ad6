--- The layers of a page: a card for each, in groups that fold, and the list of the groups.
--
-- `page` has write(template, values), numbers (of the layers), inside (how many a group holds) and
-- shown(layer), see zel.catalogue.page.

local facts = require "zel.catalogue.facts"
local html = require "zel.catalogue.html"

local fill, each = html.fill, html.each

local OPEN_LEVELS = 2  -- groups of these levels are open at first
local INDEX_LEVELS = 3 -- groups that the list beside the layers has

local MOST_TITLES = 5  -- of groups around a layer that a search finds

local tree = {}

local CARD = [[
<article class="layer" id="l{number}">
{*picture}<div class="body"><h3>{title}</h3>{*name}
<p class="path">{path}</p>{*abstract}<p class="tags">{*tags}</p>
<details class="more"><summary>Details</summary><dl>
{*facts}</dl>{*legends}<p class="request">{*request}</p></details></div></article>
]]

local function tags(layer)
  local found = {}
  if #layer.children > 0 then found[1] = "the whole group" end
  found[#found + 1] = facts.scales(layer.scale)
  for _, one in ipairs(layer.dimensions) do found[#found + 1] = one.name end
  if layer.queryable then found[#found + 1] = "queryable" end
  return each(found, "<span>{value}</span>", "")
end

-- The titles of the groups around a layer; the outermost group is the service.
local function path(layer)
  local titles = {}
  local group = layer.parent
  while group and group.parent and #titles < MOST_TITLES do
    table.insert(titles, 1, facts.title(group))
    group = group.parent
  end
  return table.concat(titles, " › ")
end

local MAP = [[
<figure><button type="button" class="zoom" aria-label="Enlarge the map of {title}"><img src="{*picture}"
 alt="Map of {title}" loading="lazy" decoding="async"></button>{*note}</figure>
]]

local function map(layer, shown)
  if shown.picture then
    local note = shown.scale and "<figcaption>at about " .. facts.scale_number(shown.scale) .. "</figcaption>" or ""
    return fill(MAP, {picture = shown.picture, title = facts.title(layer), note = note})
  end
  local scales = facts.scales(layer.scale)
  return fill('<p class="why"><span>{why}</span></p>\n', {
    why = scales and shown.why .. " It is drawn at " .. scales .. "." or shown.why})
end

local LEGEND = [[
<figure><img src="{*picture}" alt="Legend of {title}" loading="lazy"><figcaption>{title}</figcaption></figure>
]]

local function legends(list)
  local found = {}
  for i, one in ipairs(list) do
    found[i] = fill(one.picture and LEGEND or '<p class="soft">No legend of {title}: {why}</p>\n', one)
  end
  return #found == 0 and "" or '<div class="legends">' .. table.concat(found) .. "</div>"
end

local function card(page, layer)
  local shown = page.shown(layer)
  page:write(CARD, {
    number = page.numbers[layer], picture = map(layer, shown), title = facts.title(layer), path = path(layer),
    name = layer.name and layer.name ~= facts.title(layer) and fill("<code>{name}</code>", layer) or "",
    abstract = layer.abstract and fill('<p class="abstract">{abstract}</p>', layer) or "",
    tags = tags(layer), facts = facts.layer(layer), legends = legends(shown.legends),
    request = shown.request and html.link(shown.request, "Open this map at the server") or "",
  })
end

--- How many layers there are, and a table of how many each group holds with itself. Unnamed groups are headings only.
function tree.count(layers)
  local total, inside = 0, {}
  for i = #layers, 1, -1 do -- children come after their group
    local layer = layers[i]
    local own = (layer.name or #layer.children == 0) and 1 or 0
    total = total + own
    inside[layer] = (inside[layer] or 0) + own
    if layer.parent then inside[layer.parent] = (inside[layer.parent] or 0) + inside[layer] end
  end
  return total, inside
end

local GROUP = [[
<section class="group" id="g{number}"><details{*open}>
<summary><h2>{title}</h2><span class="count">{count}</span></summary>
{*about}]]

-- What an unnamed group says; one with a name has a card.
local function about(group)
  local said = facts.layer(group)
  local abstract = group.abstract and fill('<p class="abstract">{abstract}</p>\n', group) or ""
  if said == "" then return abstract end
  return abstract .. fill('<div class="about">{*folded}</div>\n', {
    folded = facts.folded("About this group", "<dl>\n" .. said .. "</dl>")})
end

--- Writes the layers of one level; before them the card of the group that they are in.
function tree.write(page, layers, group)
  local in_grid = false
  local function grid(wanted)
    if wanted ~= in_grid then page:write(wanted and '<div class="grid">\n' or "</div>\n", {}) end
    in_grid = wanted
  end
  if group and group.name then
    grid(true)
    card(page, group)
  end
  for _, layer in ipairs(layers) do
    grid(#layer.children == 0)
    if in_grid then
      card(page, layer)
    else
      page:write(GROUP, {
        number = page.numbers[layer], open = layer.level <= OPEN_LEVELS and " open" or "", title = facts.title(layer),
        count = html.count(page.inside[layer], "layer"), about = layer.name and "" or about(layer),
      })
      tree.write(page, layer.children, layer)
      page:write("</details></section>\n", {})
    end
  end
  grid(false)
end

--- The list of groups beside the layers, without the outermost one.
function tree.index(page, layers)
  local found = {}
  for _, layer in ipairs(layers) do
    if #layer.children > 0 and layer.level <= INDEX_LEVELS then
      local inside = tree.index(page, layer.children)
      local entry = {number = page.numbers[layer], title = facts.title(layer),
                     inside = inside ~= "" and "<ul>" .. inside .. "</ul>" or ""}
      found[#found + 1] = layer.parent and fill('<li><a href="#g{number}">{title}</a>{*inside}</li>\n', entry) or inside
    end
  end
  return table.concat(found)
end

return tree

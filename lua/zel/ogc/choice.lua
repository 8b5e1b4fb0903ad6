--- Choices that maps and questions about places share: what was asked for, checked against what the service offers.

local arguments = require "zel.ogc.arguments"
local boxes = require "zel.ogc.boxes"
local crs = require "zel.ogc.crs"
local errors = require "zel.ogc.errors"

local PREFERRED_SYSTEMS = {"EPSG:4326", "CRS:84"}

local choice = {}

local function names_of(list)
  local names = {}
  for _, entry in ipairs(list) do names[#names + 1] = entry.name end
  return names
end

--- The layers of these names.
function choice.layers(s, call, given)
  local names, found = arguments.list(given), {}
  if #names == 0 then errors.raise(call .. " wants layers; there are: " .. table.concat(names_of(s.layers), ", ")) end
  for i, name in ipairs(names) do
    found[i] = s.layer[name]
    if not found[i] then errors.unknown("layer", name, names_of(s.layers)) end
  end
  if s.max_layers and #found > s.max_layers then
    errors.raise(("the service draws at most %d layers in one map, not %d"):format(s.max_layers, #found))
  end
  return found
end

--- The names of the layers' styles, "" for a layer's first. `given` is a list, or a table by layer name.
function choice.styles(layers, given)
  local asked, styles = arguments.list(given), {}
  if #asked > #layers then errors.raise(("there are %d styles for %d layers"):format(#asked, #layers)) end
  for i, layer in ipairs(layers) do
    local style = asked[layer.name] or asked[i] or ""
    if style ~= "" and not arguments.find(names_of(layer.styles), style) then
      errors.unknown("style", style, names_of(layer.styles), "of layer " .. layer.name)
    end
    styles[i] = style ~= "" and arguments.find(names_of(layer.styles), style) or ""
  end
  return styles
end

-- The systems that all layers offer; nil when the service does not say. Services take AUTO2:42001 with parameters
-- after the name.
local function common_systems(layers)
  local common
  for _, layer in ipairs(layers) do
    if #layer.crs > 0 then
      local offered, kept = {}, {}
      for _, name in ipairs(layer.crs) do offered[name:lower()] = true end
      for _, name in ipairs(common or layer.crs) do
        if offered[name:lower()] then kept[#kept + 1] = name end
      end
      common = kept
    end
  end
  return common
end

--- The reference system: the one asked for (a name, or the number of EPSG's), or degrees where the layers have them.
function choice.system(s, layers, given)
  local offered = common_systems(layers)
  local name = crs.name(given)
  if not name then
    for _, preferred in ipairs(PREFERRED_SYSTEMS) do
      if not offered or arguments.find(offered, preferred) then return preferred end
    end
    if not offered[1] then errors.raise("the layers have no reference system in common: fetch them one by one") end
    return offered[1]
  end
  -- 1.1.0 lists names in one element, and not all of them arrive.
  if not offered or s.version == "1.1.0" then return name end
  local base, parameters = name:match("^([^,]*)(.*)$")
  local found = arguments.find(offered, base)
  if not found then errors.unknown("reference system", name, offered, "for these layers") end
  return found .. parameters
end

--- Raises unless the box is one in the system.
function choice.check_box(box, system)
  if not boxes.valid(box) then
    local texts = {}
    for i, edge in ipairs(box) do texts[i] = tostring(edge) end
    errors.raise(("bbox must be {west, south, east, north}, west less than east and south less than north, not {%s}; "
      .. "over the date line, east counts on beyond 180"):format(table.concat(texts, ", ")))
  end
  if crs.describe(system).geographic and (box[2] < -90 or box[4] > 90 or box[1] < -540 or box[3] > 540) then
    errors.raise(("bbox lies beyond the degrees of %s: name the crs that its numbers are in"):format(system))
  end
end

--- The box that was asked for, in the system; without one what `own()` gives, and nil when that is nothing. A box in
-- another system, `given_in`, gives the box around it.
function choice.box(given, given_in, system, own)
  if not given then return own() end
  if not given_in then
    choice.check_box(given, system)
    return given
  end
  given_in = crs.name(given_in)
  choice.check_box(given, given_in)
  local box
  if crs.describe(given_in).geographic then
    box = crs.from_degrees(given, system)
  else
    box = crs.transform_box(given, given_in, system)
  end
  if not box or not boxes.valid(box) then errors.raise(("bbox lies outside of what %s is for"):format(system)) end
  return box
end

-- Formats by their short names and extensions, the best for a map first.
local SHORT = {{"png", "image/png"}, {"jpeg", "image/jpeg"}, {"jpg", "image/jpeg"}, {"gif", "image/gif"},
               {"tiff", "image/tiff"}, {"tif", "image/tiff"}, {"webp", "image/webp"}, {"bmp", "image/bmp"}}

-- The offered format with this name, by itself or before parameters ("image/png; mode=24bit").
local function offered_format(offered, name)
  local exact = arguments.find(offered, name)
  if exact then return exact end
  for _, format in ipairs(offered) do
    if format:lower():match("^[^;%s]*") == name:lower() then return format end
  end
end

--- The format asked for; else that of the file's extension, else the best for a picture that is offered.
function choice.format(offered, given, extension)
  local long = {}
  for _, pair in ipairs(SHORT) do long[pair[1]] = pair[2] end
  if given then
    local found = offered_format(offered, long[given:lower()] or given)
    if not found and #offered > 0 then errors.unknown("format", given, offered) end
    return found or long[given:lower()] or given
  end
  local fitting = extension and long[extension]
  if fitting then
    local found = offered_format(offered, fitting)
    if not found and #offered > 0 then errors.unknown("format", fitting, offered) end
    return found or fitting
  end
  for _, pair in ipairs(SHORT) do
    local found = offered_format(offered, pair[2])
    if found then return found end
  end
  return offered[1] or "image/png"
end

return choice

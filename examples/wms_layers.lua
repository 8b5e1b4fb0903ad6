-- Lists the layers of a Web Map Service as a tree.
--
--   zel wms_layers.lua [SOURCE [LAYER]]
--
-- SOURCE is the address of the service or a file with its capabilities; without it the environment variable
-- OGC_SERVER_URL gives an address. A line has title, name, whether the layer answers questions, and its box in degrees:
-- west, south, east, north. With the name of a layer, everything known about that layer is listed.

local function give_up(...)
  io.stderr:write(table.concat({...}, "\n"), "\n")
  os.exit(1, true)
end

local source = arg[1] or os.getenv("OGC_SERVER_URL") or ""
if source == "" then
  give_up("Usage: zel wms_layers.lua [SOURCE [LAYER]], or set OGC_SERVER_URL to the URL of a service")
end

local wms <close> = assert(zel.new("ZELnetOGCWMS"))
local read, count
if source:find("://", 1, true) then
  wms:ParseUrl(source:find("?", 1, true) and source or source .. "?")
  read, count = pcall(wms.GetCapabilities, wms)
else
  read, count = pcall(wms.GetCapabilities, wms, {FROM_FILE = source})
end
if not read then give_up("No capabilities could be read from " .. source, count) end

-- Layers come in document order: a layer's children follow it, one level deeper.
local service, layers = wms:GetServiceSection(), wms:GetLayers()
if layers == 0 then give_up(source .. " offers no layers") end
if service ~= 0 then print(service[1].TITLE) end

-- A structure, its lists one entry a line; empty values are left out.
local function show(value, name, indent)
  if type(value) ~= "table" then
    if value ~= "" then print(indent .. name .. ": " .. value) end
  elseif #value > 0 then
    for _, entry in ipairs(value) do show(entry, name, indent) end
  else
    local filled = {}
    for _, tag in ipairs(zel.tags(value)) do
      if value[tag] ~= "" then filled[#filled + 1] = tag .. " " .. value[tag] end
    end
    if #filled > 0 then print(indent .. name .. ": " .. table.concat(filled, ", ")) end
  end
end

local function box(layer)
  local edges = {}
  local old, new = layer.LAT_LON_BBOX, layer.EX_GEOBBOX
  for i, edge in ipairs(old.MINX ~= "" and {old.MINX, old.MINY, old.MAXX, old.MAXY} or
                        {new.WEST, new.SOUTH, new.EAST, new.NORTH}) do
    edges[i] = tonumber(edge) and ("%g"):format(edge) or edge
  end
  return edges[1] == "" and "no box" or table.concat(edges, " ")
end

for _, layer in ipairs(layers) do
  if not arg[2] then
    local name = layer.NAME ~= "" and " [" .. layer.NAME .. "]" or ""
    local queryable = layer.QUERYABLE == "1" and ", queryable" or ""
    print(("  "):rep(tonumber(layer.LEVEL)) .. layer.TITLE .. name .. queryable .. ", " .. box(layer))
  elseif layer.NAME == arg[2] then
    for _, tag in ipairs(zel.tags(layer)) do show(layer[tag], tag, "  ") end
    return
  end
end
if arg[2] then give_up(source .. " has no layer " .. arg[2]) end

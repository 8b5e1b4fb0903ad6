--- Coordinate reference systems: what PROJ's database says about them, and transformations by GDAL.
--
-- Names are those of services: EPSG:31467, CRS:84, urn:ogc:def:crs:EPSG::31467, IGNF:LAMB93.

local boxes = require "zel.ogc.boxes"
local errors = require "zel.ogc.errors"
local programs = require "zel.ogc.programs"

local DIRECTORY = "/usr/share/proj" -- of PROJ's database, unless the environment names another
local STEPS = 20 -- of the grid over a box that is transformed

local crs = {}
local connection
local described = {}

local function database()
  if not connection then
    local directory = os.getenv("PROJ_DATA") or os.getenv("PROJ_LIB") or DIRECTORY
    local path = directory .. "/proj.db"
    local file = io.open(path)
    if not file then errors.raise("PROJ's database " .. path .. " is missing; it comes with the package proj-data") end
    file:close()
    connection = assert(require("zel.ogc.packaged")("luasql.sqlite3").sqlite3():connect(path))
  end
  return connection
end

-- The rows of a query, as tables by column name; ? in it are replaced by texts.
local function rows(query, ...)
  local texts, i = {...}, 0
  local cursor = assert(database():execute((query:gsub("%?", function()
    i = i + 1
    return "'" .. database():escape(texts[i]) .. "'"
  end))))
  local found = {}
  for row in function() return cursor:fetch({}, "a") end do found[#found + 1] = row end
  cursor:close()
  return found
end

--- The name of a system that was given by name or by its EPSG number.
function crs.name(given)
  return (math.type(given) == "integer" or given and given:find("^%d+$")) and "EPSG:" .. given or given
end

local function authority_and_code(name)
  local upper = name:upper()
  local code = upper:match("^CRS:(%d+)$") or upper:match("^URN:OGC:DEF:CRS:OGC:[%d.]*:CRS(%d+)$")
  if code then return "OGC", "CRS" .. code end
  local authority
  for _, pattern in ipairs{"^(%w+):(%w+)$", "^URN:OGC:DEF:CRS:(%w+):[%d.]*:(%w+)$", "/DEF/CRS/(%w+)/[%d.]+/(%w+)$"} do
    authority, code = upper:match(pattern)
    if authority then return authority, code end
  end
end

-- Whether the first axis of a coordinate system points north and the second east. Around a pole both point the same way
-- and only their names differ.
local function points_north(axes)
  if #axes < 2 then return false end
  local first, second = axes[1], axes[2]
  if first.orientation == "north" and second.orientation == "east" then return true end
  return first.name:lower():find("^northing") ~= nil and second.name:lower():find("^easting") ~= nil
end

local TABLES = {"projected_crs", "geodetic_crs"}

--- What is known of a system: {definition = (for GDAL), known =, geographic =, north_first =, area = {w, s, e, n}}.
function crs.describe(name)
  if described[name] then return described[name] end
  local authority, code = authority_and_code(name)
  local entry = {definition = authority and authority .. ":" .. code or name, known = false}
  for _, where in ipairs(authority and TABLES or {}) do
    local system = rows("SELECT * FROM " .. where .. " WHERE auth_name = ? AND code = ?", authority, code)[1]
    if system then
      entry.known, entry.geographic = true, where == "geodetic_crs"
      entry.north_first = points_north(rows([[SELECT name, orientation FROM axis WHERE coordinate_system_auth_name = ?
        AND coordinate_system_code = ? ORDER BY coordinate_system_order]],
        system.coordinate_system_auth_name or "", system.coordinate_system_code or ""))
      local area = rows([[SELECT west_lon, south_lat, east_lon, north_lat FROM usage
        JOIN extent ON extent.auth_name = extent_auth_name AND extent.code = extent_code
        WHERE object_table_name = ? AND object_auth_name = ? AND object_code = ? AND west_lon IS NOT NULL]],
        where, authority, code)[1]
      entry.area = area and {tonumber(area.west_lon), tonumber(area.south_lat), tonumber(area.east_lon),
                             tonumber(area.north_lat)}
      break
    end
  end
  described[name] = entry
  return entry
end

--- Transforms points {x, y}; what cannot be transformed is left out.
function crs.transform(points, from, to)
  local lines = {}
  for i, p in ipairs(points) do lines[i] = ("%.15g %.15g"):format(p[1], p[2]) end
  local output = programs.run({"gdaltransform", "-s_srs", crs.describe(from).definition, "-t_srs",
                               crs.describe(to).definition, "-output_xy"}, table.concat(lines, "\n") .. "\n")
  local found = {}
  for line in output:gmatch("[^\n]+") do
    local x, y = line:match("^([-%d.e+]+) ([-%d.e+]+)$")
    if tonumber(x) and tonumber(y) then found[#found + 1] = {tonumber(x), tonumber(y)} end
  end
  return found
end

--- The box around a box in another system; nil when nothing of it can be transformed.
function crs.transform_box(box, from, to)
  return boxes.around(crs.transform(boxes.grid(box, STEPS), from, to))
end

--- A box of degrees in a system, no further than the system is meant for; nil when it lies outside.
function crs.from_degrees(box, to)
  local system = crs.describe(to)
  box = boxes.unrolled(box)
  if system.geographic then return box end
  local around
  for _, part in ipairs(system.area and boxes.shared_degrees(box, system.area) or {box}) do
    around = boxes.union(around, crs.transform_box(part, "CRS:84", to))
  end
  return around
end

--- The system as one line of well-known text; nil when GDAL does not know it.
function crs.wkt(name)
  local entry = crs.describe(name)
  if entry.wkt == nil then
    local output = programs.try{"gdalsrsinfo", "--single-line", "-o", "wkt2", entry.definition}
    entry.wkt = output and output:match("%S.*%S") or false
  end
  return entry.wkt or nil
end

return crs

--- Maps too large for one request: tiles, each placed by itself, and a .vrt over them that every GIS opens as one.
--
-- The tiles are in a directory beside the .vrt. Each gets its name once it is complete, so that a second run fetches
-- those that are missing; those of another request (layers, box, size ...) are never used again.

local errors = require "zel.ogc.errors"
local files = require "zel.ogc.files"
local georeference = require "zel.ogc.georeference"
local printable = require "zel.ogc.printable"
local programs = require "zel.ogc.programs"
local progress = require "zel.ogc.tile_progress"

local REQUEST = "request.txt" -- what the tiles in a directory are of

local tiles = {}

-- The edges of parts of at most `largest` pixels, as even as can be: {0, ..., length}.
local function edges(length, largest)
  local parts, found = math.ceil(length / largest), {}
  for i = 0, parts do found[i] = length * i // parts end
  return found
end

-- All tiles from the upper left: {name, box, width, height}.
local function cut(map, largest, extension)
  local width, height, box = map.size[1], map.size[2], map.box
  local columns, rows = edges(width, math.min(width, largest[1])), edges(height, math.min(height, largest[2]))
  local function x(pixel) return box[1] + (box[3] - box[1]) * pixel / width end
  local function y(pixel) return box[4] - (box[4] - box[2]) * pixel / height end
  local list = {}
  for row = 1, #rows do
    for column = 1, #columns do
      local left, right, top, bottom = columns[column - 1], columns[column], rows[row - 1], rows[row]
      list[#list + 1] = {name = ("%d-%d.%s"):format(row, column, extension), width = right - left,
                         height = bottom - top, box = {x(left), y(bottom), x(right), y(top)}}
    end
  end
  return list
end

-- The text that distinguishes one request from another: the server and every tile.
local function description(s, plan, list)
  local lines = {s.url}
  for _, tile in ipairs(list) do
    lines[#lines + 1] = tile.name .. " " .. plan.describe(tile.box, tile.width, tile.height)
  end
  return table.concat(lines, "\n") .. "\n"
end

-- Makes the directory of the tiles; tiles of another request are removed from it.
local function prepare(directory, wanted)
  if not files.exists(directory .. ".") then programs.run{"mkdir", directory} end
  local found = files.read(directory .. REQUEST)
  if found == wanted then return end
  for name in (found or ""):gmatch("\n(%d+%-%d+%.%w+) ") do
    georeference.remove(directory .. name)
    os.remove(directory .. name .. ".vrt")
  end
  files.write(directory .. REQUEST, wanted)
end

-- A picture has one colour table, and those of tiles differ: such tiles are expanded to colours.
local function has_palette(path)
  local head = files.read(path, 26) or ""
  return head:find("^GIF8") ~= nil or (head:find("^\x89PNG") ~= nil and head:byte(26) == 3)
end

local function readable(path)
  if not has_palette(path) then return path end
  programs.run{"gdal_translate", "-q", "-of", "VRT", "-expand", "rgba", path, path .. ".vrt"}
  return path .. ".vrt"
end

local function join(directory, list, path)
  local names = {}
  for i, tile in ipairs(list) do names[i] = readable(directory .. tile.name) end
  local partial = files.stem(path) .. ".part.vrt" -- in the same directory, since its names are relative
  local _, complaints = programs.run({"gdalbuildvrt", "-q", "-overwrite", "-input_file_list", "/dev/stdin", partial},
    table.concat(names, "\n") .. "\n")
  if complaints:find("[Ss]kip") or not files.exists(partial) then
    os.remove(partial)
    errors.raise("the tiles do not fit together: " .. complaints:gsub("%s+", " "))
  end
  files.rename(partial, path)
end

--- Fetches the map by tiles of at most largest {width, height} pixels and returns the name of the .vrt. `plan` has
-- fetch(box, width, height, path), which fetches one tile, and describe(box, width, height), its query.
function tiles.fetch(s, plan, map, largest, to)
  local extension = georeference.extension(plan.format)
  if not extension then errors.raise(plan.format .. " cannot be joined from tiles: ask for a picture format") end
  if not to then errors.raise("a map of several tiles needs a name: say where with to") end
  if to:find("%c") then -- programs get the names of the tiles line by line
    local words = 'the name of a map of several tiles must not contain a control character: "%s"'
    errors.raise(words:format(printable(to)))
  end
  if to:sub(1, 1) == "-" then to = "./" .. to end -- programs would take it for an option
  local directory = files.stem(to) .. ".tiles/"
  local list = cut(map, largest, extension)
  prepare(directory, description(s, plan, list))
  local missing = {}
  for _, tile in ipairs(list) do
    if not files.exists(directory .. tile.name) then missing[#missing + 1] = tile end
  end
  local shown <close> = progress(s, #list, #list - #missing)
  for _, tile in ipairs(missing) do
    plan.fetch(tile.box, tile.width, tile.height, directory .. tile.name)
    shown:step()
  end
  local path = files.stem(to) .. ".vrt"
  join(directory, list, path)
  return path
end

return tiles

--- Places a picture on the Earth, for every GIS: a world file, and a .aux.xml with the system as GDAL writes it.
--
-- Sources: the persistent auxiliary metadata of GDAL (gdal.org/drivers/raster/vrt.html has its elements), world files
-- as Esri's documentation of ArcGIS describes them.

local crs = require "zel.ogc.crs"
local files = require "zel.ogc.files"

local WORLD_FILES = {png = "pgw", jpg = "jgw", jpeg = "jgw", gif = "gfw", tif = "tfw", tiff = "tfw", bmp = "bpw",
                     webp = "wpw"}

local georeference = {}

local EXTENSIONS = {["image/png"] = "png", ["image/jpeg"] = "jpg", ["image/gif"] = "gif", ["image/tiff"] = "tif",
                    ["image/bmp"] = "bmp", ["image/webp"] = "webp"}

--- The extension of a format that is a picture and so can be placed; nil for others.
function georeference.extension(format) return EXTENSIONS[format:lower():match("^[^;%s]*")] end

local function escaped(text) return (text:gsub("[&<>]", {["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;"})) end

-- The six numbers of GDAL's affine transformation: x of the left edge, width of a pixel, 0, y of the top edge, 0, and
-- height of a pixel, below 0.
local function transformation(box, width, height)
  return {box[1], (box[3] - box[1]) / width, 0, box[4], 0, (box[2] - box[4]) / height}
end

local function numbers(list, separator)
  local texts = {}
  for i, number in ipairs(list) do texts[i] = ("%.17g"):format(number) end
  return table.concat(texts, separator)
end

-- A world file counts from the middle of the upper left pixel.
local function world_file(t)
  return numbers({t[2], 0, 0, t[6], t[1] + t[2] / 2, t[4] + t[6] / 2}, "\n") .. "\n"
end

local function auxiliary(t, system)
  local wkt, srs = crs.wkt(system), ""
  if wkt then
    local mapping = crs.describe(system).north_first and "2,1" or "1,2"
    srs = ('  <SRS dataAxisToSRSAxisMapping="%s">%s</SRS>\n'):format(mapping, escaped(wkt))
  end
  return ("<PAMDataset>\n%s  <GeoTransform>%s</GeoTransform>\n</PAMDataset>\n"):format(srs, numbers(t, ", "))
end

local function world_file_of(path)
  return files.stem(path) .. "." .. (WORLD_FILES[files.extension(path)] or "wld")
end

--- Removes the picture at `path` and its files.
function georeference.remove(path)
  for _, name in ipairs{path, path .. ".aux.xml", world_file_of(path)} do os.remove(name) end
end

--- Writes both files for the picture at `path`, whose edges are the box in the system.
function georeference.write(path, box, width, height, system)
  local t = transformation(box, width, height)
  files.write(world_file_of(path), world_file(t))
  files.write(path .. ".aux.xml", auxiliary(t, system))
end

return georeference

"""Maps by the library zel.ogc, against MapServer: what is refused, what is fetched, and where it lies on the Earth."""

import numpy
import pytest
from osgeo import gdal, osr

gdal.UseExceptions()
osr.UseExceptions()

NAME = "Höhe 100 % + mehr #1"

# s:map{...} and what it says; nothing of this is sent.
REFUSED = {
    "layers = 'eart'": 'no layer "eart"; did you mean "earth"? There are: regions, earth, ',
    "": "map wants layers; there are: regions, earth",
    "layer = 'earth'": 'no argument "layer" of map; did you mean "layers"?',
    "layers = 'earth', width = '5'": "width of map must be a number, not a string",
    "layers = 'earth', width = 0": "width must be a whole number of 1 or more, not 0",
    "layers = 'earth', height = 2.5": "height must be a whole number",
    "layers = 'earth', crs = 'EPSG:31468'": 'no reference system "EPSG:31468" for these layers; did you mean "EPSG:31467"?',
    "layers = 'earth', format = 'webp'": 'no format "webp"; there are: image/png, ',
    "layers = 'earth', to = 'x.bmp'": 'no format "image/bmp"',
    "layers = 'earth', styles = 'blue'": 'no style "blue" of layer earth',
    "layers = 'earth', styles = {'', ''}": "2 styles for 1 layers",
    "layers = 'earth', time = '2024'": 'no dimension "time" of these layers',
    "layers = 'earth', bbox = {0, 10, 10, 0}": "not {0, 10, 10, 0}",
    "layers = 'earth', bbox = {170, 0, -170, 10}": "over the date line, east counts on beyond 180",
    "layers = 'earth', bbox = {0, 0, 0/0, 10}": "bbox must be {west, south, east, north}",
    "layers = 'earth', bbox = {300000, 0, 400000, 1}": "name the crs that its numbers are in",
    "layers = 'earth', to = 'nosuch/x.png'": "no directory nosuch/ to write x.png to",
    "layers = 'earth', bgcolor = 'red'": 'bgcolor must be like "#ff8000", not "red"',
    "layers = 'earth', extra = {bbox = 1}": "bbox is no extra parameter",
    "layers = 'earth', extra = {vendor = ('y'):rep(4000)}": "the request would have ",
    "layers = 'earth', width = 5000, format = 'image/png'": "needs a name: say where with to",
}


def test_what_is_refused_before_sending(zel, ogc):
    calls = "\n".join(f"try{{{call}}}" for call in REFUSED)
    done = zel(f"""
      local s = require "zel.ogc".wms(arg[1])
      s.object:SetProperty{{URL_PORT = 1}}
      local function try(o)
        local done, why = pcall(s.map, s, o)
        print(done, why.message, why.text)
      end
      {calls}
    """, ogc.regions)
    for line, said in zip(done.out.splitlines(), REFUSED.values(), strict=True):
        assert line.startswith("false") and said in line and line.endswith("nil")


# A layer, what is asked for, and the system of the map.
MAPS = {
    "degrees": ("earth", "bbox = {-30, 30, 60, 75}, width = 180", "EPSG:4326"),
    "mercator": ("earth", "crs = 'epsg:3857', bbox = {-2e6, 4e6, 4e6, 8e6}, height = 100", "EPSG:3857"),
    "Germany, its own box": (NAME, "crs = 31467, width = 150", "EPSG:31467"),
    "Poland, its own box": ("earth", "crs = 'EPSG:2180', to = 'poland.jpg'", "EPSG:2180"),
    "over the date line": ("pacific", "width = 200", "EPSG:4326"),
    "a picture with tags": ("earth", "crs = 31467, bbox = {3.3e6, 5.2e6, 3.7e6, 6.1e6}, to = 'tags.tif'", "EPSG:31467"),
}


def source_of(ogc, picture, system):
    """The part of the source that a picture shows, on the picture's grid."""
    west, width, _, north, _, height = picture.GetGeoTransform()
    bounds = (west, north + height * picture.RasterYSize, west + width * picture.RasterXSize, north)
    return gdal.Warp("", str(ogc.data / "pacific.vrt"), format="MEM", dstSRS=system, outputBounds=bounds,
                     width=picture.RasterXSize, height=picture.RasterYSize, resampleAlg="average").ReadAsArray()


@pytest.mark.parametrize("case", MAPS)
def test_maps_are_placed_and_alike_in_both_versions(zel, ogc, tmp_path, case):
    layer, arguments, system = MAPS[case]
    done = zel(f"""
      for _, version in ipairs{{"1.1.1", "1.3.0"}} do
        local s = require "zel.ogc".wms(arg[1], {{version = version}})
        local o = {{layers = "{layer}", {arguments}}}
        o.to = version .. "-" .. (o.to or "map.png")
        local map = s:map(o)
        print(map.file, table.concat(map.size, " "), table.concat(map.box, " "), map.crs)
      end
    """, ogc.regions)
    pictures = []
    for line in done.out.splitlines():
        file, size, box, named = line.split("\t")
        picture = gdal.Open(str(tmp_path / file))
        west, width, _, north, _, height = picture.GetGeoTransform()
        assert size == f"{picture.RasterXSize} {picture.RasterYSize}" and named == system
        edges = (west, north + height * picture.RasterYSize, west + width * picture.RasterXSize, north)
        assert numpy.allclose(edges, [float(edge) for edge in box.split()], rtol=1e-9)
        wanted = osr.SpatialReference()
        wanted.SetFromUserInput(system)
        assert picture.GetSpatialRef().IsSame(wanted, ["IGNORE_DATA_AXIS_TO_SRS_AXIS_MAPPING=YES"])
        pictures.append(picture)
        assert abs(picture.ReadAsArray().astype(float) - source_of(ogc, picture, system)).mean() < 12
    old, new = (picture.ReadAsArray().astype(int) for picture in pictures)
    # The server's own rounding, and its shift of DHDN's datum, are not the same in both versions.
    assert abs(old - new).mean() < 0.3
    assert not list(tmp_path.glob(".*"))

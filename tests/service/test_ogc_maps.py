"""Maps by the library zel.ogc, against every server that there is: what is fetched, and where it lies on the Earth."""

import os

import numpy
import pytest
from osgeo import gdal, osr

from other_servers import NAME, SYSTEMS, map_servers

gdal.UseExceptions()
osr.UseExceptions()

OTHERS = os.environ.get("MAP_SERVERS", "").split()
SERVERS = pytest.mark.parametrize("server", ["MapServer", *OTHERS])


@pytest.fixture(scope="module")
def urls(ogc, tmp_path_factory):
    with map_servers(OTHERS, ogc, tmp_path_factory.mktemp("maps")) as urls:
        yield urls


# A server, a layer, what is asked for, and the system of the map.
MAPS = [
    ("MapServer", "earth", "bbox = {-30, 30, 60, 75}, width = 180", "EPSG:4326"),
    ("MapServer", "earth", "crs = 'epsg:3857', bbox = {-2e6, 4e6, 4e6, 8e6}, height = 100", "EPSG:3857"),
    ("MapServer", NAME, "crs = 31467, width = 150", "EPSG:31467"),
    ("MapServer", "earth", "crs = 'EPSG:2180', to = 'poland.jpg'", "EPSG:2180"),
    ("MapServer", "pacific", "width = 200", "EPSG:4326"),
    ("MapServer", "earth", "crs = 31467, bbox = {3.3e6, 5.2e6, 3.7e6, 6.1e6}, to = 'tags.tif'", "EPSG:31467"),
    *[(server, "earth", f"crs = '{system}', bbox = {{8, 48, 18, 52}}, bbox_crs = 'EPSG:4326', width = 400", system)
      for server in OTHERS for system in SYSTEMS],
    *[("QGIS", NAME, "bbox = {0, 40, 20, 50}, width = 200", "EPSG:4326")] * ("QGIS" in OTHERS)]
# What may differ between the versions: MapServer rounds, and shifts the datum of DHDN another way; QGIS Server samples
# otherwise.
MOVED = {"MapServer": 0.3, "QGIS": 1, "MapProxy": 0}


def picture(path):
    """A picture and its colours, whether it has a table of them or not."""
    opened = gdal.Open(str(path))
    expanded = opened.GetRasterBand(1).GetColorTable()
    colours = gdal.Translate("", opened, format="MEM", rgbExpand="rgb") if expanded else opened
    return opened, colours.ReadAsArray()[:3].astype(int)


@pytest.mark.parametrize("server, layer, arguments, system", MAPS)
def test_maps_are_placed_and_alike_in_both_versions(zel, ogc, urls, tmp_path, server, layer, arguments, system):
    done = zel(f"""
      for _, version in ipairs{{"1.1.1", "1.3.0"}} do
        local s = require "zel.ogc".wms(arg[1], {{version = version}})
        assert(s.version == version and s.title == arg[2] and #s.layer.earth.crs >= 4)
        assert(("%.0f %.0f %.0f %.0f"):format(table.unpack(s.layer.earth.box)) == "-180 -90 180 90")
        local o = {{layers = "{layer}", {arguments}}}
        o.to = version .. "-" .. (o.to or "map.png")
        local map = s:map(o)
        print(map.file, table.concat(map.size, " "), table.concat(map.box, " "), map.crs)
      end
    """, urls[server], "Regions" if server == "MapServer" else server)
    pictures = []
    for line in done.out.splitlines():
        file, size, box, named = line.split("\t")
        opened, pixels = picture(tmp_path / file)
        pictures.append(pixels)
        west, width, _, north, _, height = opened.GetGeoTransform()
        assert (tmp_path / f"{file[:-2]}{file[-1]}w").exists()  # the world file
        assert size == f"{opened.RasterXSize} {opened.RasterYSize}" and named == system
        edges = (west, north + height * opened.RasterYSize, west + width * opened.RasterXSize, north)
        assert numpy.allclose(edges, [float(edge) for edge in box.split()], rtol=1e-9)
        wanted = osr.SpatialReference()
        wanted.SetFromUserInput(system)
        wanted.SetAxisMappingStrategy(osr.OAMS_TRADITIONAL_GIS_ORDER)
        assert opened.GetSpatialRef().IsSame(wanted)
        source = gdal.Warp("", str(ogc.data / "pacific.vrt"), format="MEM", dstSRS=system, outputBounds=edges,
                           width=opened.RasterXSize, height=opened.RasterYSize, resampleAlg="average")
        assert abs(pixels - source.ReadAsArray()).mean() < 12
    assert abs(pictures[0] - pictures[1]).mean() <= MOVED[server] and not list(tmp_path.glob(".*"))


@SERVERS
def test_tiles_are_joined(zel, urls, ogc, tmp_path, server):
    """Into one picture without seams, also when each has a table of colours, as MapProxy's have."""
    zel('require "zel.ogc".wms(arg[1], {quiet = true}):map{layers = "earth", bbox = {-180, -90, 180, 90}, width = 1500, '
        'tile = 500, to = "-world\\\'s.vrt"}', urls[server])
    _, world = picture(tmp_path / "-world's.vrt")
    source = gdal.Translate("", str(ogc.data / "earth.tif"), format="MEM", width=1500, height=750, resampleAlg="average")
    assert len(list(tmp_path.glob("*.tiles/[0-9]*.png"))) == 6 and abs(world - source.ReadAsArray()).mean() < 6

"""The library zel.ogc against further servers of maps: QGIS Server and MapProxy, and MapServer beside them.

scripts/check_servers.sh runs it; its servers take long to install, so it is no part of the service tests.
"""

import contextlib
import http.client
import os
import signal
import socket
import subprocess
import sys
import time

import numpy
import pytest
from osgeo import gdal, osr

gdal.UseExceptions()
osr.UseExceptions()

NAME = "Höhe 100 % + mehr #1"
SYSTEMS = ["EPSG:4326", "EPSG:3857", "EPSG:31467", "EPSG:2180"]

QGIS_PROJECT = f"""
from qgis.core import QgsApplication, QgsCoordinateReferenceSystem, QgsProject, QgsRasterLayer, QgsVectorLayer
application = QgsApplication([], False)
application.initQgis()
project = QgsProject.instance()
project.setCrs(QgsCoordinateReferenceSystem("EPSG:4326"))
for layer in (QgsRasterLayer("earth.tif", "earth"), QgsRasterLayer("earth.tif", {NAME!r}),
              QgsVectorLayer("places.geojson", "places")):
    assert layer.isValid()
    project.addMapLayer(layer)
for key, value in (("WMSServiceCapabilities", True), ("WMSServiceTitle", "QGIS"), ("WMSCrsList", {SYSTEMS})):
    project.writeEntry(key, "/", value)
assert project.write("../project.qgs")
"""

MAPPROXY = """
services:
  wms: {{versions: ['1.1.1', '1.3.0'], srs: {systems}, md: {{title: MapProxy}}}}
layers:
  - {{name: earth, title: Earth, sources: [earth]}}
sources:
  earth: {{type: wms, supported_srs: ['EPSG:4326'], req: {{url: '{url}', layers: earth}}}}
globals:
  srs: {{axis_order_ne: ['EPSG:31467', 'EPSG:2180']}}
"""


@contextlib.contextmanager
def serving(directory, words, path):
    """Runs a server on a free port, which takes the place of PORT in its words; gives the URL of its maps."""
    with socket.create_server(("127.0.0.1", 0)) as free:
        port = free.getsockname()[1]
    with open(directory / "server.log", "wb") as log:
        process = subprocess.Popen([word.replace("PORT", str(port)) for word in words], cwd=directory, stdout=log,
                                   stderr=log, stdin=subprocess.DEVNULL, start_new_session=True,
                                   env=os.environ | {"QT_QPA_PLATFORM": "offscreen"})
    try:
        deadline = time.monotonic() + 60
        while True:
            assert time.monotonic() < deadline and process.poll() is None, (directory / "server.log").read_text()
            with contextlib.suppress(OSError), contextlib.closing(
                    http.client.HTTPConnection("127.0.0.1", port, timeout=30)) as connection:
                connection.request("GET", path + "?SERVICE=WMS&REQUEST=GetCapabilities")
                if connection.getresponse().status == 200:
                    break
            time.sleep(0.1)
        yield f"http://127.0.0.1:{port}{path}"
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()


@pytest.fixture(scope="session")
def urls(ogc, tmp_path_factory):
    """The URL of each server's maps, by its name. All of them show the same raster."""
    directory = tmp_path_factory.mktemp("servers")
    subprocess.run([sys.executable, "-c", QGIS_PROJECT], cwd=ogc.data, check=True,
                   env=os.environ | {"QT_QPA_PLATFORM": "offscreen"})
    (directory / "mapproxy.yaml").write_text(MAPPROXY.format(systems=SYSTEMS, url=ogc.regions))
    with serving(directory, ["qgis_mapserver", "-p", str(ogc.data.parent / "project.qgs"), "127.0.0.1:PORT"],
                 "/ows/") as qgis, \
            serving(directory, ["mapproxy-util", "serve-develop", "-b", "127.0.0.1:PORT", "mapproxy.yaml"],
                    "/service") as mapproxy:
        yield {"MapServer": ogc.regions, "QGIS": qgis, "MapProxy": mapproxy}


# What these two draw in 1.3.0 lies a fraction of a pixel beside what they draw in 1.1.1, for the same box: MapServer
# shifts the datum of DHDN another way, QGIS Server samples otherwise when it transforms.
MOVED = [("MapServer", "EPSG:31467"), *(("QGIS", system) for system in SYSTEMS[1:])]

SERVERS = pytest.mark.parametrize("server", ["MapServer", "QGIS", "MapProxy"])


def picture(path):
    """The colours of a picture, whether it has a table of them or not."""
    opened = gdal.Open(str(path))
    expanded = opened.GetRasterBand(1).GetColorTable()
    opened = gdal.Translate("", opened, format="MEM", rgbExpand="rgb") if expanded else opened
    return opened, opened.ReadAsArray()[:3].astype(int)


@SERVERS
def test_info(zel, urls, server):
    titles = {"MapServer": "Regions"}
    done = zel("""
      for _, version in ipairs{"1.1.1", "1.3.0"} do
        local s = require "zel.ogc".wms(arg[1], {version = version})
        local earth = s.layer.earth
        print(s.title, s.version, #earth.crs >= 4, ("%.0f %.0f %.0f %.0f"):format(table.unpack(earth.box)))
      end
    """, urls[server])
    assert done.out.splitlines() == [f"{titles.get(server, server)}\t{version}\ttrue\t-180 -90 180 90"
                                     for version in ("1.1.1", "1.3.0")]


@SERVERS
@pytest.mark.parametrize("system", SYSTEMS)
def test_maps(zel, urls, ogc, tmp_path, server, system):
    """Both versions give the same pixels, in the place that was asked for, of what the source shows there."""
    done = zel("""
      for _, version in ipairs{"1.1.1", "1.3.0"} do
        local s = require "zel.ogc".wms(arg[1], {version = version})
        local map = s:map{layers = "earth", crs = arg[2], bbox = {8, 48, 18, 52}, bbox_crs = "EPSG:4326", width = 400,
                          to = version .. ".png"}
        print(table.concat(map.box, " "))
      end
    """, urls[server], system)
    (old, pixels), (new, again) = picture(tmp_path / "1.1.1.png"), picture(tmp_path / "1.3.0.png")
    assert abs(pixels - again).mean() <= (1 if (server, system) in MOVED else 0)

    first, second = done.out.splitlines()
    west, width, _, north, _, height = new.GetGeoTransform()
    edges = (west, north + height * new.RasterYSize, west + width * new.RasterXSize, north)
    assert first == second and numpy.allclose(edges, [float(edge) for edge in first.split()], rtol=1e-9)
    wanted = osr.SpatialReference()
    wanted.SetFromUserInput(system)
    assert all(one.GetSpatialRef().IsSame(wanted, ["IGNORE_DATA_AXIS_TO_SRS_AXIS_MAPPING=YES"]) for one in (old, new))
    source = gdal.Warp("", str(ogc.data / "earth.tif"), format="MEM", dstSRS=system, outputBounds=edges,
                       width=new.RasterXSize, height=new.RasterYSize).ReadAsArray()
    assert abs(again - source).mean() < 8


@pytest.mark.parametrize("server", ["MapServer", "QGIS"])
def test_names_are_escaped(zel, urls, tmp_path, server):
    zel(f"""
      local s = require "zel.ogc".wms(arg[1])
      s:map{{layers = "{NAME}", bbox = {{0, 40, 20, 50}}, width = 200, to = "map.png"}}
    """, urls[server])
    assert picture(tmp_path / "map.png")[1].std() > 5


# What a server refuses, as if its capabilities had been read long ago: code, and its words.
WORDS = {
    "MapServer": ["LayerNotDefined|Invalid layer(s) given", "StyleNotDefined|Style (blue) not defined on layer.",
                  "InvalidSRS InvalidCRS|", "InvalidFormat|"],
    "QGIS": ["LayerNotDefined|The layer 'atlantis' does not exist.", "StyleNotDefined|Style 'blue' does not exist",
             "InvalidSRS InvalidCRS|RS is not valid", "InvalidFormat|The format 'image/none' from FORMAT is not supported."],
    "MapProxy": ["LayerNotDefined|unknown layer: atlantis", "StyleNotDefined|unsupported styles: blue",
                 "InvalidSRS InvalidCRS|rs: EPSG:99999", "InvalidFormat|unsupported image format: image/none"],
}


@SERVERS
@pytest.mark.parametrize("version", ["1.1.1", "1.3.0"])
def test_refusals_in_the_servers_words(zel, urls, tmp_path, server, version):
    done = zel("""
      local s = require "zel.ogc".wms(arg[1], {version = arg[2]})
      local earth = s.layer.earth
      s.layer.atlantis = setmetatable({name = "atlantis"}, {__index = earth})
      table.insert(earth.styles, {name = "blue"})
      table.insert(earth.crs, "EPSG:99999")
      table.insert(s.formats, "image/none")
      for _, o in ipairs{{layers = "atlantis"}, {layers = "earth", styles = "blue"},
                         {layers = "earth", crs = "EPSG:99999"}, {layers = "earth", format = "image/none"}} do
        o.bbox, o.width, o.to = {0, 0, 10, 10}, 100, "map.png"
        local done, why = pcall(s.map, s, o)
        print(done, why.code, why.text)
        assert(tostring(why):find(why.text, 1, true))
      end
    """, urls[server], version)
    for line, wanted in zip(done.out.splitlines(), WORDS[server], strict=True):
        failed, code, text = line.split("\t")
        codes, words = wanted.split("|")
        assert failed == "false" and code in codes.split() and words in text and text
    assert not list(tmp_path.glob("*map.png*"))


def test_what_is_at_a_place(zel, urls):
    """QGIS Server speaks JSON, and gets a table out of it."""
    done = zel("""
      for _, version in ipairs{"1.1.1", "1.3.0"} do
        local s = require "zel.ogc".wms(arg[1], {version = version})
        local text, found = s:info{layers = "places", lon = 8.54, lat = 47.37}
        print(#text > 0, found.features[1].properties.name)
      end
    """, urls["QGIS"])
    assert done.out == "true\tZürich\n" * 2


def test_tiles_with_tables_of_colours(zel, urls, ogc, tmp_path):
    """MapProxy's pictures have a table of colours each; joined they are one picture without seams."""
    zel('require "zel.ogc".wms(arg[1], {quiet = true}):map{layers = "earth", bbox = {-180, -90, 180, 90}, width = 1500, '
        'tile = 500, to = "world.vrt"}', urls["MapProxy"])
    world = gdal.Open(str(tmp_path / "world.vrt")).ReadAsArray()[:3].astype(int)
    source = gdal.Translate("", str(ogc.data / "earth.tif"), format="MEM", width=1500, height=750, resampleAlg="average")
    assert len(list(tmp_path.glob("world.tiles/[0-9]*.png"))) == 6 and abs(world - source.ReadAsArray()).mean() < 6

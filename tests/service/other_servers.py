"""Further servers of maps for the tests of maps: QGIS Server and MapProxy, which take long to install.

scripts/check_servers.sh names them in MAP_SERVERS.
"""

import contextlib
import http.client
import os
import signal
import socket
import subprocess
import sys
import time

from conftest import PATIENCE

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
        deadline = time.monotonic() + PATIENCE
        while True:
            assert time.monotonic() < deadline and process.poll() is None, (directory / "server.log").read_text()
            with contextlib.suppress(OSError), contextlib.closing(
                    http.client.HTTPConnection("127.0.0.1", port, timeout=PATIENCE)) as connection:
                connection.request("GET", path + "?SERVICE=WMS&REQUEST=GetCapabilities")
                if connection.getresponse().status == 200:
                    break
            time.sleep(0.1)
        yield f"http://127.0.0.1:{port}{path}"
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()


@contextlib.contextmanager
def map_servers(names, ogc, directory):
    """The URL of each server's maps, by its name. All of them show the same raster."""
    with contextlib.ExitStack() as ends:
        urls = {"MapServer": ogc.regions}
        if "QGIS" in names:
            project = ogc.data.parent / "project.qgs"
            subprocess.run([sys.executable, "-c", QGIS_PROJECT], cwd=ogc.data, check=True,
                           env=os.environ | {"QT_QPA_PLATFORM": "offscreen"})
            urls["QGIS"] = ends.enter_context(serving(
                directory, ["qgis_mapserver", "-p", str(project), "127.0.0.1:PORT"], "/ows/"))
        if "MapProxy" in names:
            (directory / "mapproxy.yaml").write_text(MAPPROXY.format(systems=SYSTEMS, url=ogc.regions))
            urls["MapProxy"] = ends.enter_context(serving(
                directory, ["mapproxy-util", "serve-develop", "-b", "127.0.0.1:PORT", "mapproxy.yaml"], "/service"))
        yield urls

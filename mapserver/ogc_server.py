"""MapServer as a CGI program of lighttpd, with maps (WMS) and coverages (WCS) of the Earth."""

import pathlib
import shutil

from osgeo import gdal

from mapserver.lighttpd import Lighttpd

gdal.UseExceptions()

PICTURE = "/usr/share/xplanet/images/earth.jpg"
DEFINITIONS = pathlib.Path(__file__).resolve().parent / "data"
SEASONS = {"2024-01-01": 100, "2024-07-01": 200}

CONFIG = """CONFIG
  MAPS
    earth "{data}/earth.map"
    regions "{data}/regions.map"
    inspire "{data}/inspire.map"
  END
END
"""


def make_data(directory):
    """earth.tif (three bands), relief.tif (heights of -500 to 8000 m), seasons.shp (two rasters and their times).

    Everything covers the whole Earth in EPSG:4326; pacific.vrt goes round it twice. The values come from the bands of
    the picture.
    """
    directory.mkdir()
    for definition in DEFINITIONS.iterdir():
        shutil.copy(definition, directory)

    world = {"outputSRS": "EPSG:4326", "outputBounds": [-180, 90, 180, -90], "creationOptions": ["TILED=YES"]}
    gdal.Translate(str(directory / "earth.tif"), PICTURE, **world)

    gdal.Translate(str(directory / "again.tif"), PICTURE, **world | {"outputBounds": [180, 90, 540, -90]})
    gdal.BuildVRT(str(directory / "pacific.vrt"), [str(directory / name) for name in ("earth.tif", "again.tif")])

    def numbers(path, band, low, high):
        gdal.Translate(str(path), PICTURE, **world, bandList=[band], outputType=gdal.GDT_Int16,
                       width=720, height=360, scaleParams=[[0, 255, low, high]])

    numbers(directory / "relief.tif", 1, -500, 8000)
    corners = "-180 -90,180 -90,180 90,-180 90,-180 -90"
    rows = ["location,time,WKT"]
    for time, brightest in SEASONS.items():
        season = directory / f"season-{time}.tif"
        numbers(season, 2, 0, brightest)
        rows.append(f'{season},{time},"POLYGON(({corners}))"')
    (directory / "seasons.csv").write_text("\n".join(rows) + "\n")
    gdal.VectorTranslate(str(directory / "seasons.shp"), str(directory / "seasons.csv"), format="ESRI Shapefile",
                         selectFields=["location", "time"], dstSRS="EPSG:4326", reproject=False)


class OgcServer(Lighttpd):
    """Lighttpd with MapServer as CGI program: both kinds of service, by every way of access of the web server.

    service         URL of the first service, as a user would write it
    secure_service  the same over TLS
    regions         URL of a second service, with what is hard for clients
    inspire         URL of an INSPIRE view service, with names that must be escaped
    data            directory of the rasters, see make_data
    """

    def __init__(self, directory):
        directory = pathlib.Path(directory).resolve()
        self.data = directory / "data"
        make_data(self.data)
        (directory / "mapserver.conf").write_text(CONFIG.format(data=self.data))
        super().__init__(directory, {"MAPSERVER_CONFIG_FILE": str(directory / "mapserver.conf")})
        (self.root / "cgi-bin" / "mapserv").symlink_to("/usr/lib/cgi-bin/mapserv")
        self.service = self.url + "/cgi-bin/mapserv?map=earth"
        self.regions = self.url + "/cgi-bin/mapserv?map=regions"
        self.inspire = self.url + "/cgi-bin/mapserv?map=inspire"
        self.secure_service = self.tls_url + "/cgi-bin/mapserv?map=earth"

    def variables(self):
        """The server as docs/guide.md names it: variables of the environment."""
        return {"OGC_SERVER_URL": self.service, "GUARDED_URL": f"{self.url}/basic/cgi-bin/mapserv?map=earth",
                "SECURE_URL": self.secure_service, "AUTHORITY": str(self.ca)}

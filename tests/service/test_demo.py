"""The example scripts against a real server: what arrives is the picture and the numbers that the server has."""

import pytest
from osgeo import gdal

from conftest import SOURCE
from mapserver.ogc_server import SEASONS

gdal.UseExceptions()


def fetched(run):
    """The file that an example names in its last line."""
    return run.out.splitlines()[-1].split(": ", 1)[1]


def sampled(path, columns, rows):
    """The pixels in the middle of the cells of a coarser grid, as the server samples them."""
    data = gdal.Open(str(path)).ReadAsArray()
    height, width = data.shape[-2:]
    row_step, column_step = height // rows, width // columns
    return data[..., row_step // 2::row_step, column_step // 2::column_step]


def test_map(zel, ogc):
    run = zel(SOURCE / "examples" / "wms_map.lua", ogc.service, "earth")
    image = gdal.Open(fetched(run))
    assert image.GetDriver().ShortName == "PNG"
    assert (image.ReadAsArray() == sampled(ogc.data / "earth.tif", 512, 256)).all()
    assert "Die Erde – la Terre – Земля: world" in run.out


@pytest.mark.parametrize("coverage, source, width, height", [
    ("earth", "earth.tif", 1024, 512),
    ("relief", "relief.tif", 720, 360),
    ("seasons", f"season-{min(SEASONS)}.tif", 720, 360),
])
def test_coverage(zel, ogc, coverage, source, width, height):
    image = gdal.Open(fetched(zel(SOURCE / "examples" / "wcs_coverage.lua", ogc.service, coverage)))
    assert image.GetDriver().ShortName == "GTiff"
    assert image.GetGeoTransform() == pytest.approx((-180, 360 / width, 0, 90, 0, -180 / height))
    assert (image.ReadAsArray() == sampled(ogc.data / source, width, height)).all()


@pytest.mark.parametrize("script, arguments, said", [
    ("wms_map.lua", "http://localhost:1/nobody", "No Web Map Service answered at http://localhost:1/nobody?"),
    ("wms_map.lua", "{service} atlantis", "The service has no layer atlantis, only world, "),
    ("wcs_coverage.lua", "http://localhost:1/nobody", "No Web Coverage Service answered at http://localhost:1/"),
    ("wcs_coverage.lua", "{service} atlantis", "The service does not describe atlantis"),
    ("wcs_coverage.lua", "", "Usage: zel wcs_coverage.lua"),
    ("wcs_describe.lua", "{service}", "seasons: Seasons, -180 -90 to 180 90, from 2024-01-01 to 2024-07-01\n3 coverages"),
    ("wcs_describe.lua", "{service} earth seasons",
     "  Grid             0 0 to 2047 1023, axes x, y, from -180 90 by 0.17578125 0, 0 -0.17578125\n"),
    ("wcs_describe.lua", "{service} atlantis", "The service gave no description of atlantis"),
    ("wms_layers.lua", "{service}", "        Places (Städte, 都市) [places], queryable, -180 -90 180 90\n"),
    ("wms_layers.lua", "{service} zones", "  STYLE: NAME bold, TITLE Red areas, "),
    ("wms_layers.lua", "{service} atlantis", "has no layer atlantis"),
    ("wms_layers.lua", "nowhere.xml", "Passed in FROM_FILE does not exist: nowhere.xml"),
    ("wms_feature_info.lua", "{service} places 8.6 47.4", "name = 'Zürich'"),
    ("wms_feature_info.lua", "{service} earth 8.6 47.4", "answers no questions about layer earth"),
    ("wms_feature_info.lua", "{service} places 8.6 47.4 text/html", "no feature format text/html, only text/plain, "),
    ("wms_feature_info.lua", "{service} places here", "Usage: "),
])
def test_what_is_said(zel, ogc, script, arguments, said):
    run = zel(SOURCE / "examples" / script, *arguments.format(service=ogc.service).split(), ok=False,
              env={"OGC_SERVER_URL": ""})
    assert said in run.out + run.err
    assert run.status == 0 or run.err

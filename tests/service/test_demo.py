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


@pytest.mark.parametrize("script, arguments, message", [
    ("wms_map.lua", ["http://localhost:1/nobody"], "No Web Map Service answered at http://localhost:1/nobody?"),
    ("wms_map.lua", ["{service}", "atlantis"], "The service has no layer atlantis, only world, "),
    ("wcs_coverage.lua", ["http://localhost:1/nobody"], "No Web Coverage Service answered at http://localhost:1/"),
    ("wcs_coverage.lua", ["{service}", "atlantis"], "The service does not describe atlantis"),
    ("wcs_coverage.lua", [], "Usage: zel wcs_coverage.lua"),
])
def test_what_cannot_be_fetched_is_said(zel, ogc, script, arguments, message):
    run = zel(SOURCE / "examples" / script, *(word.format(service=ogc.service) for word in arguments), ok=False,
              env={"OGC_SERVER_URL": ""})
    assert run.status == 1
    assert message in run.err

"""The example scripts against a real server: what arrives is the picture and the numbers that the server has."""

import re

import pytest
from osgeo import gdal

from conftest import SOURCE
from mapserver.ogc_server import SEASONS

gdal.UseExceptions()


@pytest.fixture
def example(zel):
    """example(name, *arguments): runs an example."""
    return lambda name, *arguments, **options: zel(SOURCE / "examples" / name, *arguments, **options)


@pytest.mark.parametrize("coverage, source, time", [
    ("earth", "earth.tif", []), ("relief", "relief.tif", []), ("seasons", f"season-{min(SEASONS)}.tif", [min(SEASONS)])])
def test_coverage_mean(example, ogc, tmp_path, coverage, source, time):
    """The file holds the numbers of the source, and what is printed is their mean."""
    run = example("coverage_mean.lua", ogc.service, coverage, *time)
    fetched, wanted = (gdal.Open(str(path)).ReadAsArray() for path in (tmp_path / "coverage.tif", ogc.data / source))
    assert (fetched == wanted).all()
    printed = [[float(one) for one in found] for found in re.findall(r"Band \d: mean (.+), from (.+) to (.+)", run.out)]
    bands = wanted if wanted.ndim == 3 else wanted[None]
    for values, band in zip(printed, bands, strict=True):
        assert values == pytest.approx([band.mean(), band.min(), band.max()], abs=0.01)


def test_maps(example, zel, ogc, tmp_path):
    """A plain one is that of the source, one of the national grid covers the region, one of each season is as bright."""
    assert example("plain_methods.lua", ogc.service, "earth").out.endswith("Map: plain.png\n")
    source = gdal.Translate("", str(ogc.data / "earth.tif"), format="MEM", width=512, height=256, resampleAlg="average")
    assert abs(gdal.Open(str(tmp_path / "plain.png")).ReadAsArray().astype(int) - source.ReadAsArray()).mean() < 12

    example("region_map.lua", ogc.regions, "earth", "EPSG:31467", 8, 47.5, 10, 49, "region.png")
    region = gdal.Warp("", str(tmp_path / "region.png"), format="MEM", dstSRS="EPSG:4326", outputBounds=[8, 47.5, 10, 49],
                       dstAlpha=True)
    assert "31467" in gdal.Open(str(tmp_path / "region.png")).GetProjection()
    assert (region.GetRasterBand(4).ReadAsArray() == 255).all()

    series = zel(f"function zel.sleep(seconds) print(seconds) end dofile '{SOURCE}/examples/time_series.lua'", ogc.service,
                 "seasons", 200)
    assert re.fullmatch("(0.2\n.+png\n){2}", series.out)
    dark, bright = (gdal.Open(str(tmp_path / f"seasons-{time}.png")).ReadAsArray() for time in SEASONS)
    assert dark.shape == bright.shape == (3, 100, 200) and dark.mean() < bright.mean()


def test_all_that_is_said(example, ogc):
    """Lines with a script and its arguments, each followed by all that it prints and its status."""
    recorded, told = (SOURCE / "tests/service/documents/examples.txt").read_text(), ""
    (ogc.root / "atlas.xml").write_bytes((SOURCE / "tests/service/documents/atlas.xml").read_bytes())
    for line in re.findall("(?m)^> .*", recorded):
        script, *arguments = line[2:].format(service=ogc.service, url=ogc.url).split()
        run = example(script, *arguments, ok=False)
        told += f"{line}\n{run.out}{run.err}status {run.status}\n"
    told = re.sub(" +\n", "\n", told.replace(str(SOURCE), "").replace(ogc.url, "URL"))
    assert told == recorded

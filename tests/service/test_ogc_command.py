"""The command zel-ogc, as people type it."""

import os
import shlex
import signal
import subprocess
import time
import urllib.request

import pytest
from osgeo import gdal

from conftest import BUILD, PATIENCE
from responder import HOLD, Responder, answer

gdal.UseExceptions()


@pytest.fixture
def zel_ogc(tmp_path, ogc):
    """zel_ogc(line): runs a command line, in which SERVICE, SECURE and REGIONS are URLs."""
    urls = {"SERVICE": ogc.service, "SECURE": ogc.secure_service, "REGIONS": ogc.regions}

    def run(line, **env):
        words = [urls.get(word, word) for word in shlex.split(line)]
        return subprocess.run([BUILD / "zel-ogc", *words], cwd=tmp_path, capture_output=True, text=True, timeout=PATIENCE,
                              stdin=subprocess.DEVNULL, env=os.environ | {"ZEL_USER_DIR": str(tmp_path / "user")} | env)
    return run


# A command line, its status, what is on standard output, and what on standard error.
LINES = [
    ("info SECURE --ca nosuch", 1, "", "Curl Error Code = 77"),
    ("--completion bash", 0, "complete -F _zel-ogc", ""),
    ("info SERVICE earth relief --wcs", 0, "      size: 720, 360\n", ""),
    ("map SERVICE earth places --bbox -30 30 60 75 --to e.png", 0, "e.png\n", "1024 x 512, -30 30 60 75 in EPSG:4326"),
    ("map REGIONS germany --bbox 7,47,12,55 --size 64x64 --quiet", 0, "germany.png\n", ""),
    ("map REGIONS germany --bbox 7,47,12,55 --size 64x64", 0, "germany.png\n", "it may be empty"),
    ("feature SERVICE places 8.6 47.4", 0, "name = 'Zürich'", ""),
    ("feature SERVICE places -21.9 64.15 --wms 1.1.1", 0, "name = 'Reykjavík'", ""),
    ("coverage SERVICE relief --res 1 --to r.tif", 0, "r.tif\n", "360 x 180, "),
    ("coverage SERVICE relief --time 2024", 1, "", "has no times"),
    ("coverage SERVICE seasons", 1, "", "several times, say which: 2024-01-01, 2024-07-01"),
    ("coverage SERVICE seasons --time 2024-07-01", 0, "seasons.tiff\n", ""),
]


@pytest.mark.parametrize("line, status, out, err", LINES)
def test_lines(zel_ogc, line, status, out, err):
    done = zel_ogc(line)
    assert done.returncode == status and out in done.stdout and err in done.stderr
    assert "traceback" not in done.stderr and (out != "" or done.stdout == "")
    assert status != 1 or done.stderr.count("\n") == 1


def test_large_map_goes_on_where_it_was_stopped(zel_ogc, zel_running, tmp_path, ogc):
    """Tiles that are there are not fetched again, and those of another request are not taken."""
    def tiles():
        return {path.name: path.stat().st_mtime_ns for path in tmp_path.glob("world.tiles/[0-9]*.png")}

    def interrupted(line, ready):
        run = zel_running("", *line.replace("REGIONS", ogc.regions).split(), program="zel-ogc")
        while not ready() and run.poll() is None:
            time.sleep(0.01)
        run.send_signal(signal.SIGINT)
        out, err = run.communicate(timeout=PATIENCE)
        assert run.returncode in (130, -signal.SIGINT) and out == "" and "traceback" not in err
        return err

    def pass_on_two_maps(head):
        asked.append(head.split()[1])
        if sum("=GetMap" in url for url in asked) > 2:
            return [HOLD]
        with urllib.request.build_opener(urllib.request.ProxyHandler({})).open(asked[-1]) as said:
            return [answer(said.read(), said.headers["Content-Type"])]

    asked, line = [], "map REGIONS earth --size 2400 --tile 600 --to world.vrt"
    with Responder([HOLD]) as silent, Responder(pass_on_two_maps) as proxy:
        for pauses in (1, 2, 4):
            interrupted(f"info {silent.url}wms", iter([False] * pauses + [True]).__next__)
        assert "zel-ogc: interrupted" in interrupted(f"{line} --proxy {proxy.url}", lambda: len(asked) > 3)
    before = tiles()
    assert len(before) == 2 and not (tmp_path / "world.vrt").exists()
    assert zel_ogc(line).stdout == "world.vrt\n" and len(tiles()) == 8 and before.items() <= tiles().items()
    world = gdal.Open(str(tmp_path / "world.vrt"))
    assert world.GetGeoTransform() == pytest.approx((-180, 0.15, 0, 90, 0, -0.15))
    source = [gdal.Translate("", str(ogc.data / "earth.tif"), format="MEM", width=width, height=width // 2,
                             resampleAlg="average").ReadAsArray() for width in (2400, 1200)]
    assert abs(world.ReadAsArray().astype(int) - source[0]).max() <= 1
    assert zel_ogc(line.replace("2400", "1200") + " --format 'image/png; mode=8bit'").returncode == 0
    colours = gdal.Open(str(tmp_path / "world.vrt")).ReadAsArray()
    assert len(list(tmp_path.glob("world.tiles/*.pgw"))) == 2 and colours.shape == (4, 600, 1200)
    assert abs(colours[:3].astype(int) - source[1]).mean() < 8

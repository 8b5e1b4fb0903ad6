"""The prompt and what helps there: completion, zel.help and zel.show."""

import os
import pty
import select
import subprocess

import pytest

from conftest import BUILD

OBJECTS = """
  wms, wcs = zel.new("ZELnetOGCWMS"), zel.new("ZELnetOGCWCS")
  layers = {{NAME = "x", STYLE = {{TITLE = "y"}}}}
"""


@pytest.mark.parametrize("before, word, names", [
    ("", "pri", "print"), ("", "untI", "until"), ("zel.", "h", "help"), ("nothing.", "", ""),
    ("layers[1].NAME:", "up", "upper"),
    ("wms:", "getm", "GetMap"), ("wcs:", "getm", ""), ("print(wcs:", "De", "DescribeCoverage"), ("wms:", "init", ""),
    ("unknown:", "GetMap", "GetMap"), ("wms:", "clos", "close"),
    ("wms:GetLayers{", "", "COUNT INDEX NUMBER"), ("wms:GetLayers({INDEX = 1, ", "n", "NUMBER"),
    ("wms:SetProperty{\nURL_PORT = 80, ", "url_h", "URL_HOSTNAME"), ("wms:SetProperty{URL_PORT = ", "URL_H", ""),
    ('wms:GetProperty{"', "MAP", "MAP_FILENAME"), ('wcs:GetProperty{"', "MAP", ""),
    ('x = zel.new("', "", "ZELnetOGCWCS ZELnetOGCWMS"), ('x = zel.new("ZELnetOGCWCS", {', "COV", "COVERAGE_FILENAME"),
    ('zel.help("', "getf", "GetFeatureInfo"), ('wms:ParseUrl("', "p", ""),
    ("layers[1].", "", "NAME STYLE"), ("layers[1].STYLE[1].", "T", "TITLE"),
])
def test_completion(zel, before, word, names):
    out = zel(OBJECTS + 'print(table.concat(require "zel.complete"(arg[1], arg[2]), " "))', before, word).out
    assert out == names + "\n"


class Prompt:
    """The runner at a terminal."""

    def __init__(self, user_dir):
        self._master, terminal = pty.openpty()
        self._process = subprocess.Popen([BUILD / "zel"], stdin=terminal, stdout=terminal, stderr=terminal,
                                         env=os.environ | {"ZEL_USER_DIR": str(user_dir), "TERM": "dumb"})
        os.close(terminal)
        self.read_until("> ")

    def read_until(self, text):
        seen = ""
        while text not in seen:
            assert select.select([self._master], [], [], 20)[0], seen
            seen += os.read(self._master, 4096).decode(errors="replace")
        return seen

    def type(self, keys, answer):
        os.write(self._master, keys.encode())
        return self.read_until(answer)

    def end(self):
        os.write(self._master, b"\x04")
        assert self._process.wait(20) == 0
        os.close(self._master)


def test_tab_completes_and_history_is_kept(tmp_path):
    prompt = Prompt(tmp_path)
    prompt.type('wms = zel.n\t("ZELnetOGCWM\t)\n', "\r\n> ")
    prompt.type("wms:SetProperty{URL_PORT = 8080,\n", ">> ")
    prompt.type('URL_HOSTN\t= "here"}\n', "\r\n> ")
    assert "here" in prompt.type('wms:GetProperty{"URL_H\t}.URL_HOSTNAME\n', "\r\nhere\r\n> ")
    prompt.end()

    again = Prompt(tmp_path)
    again.type("\x10", 'wms:GetProperty{"URL_HOSTNAME"}.URL_HOSTNAME')
    again.type("\x01\x0b40 + 2\n", "\r\n42\r\n> ")
    again.end()


@pytest.mark.parametrize("name, shown", [
    ("'getMap'", ["GetMap\n", "file = wms:GetMap(query)", "    local wms <close> ="]),
    ("'wms:GetLayers'", ["GetLayers\n", "  NUMBER  how many; default all that follow\n"]),
    ("'url_port'", ["Properties\n  URL_PORT  text or number  80  port; "]),
    ("'tags'", ["zel.tags(structure)  the tags of a structure"]),
    ("'zel.show'", ["zel.show(value)"]),
    ("'status routine'", ["Status routine\n", "CALLBACK_FUNCTION"]),
    ("", ["  GetLayers, GetMap, GetFeatureInfo\n", "WMS_VERSION", "Errors people meet"]),
    ("'nosuch'", ["There is nothing about nosuch; zel.help() lists the names.\n"]),
])
def test_help(zel, name, shown):
    out = zel(f"zel.help({name})").out
    for text in shown:
        assert text in out
    assert "](" not in out and "|" not in out
    assert [line for line in out.splitlines() if len(line) > 100 and not line.startswith("    ")] == []


def test_show(zel, ogc):
    out = zel("""
      local wms <close> = zel.new("ZELnetOGCWMS")
      wms:ParseUrl(arg[1])
      wms:GetCapabilities()
      zel.show(wms:GetLayers()[3])
      local list = {"a", "", 3, {b = "\\27[2J"}}
      list.self = list
      zel.show(list)
      zel.show("text")
    """, ogc.service).out
    assert "LAYER: 2\nPARENT: 1\nLEVEL: 3\n" in out and "\nSRS: EPSG:4326, EPSG:3857, CRS:84\n" in out
    assert "\nBOUNDING_BOX:\n  [1]:\n    SRS: EPSG:4326\n" in out and "    (empty: CRS, RESX, RESY)\n" in out
    assert out.endswith("[1]: a\n[3]: 3\n[4]:\n  b:  [2J\nself: (itself)\ntext\n")

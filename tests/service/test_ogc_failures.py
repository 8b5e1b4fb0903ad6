"""The library zel.ogc and servers that say what they are told: the server's own words, tries that are repeated, odd
services, all that is read and sent, defaults."""

import json
import os
import re
import shlex
import signal
import time

import pytest

from conftest import SOURCE, limited
from responder import HEAD, Responder


def answer(body, kind="text/xml", status="200 OK", more=""):
    body = body.encode()
    return [HEAD, f"HTTP/1.1 {status}\r\nContent-Type: {kind}\r\nContent-Length: {len(body)}\r\n{more}"
                  "Connection: close\r\n\r\n".encode() + body]


def capabilities(layers, version="1.3.0", service="<Service><Title>t</Title></Service>", picture="image/png"):
    root = "WMS_Capabilities" if version == "1.3.0" else "WMT_MS_Capabilities"
    return answer(f'<{root} version="{version}">{service}<Capability><Request><GetMap><Format>{picture}</Format></GetMap>'
                  f"</Request>{layers}</Capability></{root}>")


LAYER = "<Layer><Name>a</Name><CRS>EPSG:4326</CRS><SRS>EPSG:4326</SRS></Layer>"
SE = '<ServiceExceptionReport xmlns="http://www.opengis.net/ogc">{}</ServiceExceptionReport>'
# What servers answer, and the text, code and locator to be read from it.
REFUSALS = {
    "plain": (answer(SE.format('<ServiceException code="LayerNotDefined">no\n  layer</ServiceException>')),
              "no layer|LayerNotDefined|nil"),
    "by status 400": (answer(SE.format('<ServiceException code="X" locator="BBOX">&lt;bad&gt; box</ServiceException>'),
                             status="400 Bad Request"), "<bad> box|X|BBOX"),
    "by status 500, in CDATA": (answer(SE.format("<ServiceException><![CDATA[a & b]]></ServiceException>"),
                                       status="500 Oops"), "a & b|nil|nil"),
    "the first of two": (answer("\ufeff\n" + SE.format("<ServiceException>1</ServiceException><ServiceException>2</ServiceException>")),
                         "1|nil|nil"),
    "of newer services": (answer('<ows:ExceptionReport xmlns:ows="http://www.opengis.net/ows/1.1"><ows:Exception '
                                 'exceptionCode="Y" locator="z"><ows:ExceptionText>new</ows:ExceptionText></ows:Exception>'
                                 '</ows:ExceptionReport>', status="400 Bad Request"), "new|Y|z"),
    "no refusal": (answer("<html>gone</html>", "text/html", "404 Not Found"), "nil|nil|nil"),
    "cut": (answer("<ServiceExceptionReport><ServiceException>x", status="500 Oops"), "nil|nil|nil"),
}


@pytest.mark.parametrize("case", REFUSALS)
def test_words_of_a_refusal(zel, tmp_path, case):
    """They are fields of the error, its text, and what zel.refusal gives for the plain methods."""
    refusal, words = REFUSALS[case]
    with Responder(capabilities(LAYER), refusal) as server:
        done = zel("""
          local s = require "zel.ogc".wms(arg[1] .. "wms", {retries = 0, version = "1.3.0"})
          local done, why = pcall(s.map, s, {layers = "a", bbox = {0, 0, 1, 1}, to = "map.png"})
          print(("%s|%s|%s"):format(why.text, why.code, why.locator))
          print((tostring(why):gsub("\\n", " ")))
          pcall(s.object.GetMap, s.object, "LAYERS=a")
          local refusal = zel.refusal(s.object) or {}
          print(("%s|%s|%s"):format(refusal.text, refusal.code, refusal.locator))
        """, server.url)
    fields, text, plain = done.out.splitlines()
    assert fields == plain == words
    assert words.startswith("nil") or "script.lua:3: the server refused: " + words.split("|")[0] in text
    assert not list(tmp_path.glob("*map*")) and not list(tmp_path.glob(".*map*"))


PICTURE = [HEAD, b"HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nContent-Length: 4\r\n\r\n\x89PNG"]


def busy(status, seconds=0):
    return answer("", status=f"{status} Busy", more=f"Retry-After: {seconds}\r\n")


def test_tries_again_what_may_pass(zel):
    """After the pause that is asked for, or a growing one, besides that between all requests."""
    with Responder(capabilities(LAYER), busy(503), busy(429, 1), PICTURE, busy(502), busy(504), busy(404)) as server:
        done = zel("""
          local s = require "zel.ogc".wms(arg[1] .. "wms", {retries = 2, pause = 0.1})
          local function try(o)
            local began = zel.clock()
            local done, why = pcall(s.map, s, {layers = "a", bbox = {0, 0, 1, 1}})
            print(done or why.message:match("%(%d+%)"), zel.clock() - began)
          end
          try() try()
          s.object:SetProperty{URL_PORT = 1}
          s.options.retries = 1
          try()
          print(require("zel.ogc.service").pause_after(s.object, 4), 0)
        """, server.url)
    results, seconds = zip(*(line.split("\t") for line in done.out.splitlines()))
    assert results == ("true", "(404)", "nil", "8.0") and float(seconds[0]) >= 1.3 and float(seconds[1]) >= 0.3
    assert re.findall(r"Trying again in (\d+) s", done.err) == ["0", "1", "0", "0", "1"] and len(server.requests) == 7


@pytest.mark.parametrize("pause", ["zel.sleep(60)", "require 'zel.ogc'.wms(arg[1] .. 'wms')"])
def test_waiting_ends_with_an_interrupt(zel_running, pause):
    with Responder(busy(503, 86400)) as server:
        run = zel_running(f"io.stdout:write('x'):flush() {pause}", server.url)
        run.stdout.read(1)
        assert "wms" not in pause or "again in 60 s" in run.stderr.readline()
        time.sleep(0.2)
        run.send_signal(signal.SIGINT)
        assert "interrupted!" in run.communicate(timeout=30)[1]


# Layers of odd services, code that prints something of them, and what; some with the picture that they send.
ODD = {
    "no service section": (capabilities(LAYER, service=""), "tostring(s.title), #s.layers", "nil\t1"),
    "no layers": (capabilities(""), "#s.layers, select(2, pcall(s.map, s, {layers = 'a'})).message",
                  '0\tthere is no layer "a", nor any other'),
    "no named layers": (capabilities("<Layer><Title>x</Title></Layer>"),
                        "s.layers[1].title, tostring(s.layers[1].name), #s.layers[1].styles", "x\tnil\t0"),
    "no boxes": (capabilities(LAYER), "s.layers[1].box, select(2, pcall(s.map, s, {layers = 'a'})).message",
                 "nil\tthe service gives no box in EPSG:4326 for layer a: say which with bbox"),
    "two names alike": (capabilities("<Layer opaque='1'><Attribution><Title>w</Title></Attribution><Layer><Name>a</Name><Title>1"
                                     "</Title></Layer><Layer><Name>a</Name></Layer></Layer>"),
                        "s.layer.a.title, #s.layers[1].children, s.layers[1].opaque, s.layers[1].attribution", "1\t2\ttrue\tw"),
    "scales, times": (capabilities("<Layer><Name>a</Name><MinScaleDenominator>1000</MinScaleDenominator><MaxScaleDenominator>1e15"
                                   "</MaxScaleDenominator><CRS>EPSG:3857</CRS>"
                                   "<Dimension name='time' units='ISO8601'>2020,2021</Dimension></Layer>"),
                      "s.layer.a.scale.max, #s:map{layers = 'a', bbox = {0, 0, 1, 1}, time = '2022'}.notes, "
                      "#s:map{layers = 'a', bbox = {0, 0, 1, 1}, time = '2020/2021'}.notes", "nil\t2\t1"),
    "scale hints": (capabilities('<Layer><Name>a</Name><ScaleHint min="0.39598" max="3.9598"/></Layer>', "1.1.1"),
                    "('%.0f %.0f'):format(s.layer.a.scale.min, s.layer.a.scale.max)", "1000 10000"),
    "over the date line": (capabilities(
        "<Layer><Name>a</Name><CRS>EPSG:4326</CRS><CRS>EPSG:3832</CRS><EX_GeographicBoundingBox><westBoundLongitude>170"
        "</westBoundLongitude><eastBoundLongitude>-170</eastBoundLongitude><southBoundLatitude>-10</southBoundLatitude>"
        "<northBoundLatitude>10</northBoundLatitude></EX_GeographicBoundingBox></Layer>"),
        "s.layer.a.box[3], s:map{layers = 'a'}.box[3], ('%.0f'):format(s:map{layers = 'a', crs = '3832'}.box[3])",
        "-170\t190\t4452780"),
    "dimensions of 1.1.1": (capabilities(
        '<Layer><Name>a</Name><Dimension name="time" units="ISO8601"/><Extent name="time" default="2">1,2, 3</Extent></Layer>',
        "1.1.1"), "#s.layer.a.dimensions[1].values, s.layer.a.dimensions[1].default", "3\t2"),
    "limits": (capabilities(LAYER, service="<Service><LayerLimit>1</LayerLimit><MaxWidth>50</MaxWidth><MaxHeight>40</MaxHeight>"
                                           "</Service>"),
               "s:map{layers = 'a', bbox = {0, 0, 1, 1}, to = 'm.png'}.size[1], select(2, pcall(s.map, s, {layers = {'a', 'a'}}))"
               ".message", "40\tthe service draws at most 1 layers in one map, not 2"),
    "a small disk": (capabilities(LAYER), "select(2, pcall(s.map, s, {layers = 'a', bbox = {0, 0, 1, 1}, to = 'm.png'})).message",
                     "m.png.aux.xml cannot be written: File too large"),
    "an odd format": (capabilities(LAYER, picture="image/x"), "s:map{layers = 'a', bbox = {0, 0, 1, 1}}.format", "image/x"),
    "names of systems": (
        capabilities(LAYER), "(('urn:ogc:def:crs:EPSG:9.1:4 http://www.opengis.net/def/crs/EPSG/0/5 CRS:84 urn:ogc:def:crs:OGC::CRS83 "
        "IGNF:X'):gsub('%S+', function(name) return require 'zel.ogc.crs'.describe(name).definition end))",
        "EPSG:4 EPSG:5 OGC:CRS84 OGC:CRS83 IGNF:X"),
    "names that steer a terminal": (capabilities("<Layer><Name>a&#x9b;2J</Name></Layer>"),
                                    "select(2, pcall(s.map, s, {layers = 'b'})).message",
                                    'there is no layer "b"; there are: a 2J'),
    "a place, in JSON": (
        capabilities("<Request><GetFeatureInfo><Format>text/plain</Format><Format>application/json</Format></GetFeatureInfo>"
                     "</Request>" + LAYER.replace("<Layer>", "<Layer queryable='1'>")),
        "select(2, s:info{layers = 'a', lon = 1, lat = 2, pixel = 1}).features[1].name", "Z", answer(
            '{"features": [{"name": "Z"}]}', "application/json")),
    "many names": (capabilities(f"<Layer>{''.join(f'<Layer><Name>n{i}</Name></Layer>' for i in range(25))}</Layer>"),
                   "select(2, pcall(s.map, s, {layers = 'x'})).message:match('and %d+ more')", "and 5 more"),
    "no type": (capabilities(LAYER), "s:map{layers = 'a', bbox = {0, 0, 1, 1}, to = 'map'}.file", "map", answer("x", "")),
}


@pytest.mark.parametrize("case", ODD)
def test_odd_services(zel, case):
    document, code, printed, *picture = ODD[case]
    with Responder(document, *(picture or [PICTURE])) as server:
        done = zel(f"""
          local made, name = {{}}, os.tmpname
          function os.tmpname() made[#made + 1] = name() return made[#made] end
          local s = require 'zel.ogc'.wms(arg[1] .. 'wms', {{quiet = true}})
          print({code})
          for _, path in ipairs(made) do assert(not zel.is_file(path)) end
        """, server.url, preexec_fn=limited(700) if "disk" in case else None)
    assert done.out.strip() == printed


# A service of maps and one of coverages, with all that is read of them.
DOCUMENTS = SOURCE / "tests/service/documents"
ATLAS, RELIEF = ([answer((DOCUMENTS / f"{name}.xml").read_text()) for name in names]
                 for names in (["atlas"], ["relief", "relief-described"]))
def command(zel_running, url, line):
    """Runs a line of zel-ogc, in which URL is the server's. Returns its output."""
    words = shlex.split(line.replace("URL", url.replace("//", "//me@") + "s"))
    return zel_running("", *words, program="zel-ogc", errors="replace").communicate(timeout=30)[0]


@pytest.mark.parametrize("documents, line, known", [
    (ATLAS, "info URL b --json", "layer"), (RELIEF, "info URL --wcs --json", "coverages"),
    (RELIEF, "info URL c --wcs --json", "coverage")])
def test_all_that_is_known(zel_running, documents, line, known):
    with Responder(*documents) as server:
        said = json.loads(command(zel_running, server.url, line))
    assert said == json.loads((DOCUMENTS / f"{known}.json").read_text()) | {"url": server.url + "s"}


# What is asked for, by the command or from a script, and what then goes out to the server, or is said; with a world file.
QUERIES = [
    (ATLAS, "map URL b --style X --format PNG --transparent --bgcolor #ff8000 --time 2 --elevation 5 --dimension wave=6 --extra z=q "
            "--extra B=1,2 --size 40x30 --bbox .123456789 0 1 .5",
     "&LAYERS=b&STYLES=x&CRS=EPSG:4326&FORMAT=image/png&TRANSPARENT=TRUE&BGCOLOR=0xFF8000&TIME=2&ELEVATION=5&DIM_WAVE=6&B=1,2&z=q"
     "&BBOX=0,0.123456789,0.5,1&WIDTH=40&HEIGHT=30[ &]"),
    (ATLAS, "map URL a --crs 31467 --bbox -357 47 -345 55 --bbox-crs EPSG:4326 --to f.jpeg",
     r"&FORMAT=image/jpeg&BBOX=5236823\.4\d*,3386569\.8\d*,6097834\.4\d*,3614340\.9\d*&WIDTH=271&HEIGHT=1024 "
     r"(.|\n)*840\.48\d*\n0\n0\n-840\.83"),
    (ATLAS, "wms:map{layers = {'a', 'b'}, styles = {b = 'x'}, bbox = {0, 0, 1, 1}}", "&STYLES=,x&CRS=EPSG:31467&"),
    (ATLAS, "wms:map{layers = {'b', 'c, & d'}, crs = 'EPSG:31467', bbox = {0, 0, 1, 1}}", "&LAYERS=b,c%2C%20%26%20d&STYLES=,&"),
    (ATLAS, "wms:map{layers = 'b', crs = 'AUTO2:42001,1,9,50', bbox = {0, 0, 2, 1}, transparent = false}",
     "CRS=AUTO2:42001,1,9,50&.*TRANSPARENT=FALSE.*&BBOX=0,0,2,1&"),
    (ATLAS, "wms:map{layers = 'b', crs = 32661, bbox = {2e6, 1e6, 4e6, 15e5}, width = 4}", "&BBOX=1000000,2000000,1500000,4000000&WIDTH=4&HEIGHT=1 "),
    (ATLAS, "feature URL b 1.5 2.5 --count 3 --format TEXT/html --time 2",
     r"&STYLES=&CRS=EPSG:4326&FORMAT=image/png&TIME=2&BBOX=2\.2\d*,1\.2\d*,2\.7\d*,1\.7\d*&WIDTH=101&HEIGHT=101&QUERY_LAYERS=b"
     "&INFO_FORMAT=text/html&FEATURE_COUNT=3&I=50&J=50[ &]"),
    (ATLAS, "wms:info{layers = 'b', x = 100, y = 200, crs = 32661, pixel = 2}", "&BBOX=99,-1,301,201&.*&INFO_FORMAT=text/plain&F"),
    (ATLAS, "wms:info{layers = 'b', lon = 9, lat = 50, crs = 31467}", r"&BBOX=5512127\.\d*,3471794\.\d*,5568687\.\d*,3528354\."),
    (ATLAS, "wms:info{layers = 'b', lon = 1, lat = 2, x = 3}", "info wants a place"),
    (ATLAS, "wms:info{layers = 'b', lon = 1, lat = 2, pixel = 0}", "pixel must be more than 0"),
    ([capabilities(LAYER), answer("", status="401 No", more="WWW-Authenticate: Basic realm=x\r\n")],
     "wms:map{layers = 'a', bbox = {0, 0, 2, 1}}", "\nAuthorization: Basic bWU6cEBzcw==\r"),
    ([capabilities(LAYER, "1.1.1")], "wms:map{layers = 'a', bbox = {0, 0, 2, 1}}", "Version=1.1.1&.*&SRS=EPSG:4326&.*&BBOX=0,0,2,1&"),
    ([capabilities(LAYER, "1.1.0")], "wms:map{layers = 'a', crs = 2, bbox = {0, 0, 2, 1}}", "SRS=EPSG:2&"),
    ([answer(SE.format("<ServiceException>1.3.0?</ServiceException>"), status="400 Bad Request"), capabilities(LAYER, "1.1.1")],
     "wms:map{layers = 'a', bbox = {0, 0, 2, 1}}", "Version=1.1.1&.*&SRS=EPSG:4326&.*&BBOX=0,0,2,1&"),
    (RELIEF, "coverage URL c --crs 3857 --bbox 0 0 2 1 --bbox-crs EPSG:4326 --res 9e3 --interpolation near --extra k=v --time 1 "
             "--to f.jpeg", r"&COVERAGE=c&CRS=EPSG:3857&BBOX=0,0,222638.9\d*,111325.1\d*&RESX=9000&RESY=9000&FORMAT=JPEG&TIME=1"
     r"&INTERPOLATION=near&k=v[ &](.|\n)*8905\.559\d*\n0\n0\n-9277\.095"),
    (RELIEF, "coverage URL c --size 4 --format hdf", "&CRS=EPSG:4326&BBOX=0,1,4,3&WIDTH=4&HEIGHT=2&FORMAT=HDF&TIME=1/2/P1[ &]"),
    (RELIEF, "wcs:get{name = 'c', bbox = {0, 1, .001, 3}, time = {'1', '2'}, ranges = {depth = {1, 3}}}",
     "&WIDTH=20000&HEIGHT=4&FORMAT=HDF&TIME=1,2&depth=1,3[ &]"),
    (RELIEF, "wcs:get{name = 'c', crs = '3857', bbox = {0, 0, 2, 1}}", "&WIDTH=1024&HEIGHT=512&"),
    (RELIEF, "wcs:get{name = 'c'}", "80000000 x 4 cells: say how many"),
    (RELIEF, "wcs:get{name = 'c', resx = 1, width = 4}", "give either width"),
    (RELIEF, "wcs:get{name = 'c', resy = .5}", "&RESX=0.5&RESY=0.5&"),
    (RELIEF, "wcs:get{name = 'c', resx = 1, resy = .5, ranges = {DEPTH = {min = 0, max = 8, step = 2}}}",
     "&RESX=1&RESY=0.5&.*&depth=0/8/2[ &]"),
]


@pytest.mark.parametrize("documents, line, query", QUERIES)
def test_queries(zel, zel_running, tmp_path, documents, line, query):
    with Responder(*documents, PICTURE) as server:
        if "URL" in line:
            said = command(zel_running, server.url, line)
        else:
            service, call = line.split(":", 1)
            said = zel(f"require 'zel.ogc'.{service}(arg[1], {{quiet = true}}):{call}",
                       server.url.replace("//", "//me:p%40ss@") + "s", ok=False).err
    world_file = tmp_path / "f.jgw"
    assert re.search(query, said + server.requests[-1] + (world_file.read_text() if world_file.exists() else ""))


PIPE = "a pipe that nobody writes to"
# What ~/.config/zel/ogc.lua holds, and what is said about it.
DEFAULTS = {
    "return {retries = 0, TIMEOUT = 7, connect_timeout = 3, USERNAME = 'x', proxy = 'http://me:pw@localhost:3128'}":
        "0 8 3 x localhost 3128 me",
    "return {retrys = 0}": 'there is no argument "retrys" of ',
    "return 5": "must return a table",
    "io.open('x')": "your defaults cannot be read: ",
    "return {NO_SUCH = 1}": "Keyword NO_SUCH is not allowed",
    "return {proxy = 'ftp://x/y'}": '"ftp://x/y" is no proxy',
    PIPE: "/zel/ogc.lua is no regular file",
}


@pytest.mark.parametrize("text", DEFAULTS)
def test_defaults(zel, tmp_path, text):
    """The file is that of XDG_CONFIG_HOME, but only if this is the same place from every directory."""
    for place in (".config", "relative"):
        (tmp_path / place / "zel").mkdir(parents=True)
    (tmp_path / "relative/zel/ogc.lua").write_text("error('not mine')")
    config = tmp_path / ".config/zel/ogc.lua"
    if text == PIPE:
        os.mkfifo(config)
    else:
        config.write_text(text)
    (tmp_path / "caps.xml").write_text('<WMS_Capabilities version="1.3.0"/>')
    done = zel("""
      local done, s = pcall(require "zel.ogc".wms, "caps.xml", {timeout = 8})
      if not done then return print(s.message) end
      local p = s.object:GetProperty{"TIMEOUT", "CONNECT_TIMEOUT", "USERNAME", "PROXY_HOSTNAME", "PROXY_PORT", "PROXY_USERNAME"}
      print(s.options.retries, p.TIMEOUT, p.CONNECT_TIMEOUT, p.USERNAME, p.PROXY_HOSTNAME, p.PROXY_PORT, p.PROXY_USERNAME)
    """, env={"HOME": str(tmp_path), "XDG_CONFIG_HOME": str(tmp_path / ".config") if text == PIPE else "relative"})
    assert DEFAULTS[text] in done.out.replace("\t", " ")

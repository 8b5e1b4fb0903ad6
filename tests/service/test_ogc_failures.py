"""The library zel.ogc and servers that say what they are told: the server's own words, tries that are repeated, odd
services, all that is read and sent, defaults."""

import base64
import json
import os
import re
import shlex
import signal
import time

import pytest

from conftest import SOURCE, limited
from responder import HEAD, HOLD, Responder, answer


def capabilities(layers, version="1.3.0", service="<Service><Title>t</Title></Service>", picture="image/png"):
    root = "WMS_Capabilities" if version == "1.3.0" else "WMT_MS_Capabilities"
    return answer(f'<{root} version="{version}">{service}<Capability><Request><GetMap><Format>{picture}</Format></GetMap>'
                  f"</Request>{layers}</Capability></{root}>")


LAYER = "<Layer><Name>a</Name><CRS>EPSG:4326</CRS><SRS>EPSG:4326</SRS></Layer>"
SE = '<ServiceExceptionReport xmlns="http://www.opengis.net/ogc">{}</ServiceExceptionReport>'
PICTURE = answer(b"\x89PNG", "image/png")


def busy(status, seconds=0):
    return answer("", status=f"{status} Busy", more=f"Retry-After: {seconds}\r\n")


def test_tries_again_what_may_pass(zel):
    """After the pause that is asked for, or a growing one, besides that between all requests."""
    with Responder(capabilities(LAYER), busy(503), [HEAD, HOLD], busy(429, 7), PICTURE, busy(502), busy(504), busy(404),
                   busy(503, 86400)) as server:
        done = zel("""
          local paused = ""
          function zel.sleep(seconds) paused = ("%s %g"):format(paused, seconds) end
          local s = require "zel.ogc".wms(arg[1] .. "wms", {retries = 3, pause = 0.1, timeout = 1})
          local function try()
            local done, why = pcall(s.map, s, {layers = "a", bbox = {0, 0, 1, 1}})
            print(done or why.message:match("%(%d+%)"), paused)
            paused = ""
          end
          try() try()
          s.options.retries = 1
          try()
          s.object:SetProperty{URL_PORT = 1}
          try()
        """, server.url)
    assert done.out == "true\t 0.1 0 0.1 2 0.1 7 0.1\n(404)\t 0.1 0 0.1 0 0.1\n(503)\t 0.1 60 0.1\nnil\t 0.1 1 0.1\n"
    assert re.findall(r"Trying again in (\d+) s", done.err) == ["0", "2", "7", "0", "0", "60", "1"]


def test_waiting_ends_with_an_interrupt(zel_running):
    with Responder(busy(503, 86400)) as server:
        run = zel_running("require 'zel.ogc'.wms(arg[1] .. 'wms')", server.url)
        assert "again in 60 s" in run.stderr.readline()
        time.sleep(0.2)
        run.send_signal(signal.SIGINT)
        assert "interrupted!" in run.communicate(timeout=30)[1]


# A service of maps and one of coverages that say everything there is, each value one of its own.
DOCUMENTS = SOURCE / "tests/service/documents"
ATLAS, OLD, RELIEF = ([answer((DOCUMENTS / f"{name}.xml").read_text()) for name in names]
                      for names in (["atlas"], ["old"], ["relief", "relief-described"]))
GRAY, COLOURS = (answer(base64.b64decode("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCA" + rest), "image/png") for rest in (
    "AAAAA6fptVAAAACklEQVQImWNgAAAAAgAB9HFkpgAAAABJRU5ErkJggg==",
    "IAAACQd1PeAAAADElEQVQImWNgYGAAAAAEAAGjChXjAAAAAElFTkSuQmCC"))
BBOX = "bbox = {0, 0, 1, 1}"
MAP = "wms:map{layers = 'a', bbox = {0, 0, 2, 1}}"
def refused(*what, **how):
    return [capabilities(LAYER), *[answer(*what, **how)] * 2]


DENIED = answer("", status="401 No", more="WWW-Authenticate: Basic realm=x\r\n")
REFUSED = ("local _, why = pcall(wms.map, wms, {layers = 'a', bbox = {0, 0, 1, 1}, to = 'f.png'}) "
           "pcall(wms.object.GetMap, wms.object, 'LAYERS=a') "
           "print(why.text, why.code, why.locator, (zel.refusal(wms.object) or {}).text, (tostring(why):gsub('\\n', ' ')))")
TILES = "wms = require 'zel.ogc'.wms(arg[1]) wms:map{layers = 'a', bbox = {0, 0, 2, 1}, width = 2, tile = 1, to = 'f.png'} "
SHOW = "for _, layer in ipairs(wms.layers) do layer.record, layer.parent = nil end zel.show(wms.layers[1])"
CALLBACK = "wms.object:GetProperty{'CALLBACK_FUNCTION'}.CALLBACK_FUNCTION ~= ''"


@pytest.fixture
def ask(zel, zel_running, tmp_path):
    """ask(documents, line): runs a line of zel-ogc, or of a script with `wms` or `wcs`, of a server that answers with
    the documents and then with pictures. Returns what is printed, what the server was asked last, and files f.*."""

    def run(documents, line, **options):
        (tmp_path / "secret").write_text("no\nmore\n")
        with Responder(*documents, PICTURE) as server:
            if "URL" in line:
                words = shlex.split(line.replace("URL", server.url.replace("//", "//me@") + "s"))
                said = "".join(zel_running("", *words, program="zel-ogc", errors="replace").communicate(timeout=30))
            else:
                service = "wcs" if "wcs" in line else "wms"
                done = zel(f"""
                  local made, name = {{}}, os.tmpname
                  function os.tmpname() made[#made + 1] = name() return made[#made] end
                  local {service} = require 'zel.ogc'.{service}(arg[1], {{quiet = true}})
                  {line}
                  for _, path in ipairs(made) do assert(not zel.is_file(path)) end
                """, server.url.replace("//", "//me:p%40ss@") + "s", server.port, ok=False,
                           env={"PROJ_DATA": "/usr/share/proj", "PROJ_LIB": "nowhere"}, **options)
                said = done.out + done.err
        assert "assertion failed" not in said and not list(tmp_path.glob(".*"))
        files = [f"{file.name}\n{file.read_text(errors='replace')}" for file in sorted(tmp_path.glob("f.*")) if file.is_file()]
        return said.replace(server.url, "URL/"), "".join([said, server.requests[-1], *files])

    return run


@pytest.mark.parametrize("documents, line, known", [
    (ATLAS, "info URL --json", "atlas.json"), (ATLAS, "info URL --geojson", "atlas.geojson"),
    (ATLAS, "info URL", "atlas.txt"), (ATLAS, "info URL b", "layer.txt"),
    (ATLAS, SHOW, "layers.txt"), (OLD, SHOW, "old.txt"),
    (RELIEF, "info URL --wcs --json", "coverages.json"), (RELIEF, "info URL c --wcs --json", "coverage.json"),
    (RELIEF, "info URL c --wcs", "coverage.txt")])
def test_all_that_is_known(ask, documents, line, known):
    said, _ = ask(documents, line)
    parsed = json.loads if known.endswith("json") else str
    assert parsed(said) == parsed((DOCUMENTS / known).read_text())


# What is asked for, by the command or from a script, and what then goes out to the server, or is said, or is in a file.
ASKED = [
    # Of services that say all
    (ATLAS, "map URL b --style X --format PNG --transparent --bgcolor #ff8000 --time 2 --elevation 5 --dimension wave=6 --extra z=q "
            "--extra B=1,2 --size 40x30 --bbox -.123456789 0 1 .5",
     "&LAYERS=b&STYLES=x&CRS=EPSG:4326&FORMAT=image/png&TRANSPARENT=TRUE&BGCOLOR=0xFF8000&TIME=2&ELEVATION=5&DIM_WAVE=6&B=1,2&z=q"
     "&BBOX=0,-0.123456789,0.5,1&WIDTH=40&HEIGHT=30[ &]"),
    (ATLAS, "map URL a --crs 31467 --bbox -357 47 -345 55 --bbox-crs EPSG:4326 --to f.jpeg",
     r"&FORMAT=image/jpeg&BBOX=5236823\.4\d*,3386569\.8\d*,6097834\.4\d*,3614340\.9\d*&WIDTH=271&HEIGHT=1024 "
     r"(.|\n)*f.jgw\n840\.48\d*\n0\n0\n-840\.83"),
    (ATLAS, "map URL 'c, & d' --crs 32161 --bbox 1e5 1e5 2e5 2e5 --to f.png", r"Puerto Rico &amp; Virgin Is\."),
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
    (ATLAS, "wms:info{layers = 'g', lon = 9, lat = 50}", r"&BBOX=49\.99987\d*,8\.99987"),
    (ATLAS, "wms:map{layers = {'b', 'c, & d'}, crs = 32661, bbox = {0, 0, 1, 1}}", '"EPSG:32661" for these layers'),
    ([capabilities("<Layer><Layer><Name>a</Name><CRS>EPSG:3857</CRS></Layer><Layer><Name>b</Name></Layer></Layer>")],
     "wms:map{layers = {'a', 'b'}, bbox = {0, 0, 2, 1}}", "&CRS=EPSG:3857&"),
    ([capabilities(LAYER.replace(">", " queryable='1'>", 1)),
      answer(SE.format("<ServiceException>no</ServiceException>"))],
     "wms:info{layers = 'a', lon = 1, lat = 2}", "the server refused: no"),
    ([capabilities(LAYER)], "wms:map{layers = 'x'}", 'no layer "x"; there are: a'),
    (ATLAS, "wms:info{layers = 'b', lon = 1, lat = 2, x = 3}", "info wants a place"),
    (ATLAS, "wms:info{layers = 'b', lon = 50, lat = 98}", "is that the longitude"),
    (ATLAS, "wms:info{layers = 'b', lon = 1, lat = 2, pixel = 0}", "pixel must be more than 0"),
    (ATLAS, "wms:info{layers = 'a', lon = 1, lat = 2}", "a answers no questions; these do: b, e, f, g\n"),
    (ATLAS, "for _, crs in ipairs{4326, 3832} do print(('%.0f'):format(wms:map{layers = 'f', crs = crs}.box[3])) end",
     "^189\n4341460\n"),
    (OLD, "print(wms.layer.b.title)", "^tb\n"),
    (RELIEF, "coverage URL c --crs 3857 --bbox 0 0 2 1 --bbox-crs EPSG:4326 --res 9e3 --interpolation BILINEAR --extra k=v --time 1 "
             "--to f.jpeg", r"&COVERAGE=c&CRS=EPSG:3857&BBOX=0,0,222638.9\d*,111325.1\d*&RESX=9000&RESY=9000&FORMAT=JPEG&TIME=1"
     r"&INTERPOLATION=bilinear&k=v[ &](.|\n)*8905\.559\d*\n0\n0\n-9277\.095"),
    (RELIEF, "coverage URL c --size 4 --format hdf", "&CRS=EPSG:4326&BBOX=0,1,4,3&WIDTH=4&HEIGHT=2&FORMAT=HDF&TIME=1/2/P1[ &]"),
    (RELIEF, "wcs:get{name = 'c', bbox = {0, 1, .001, 3}, time = {'1', '2'}, ranges = {depth = {1, 3}}}",
     "&WIDTH=20000&HEIGHT=4&FORMAT=HDF&TIME=1,2&depth=1,3[ &]"),
    (RELIEF, "wcs:get{name = 'c', crs = '3857', bbox = {0, 0, 2, 1}}", "&WIDTH=1024&HEIGHT=512&"),
    (RELIEF, "wcs:get{name = 'c'}", "80000000 x 4 cells: say how many"),
    (RELIEF, "wcs:get{name = 'c', resx = 1, width = 4}", "give either width"),
    (RELIEF, "wcs:get{name = 'c', resy = .5, ranges = {DEPTH = 2}}", "&RESX=0.5&RESY=0.5&.*&depth=2[ &]"),
    (RELIEF, "print(wcs:get{name = 'c', resx = 1, resy = .5, ranges = {DEPTH = {min = 0, max = 8, step = 2}}}.size[2])",
     "^4\n.*&RESX=1&RESY=0.5&.*&depth=0/8/2[ &]"),
    (RELIEF, "for _, range in ipairs{{min = 0}, {max = 8}, {}} do "
     "print(pcall(wcs.get, wcs, {name = 'c', resx = 1, ranges = {DEPTH = range}})) end",
     "^(false\t.*the range of depth must be a value, a list of values, or .min.*\n){3}"),
    (RELIEF, "require 'zel.ogc'.wcs(arg[1], {version = '1.0.5'})", "Version=1.0.5&"),
    # Refusals: text, code and locator as fields of the error, the text as zel.refusal has it, and the message
    (refused(SE.format('<ServiceException code="NotDefined">no\n  layer</ServiceException>')), REFUSED,
     "^no layer\tNotDefined\tnil\tno layer\t.*script.lua:5: the server refused: no layer [(]NotDefined[)]\n"),
    (refused(SE.format('<ServiceException code="X" locator="BBOX">&lt;bad&gt; box</ServiceException>'), status="400 Bad"),
     REFUSED, "^<bad> box\tX\tBBOX\t<bad> box\t.* [(]X, BBOX[)]\n"),
    (refused(SE.format("<ServiceException><![CDATA[a & b]]></ServiceException>"), status="500 Oops"), REFUSED,
     "^a & b\tnil\tnil\ta & b\t.* the server refused: a & b\n"),
    (refused("\ufeff\n" + SE.format("<ServiceException>1</ServiceException><ServiceException>2</ServiceException>")), REFUSED,
     "^1\tnil\tnil\t1\t"),
    (refused('<ows:ExceptionReport xmlns:ows="http://www.opengis.net/ows/1.1"><ows:Exception exceptionCode="Y" locator="z">'
             '<ows:ExceptionText>new</ows:ExceptionText></ows:Exception></ows:ExceptionReport>', status="400 Bad"), REFUSED,
     "^new\tY\tz\tnew\t"),
    (refused("<html>gone</html>", "text/html", "404 Not Found"), REFUSED, "^nil\tnil\tnil\tnil\t.*404"),
    (refused("<ServiceExceptionReport><ServiceException>x", status="500 Oops"), REFUSED, "^nil\tnil\tnil\tnil\t"),
    # Credentials, versions
    ([capabilities(LAYER), DENIED], MAP, "\nAuthorization: Basic bWU6cEBzcw==\r"),
    ([capabilities(LAYER), DENIED], "map URL a --bbox 0 0 1 1 --user you --password-file secret",
     "\nAuthorization: Basic bWU6bm8=\r"),
    ([capabilities(LAYER), answer("", status="407 No", more="Proxy-Authenticate: Basic realm=x\r\n")],
     "require 'zel.ogc'.wms('http://h/s', {proxy = 'http://p:q@localhost:' .. arg[2]})",
     "GET http://h/s.*(.|\n)*\nProxy-Authorization: Basic cDpx\r"),
    ([capabilities(LAYER, "1.1.1")], MAP, "Version=1.1.1&.*&SRS=EPSG:4326&.*&BBOX=0,0,2,1&"),
    ([capabilities(LAYER, "1.1.0")], "wms:map{layers = 'a', crs = 2, bbox = {0, 0, 2, 1}}", "SRS=EPSG:2&"),
    ([answer(SE.format("<ServiceException>1.3.0?</ServiceException>"), status="400 Bad Request"), capabilities(LAYER, "1.1.1")],
     MAP, "Version=1.1.1&.*&SRS=EPSG:4326&.*&BBOX=0,0,2,1&"),
    # Of odd services
    ([capabilities(LAYER, service="")], "print(wms.title, #wms.layers)", "^nil\t1\n"),
    ([capabilities("")], MAP, 'there is no layer "a", nor any other'),
    ([capabilities(LAYER)], "wms:map{layers = 'a'}", "no box in EPSG:4326 for layer a: say which with bbox"),
    (ATLAS, f"for _, time in ipairs{{'1', '3', '1/2'}} do print(#wms:map{{layers = 'b', {BBOX}, time = time}}.notes) end",
     "^1\n2\n1\n"),
    ([capabilities(LAYER, service="<Service><LayerLimit>1</LayerLimit><MaxWidth>50</MaxWidth><MaxHeight>40</MaxHeight></Service>")],
     f"print(wms:map{{layers = 'a', {BBOX}, to = 'm.png'}}.size[1]) wms:map{{layers = {{'a', 'a'}}}}",
     "^40\n(.|\n)*draws at most 1 layers in one map, not 2"),
    ([capabilities(LAYER)], f"wms:map{{layers = 'a', {BBOX}, to = 'm.png'}}", "m.png.aux.xml cannot be written: File too large"),
    ([capabilities(LAYER)], f"os.execute('mkdir f.pgw') wms:map{{layers = 'a', {BBOX}, to = 'f.png'}}", "f.pgw cannot be written: Is a d"),
    ([capabilities(LAYER, picture="image/x")], f"print(wms:map{{layers = 'a', {BBOX}}}.format)", "^image/x\n"),
    ([capabilities(LAYER)], """for name in ('urn:ogc:def:crs:EPSG:9.1:4 http://www.opengis.net/def/crs/EPSG/0/5 CRS:84 IGNF:X ' ..
     'urn:ogc:def:crs:OGC::CRS83'):gmatch('%S+') do print(require 'zel.ogc.crs'.describe(name).definition) end""",
     "^EPSG:4\nEPSG:5\nOGC:CRS84\nIGNF:X\nOGC:CRS83\n"),
    ([capabilities("<Layer><Name>a&#x9b;2J</Name></Layer>")], MAP.replace("'a'", "'b'"), 'no layer "b"; there are: a 2J'),
    ([*OLD, answer('{"features": [{"name": "Z"}]}', "application/json")],
     "print(select(2, wms:info{layers = 'b', lon = 1, lat = 2}).features[1].name)", "^Z\n"),
    ([capabilities(f"<Layer>{''.join(f'<Layer><Name>n{i}</Name></Layer>' for i in range(25))}</Layer>")], MAP, "and 5 more"),
    ([capabilities(LAYER), answer("x", "")], f"print(wms:map{{layers = 'a', {BBOX}, to = 'map'}}.file)", "^map\n"),
    # On a terminal
    ([capabilities(LAYER)] * 2, f"zel.columns = function() return 80 end "
     f"wms = require 'zel.ogc'.wms(arg[1], {{quiet = true}}) print({CALLBACK})", "^false\n"),
    ([*[capabilities(LAYER)] * 2, GRAY, GRAY], f"zel.columns = function() return 80 end {TILES} print({CALLBACK})", "^true\n"),
    ([*[capabilities(LAYER)] * 2, GRAY, COLOURS], TILES, r"the tiles do not fit together: (?!(.|\n)*f\.part)"),
]


@pytest.mark.parametrize("documents, line, wanted", ASKED)
def test_what_is_asked(ask, documents, line, wanted):
    _, seen = ask(documents, line, **{"preexec_fn": limited(700)} if "too large" in wanted else {})
    assert re.search(wanted, seen)


PIPE = "a pipe that nobody writes to"
# What ~/.config/zel/ogc.lua holds, and what is said about it; the proxy of a script is not that of the file.
DEFAULTS = {
    "return {retries = 0, TIMEOUT = 7, connect_timeout = 3, USERNAME = 'x', proxy = 'http://me:pw@localhost:1'}":
        "0 8 3 x localhost 1 me .* The proxy is localhost:1, from .*/zel/ogc.lua. "
        ".* The proxy is localhost:2. the service was read from the file caps.xml",
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
      local wms = require "zel.ogc".wms
      local done, s = pcall(wms, "caps.xml", {timeout = 8})
      if not done then return print(s.message) end
      local p = s.object:GetProperty{"TIMEOUT", "CONNECT_TIMEOUT", "USERNAME", "PROXY_HOSTNAME", "PROXY_PORT", "PROXY_USERNAME"}
      print(s.options.retries, p.TIMEOUT, p.CONNECT_TIMEOUT, p.USERNAME, p.PROXY_HOSTNAME, p.PROXY_PORT, p.PROXY_USERNAME)
      for _, given in ipairs{{}, {proxy = "localhost:2"}} do print(select(2, pcall(wms, "http://h/s", given)).message) end
      print(select(2, pcall(s.map, s, {})).message)
    """, env={"HOME": str(tmp_path), "XDG_CONFIG_HOME": str(tmp_path / ".config") if text == PIPE else "relative"})
    assert re.search(DEFAULTS[text], re.sub(r"\s", " ", done.out))

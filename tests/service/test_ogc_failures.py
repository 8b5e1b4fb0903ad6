"""The library zel.ogc where things go wrong: the server's own words, tries that are repeated, odd services, defaults."""

import os
import re
import signal
import time

import pytest

from responder import HEAD, Responder


def answer(body, kind="text/xml", status="200 OK", more=""):
    body = body.encode()
    return [HEAD, f"HTTP/1.1 {status}\r\nContent-Type: {kind}\r\nContent-Length: {len(body)}\r\n{more}"
                  "Connection: close\r\n\r\n".encode() + body]


def capabilities(layers, version="1.3.0", service="<Service><Title>t</Title></Service>"):
    root = "WMS_Capabilities" if version == "1.3.0" else "WMT_MS_Capabilities"
    return answer(f'<{root} version="{version}">{service}<Capability><Request><GetMap><Format>image/png</Format></GetMap>'
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
    "the first of two": (answer(SE.format("<ServiceException>1</ServiceException><ServiceException>2</ServiceException>")),
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


def test_a_comma_in_a_name_is_escaped(zel):
    layers = "<Layer><CRS>EPSG:4326</CRS><Layer><Name>a, &amp; b</Name></Layer><Layer><Name>c</Name></Layer></Layer>"
    with Responder(capabilities(layers), PICTURE) as server:
        zel("""require "zel.ogc".wms(arg[1] .. "wms"):map{layers = {"a, & b", "c"}, bbox = {0, 0, 1, 1}, to = "map.png"}""",
            server.url)
    assert "LAYERS=a%2C%20%26%20b,c&STYLES=,&" in server.requests[1]


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
        """, server.url)
    results, seconds = zip(*(line.split("\t") for line in done.out.splitlines()))
    assert results == ("true", "(404)", "nil") and 1.3 <= float(seconds[0]) < 5 and 0.3 <= float(seconds[1]) < 5
    assert re.findall(r"Trying again in (\d+) s", done.err) == ["0", "1", "0", "0", "1"] and len(server.requests) == 7


@pytest.mark.parametrize("pause", ["zel.sleep(60)", "require 'zel.ogc'.wms(arg[1] .. 'wms')"])
def test_waiting_ends_with_an_interrupt(zel_running, pause):
    with Responder(busy(503, 60)) as server:
        run = zel_running(f"io.stdout:write('x'):flush() {pause}", server.url)
        run.stdout.read(1)
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
    "no boxes, box given": (capabilities(LAYER), "s:map{layers = 'a', bbox = {0, 0, 2, 1}}.size[2]", "512"),
    "two names alike": (capabilities("<Layer><Layer><Name>a</Name><Title>1</Title></Layer><Layer><Name>a</Name></Layer>"
                                     "</Layer>"), "s.layer.a.title, #s.layers[1].children", "1\t2"),
    "scales, times": (capabilities("<Layer><Name>a</Name><MinScaleDenominator>1000</MinScaleDenominator><CRS>EPSG:3857</CRS>"
                                   "<Dimension name='time' units='ISO8601'>2020,2021</Dimension></Layer>"),
                      "s.layer.a.scale.min, #s:map{layers = 'a', bbox = {0, 0, 1, 1}, time = '2022'}.notes", "1000\t2"),
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
    "a limit of width": (capabilities(LAYER, service="<Service><Title>t</Title><MaxWidth>50</MaxWidth></Service>"),
                         "s.max_width, s:map{layers = 'a', bbox = {0, 0, 1, 1}}.size[1]", "50\t50"),
    "names that steer a terminal": (capabilities("<Layer><Name>a&#x9b;2J</Name></Layer>"),
                                    "select(2, pcall(s.map, s, {layers = 'b'})).message",
                                    'there is no layer "b"; there are: a 2J'),
    "a type that is no extension": (capabilities(LAYER), "s:map{layers = 'a', bbox = {0, 0, 1, 1}, to = 'map'}.file",
                                    "map", answer("x", "image/vnd.jpeg-png")),
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
        done = zel(f"local s = require 'zel.ogc'.wms(arg[1] .. 'wms', {{quiet = true}}) print({code})", server.url)
    assert done.out.strip() == printed


FLOOR = """<Layer queryable="1"><Name>a</Name><CRS>EPSG:4326</CRS><MinScaleDenominator>1000000</MinScaleDenominator>
  <EX_GeographicBoundingBox><westBoundLongitude>0</westBoundLongitude><eastBoundLongitude>1</eastBoundLongitude>
  <southBoundLatitude>0</southBoundLatitude><northBoundLatitude>1</northBoundLatitude></EX_GeographicBoundingBox>
  <Dimension name="elevation" units="m">5,6</Dimension></Layer>"""
BRIEF = "<name>c</name><label>C</label><lonLatEnvelope><pos>0 0</pos><pos>4 2</pos></lonLatEnvelope>"
COVERAGE = [answer(f"""<WCS_Capabilities version="1.0.0"><Service><name>n</name><label>l</label></Service><ContentMetadata>
  <CoverageOfferingBrief>{BRIEF}</CoverageOfferingBrief></ContentMetadata></WCS_Capabilities>"""),
            answer(f"""<CoverageDescription version="1.0.0"><CoverageOffering>{BRIEF}<domainSet><spatialDomain/><temporalDomain>
  <timePosition>2020</timePosition></temporalDomain></domainSet><rangeSet><RangeSet><name>r</name><label>R</label>
  <axisDescription><AxisDescription><name>depth</name><label>D</label><values><singleValue>1</singleValue></values>
  </AxisDescription></axisDescription></RangeSet></rangeSet>
  <supportedCRSs><requestCRSs>EPSG:4326 EPSG:3857</requestCRSs></supportedCRSs><supportedFormats nativeFormat="HDF">
  <formats>JPEG</formats><formats>HDF</formats></supportedFormats></CoverageOffering></CoverageDescription>""")]
# What is asked for, and what then goes out to the server.
QUERIES = [
    ([capabilities(FLOOR)], "wms", "map{layers = 'a', elevation = 5}", "&ELEVATION=5&"),
    ([capabilities(FLOOR)], "wms", "info{layers = 'a', lon = .5, lat = .5, pixel = 1}", "&BBOX=-50,-50,51,51&.*&I=50&J=50 "),
    ([capabilities(FLOOR)], "wms", "info{layers = 'a', lon = .5, lat = .5}", r"&BBOX=0\.2\d*,0\.2\d*,0\.7\d*,0\.7\d*&"),
    (COVERAGE, "wcs", "get{name = 'c', resx = 1, resy = .5, ranges = {depth = {min = 0, max = 8, step = 2}}}",
     "&CRS=EPSG:4326&BBOX=0,0,4,2&RESX=1&RESY=0.5&FORMAT=HDF&TIME=2020&depth=0/8/2[ &]"),
    (COVERAGE, "wcs", "get{name = 'c', crs = 3857, bbox = {0, 0, 2, 1}, width = 4, to = 'c.jpeg'}", "&CRS=EPSG:3857&.*=4&HEIGHT=2&"),
]


@pytest.mark.parametrize("documents, service, call, query", QUERIES)
def test_queries(zel, tmp_path, documents, service, call, query):
    with Responder(*documents, PICTURE) as server:
        zel(f"require 'zel.ogc'.{service}(arg[1] .. 's', {{quiet = true}}):{call}", server.url)
    assert re.search(query, server.requests[-1].splitlines()[0])
    assert (tmp_path / "c.jpeg.aux.xml").exists() == ("jpeg" in call)


def test_version_is_agreed_upon(zel):
    """A server that refuses the newest is asked for older ones; what it answers is what is asked in."""
    refused = answer(SE.format("<ServiceException>1.3.0?</ServiceException>"), status="400 Bad Request")
    with Responder(refused, capabilities(LAYER, "1.1.1"), PICTURE) as server:
        done = zel("""
          local s = require "zel.ogc".wms(arg[1] .. "wms", {quiet = true})
          print(s.version)
          s:map{layers = "a", bbox = {0, 0, 2, 1}}
        """, server.url)
    assert done.out == "1.1.1\n" and "SRS=EPSG:4326" in server.requests[2] and "BBOX=0,0,2,1&" in server.requests[2]


PIPE = "a pipe that nobody writes to"
# What ~/.config/zel/ogc.lua holds, and what is said about it.
DEFAULTS = {
    "return {retries = 0, timeout = 7, USERNAME = 'x', proxy = 'http://me:pw@localhost:3128'}": "0 7 x localhost 3128 me",
    "return {retrys = 0}": 'there is no argument "retrys" of ',
    "return 5": "must return a table",
    "io.open('x')": "your defaults cannot be read: ",
    "return {NO_SUCH = 1}": "Keyword NO_SUCH is not allowed",
    "return {proxy = 'ftp://x/y'}": '"ftp://x/y" is no proxy',
    PIPE: "/zel/ogc.lua is no regular file",
}


@pytest.mark.parametrize("text", DEFAULTS)
def test_defaults(zel, tmp_path, text):
    (tmp_path / "config/zel").mkdir(parents=True)
    config = tmp_path / "config/zel/ogc.lua"
    if text == PIPE:
        os.mkfifo(config)
    else:
        config.write_text(text)
    (tmp_path / "caps.xml").write_text('<WMS_Capabilities version="1.3.0"/>')
    done = zel("""
      local done, s = pcall(require "zel.ogc".wms, "caps.xml")
      if not done then return print(s.message) end
      local p = s.object:GetProperty{"TIMEOUT", "USERNAME", "PROXY_HOSTNAME", "PROXY_PORT", "PROXY_USERNAME"}
      print(s.options.retries, p.TIMEOUT, p.USERNAME, p.PROXY_HOSTNAME, p.PROXY_PORT, p.PROXY_USERNAME)
    """, env={"XDG_CONFIG_HOME": str(tmp_path / "config")})
    assert DEFAULTS[text] in done.out.replace("\t", " ")

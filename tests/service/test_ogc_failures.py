"""The library zel.ogc and servers that say what they are told: the server's own words, tries that are repeated, odd
services, all that is read and sent, defaults."""

import base64
import json
import os
import re
import shlex
import signal

import pytest

from conftest import PATIENCE, SOURCE, limited
from responder import HEAD, HOLD, Responder, answer


def capabilities(layers, version="1.3.0", service="<Service><Title>t</Title></Service>", picture="image/png"):
    root = "WMS_Capabilities" if version == "1.3.0" else "WMT_MS_Capabilities"
    return answer(f'<{root} version="{version}">{service}<Capability><Request><GetMap><Format>{picture}</Format></GetMap>'
                  f"</Request>{layers}</Capability></{root}>")


LAYER = "<Layer><Name>a</Name><CRS>EPSG:4326</CRS><SRS>EPSG:4326</SRS></Layer>"
SE = '<ServiceExceptionReport xmlns="http://www.opengis.net/ogc">{}</ServiceExceptionReport>'
PICTURE = answer(b"\x89PNG", "image/png")


def busy(status, seconds=" 0"):
    return answer("", status=f"{status} Busy", more=f"Retry-After:{seconds}\r\n")


def test_tries_again_what_may_pass(zel):
    """After the pause that is asked for, or a growing one, besides that between all requests."""
    with Responder(capabilities(LAYER), busy(503), [HEAD, HOLD], busy(429, 7), PICTURE, busy(502), busy(504), busy(404),
                   busy(503, " 86400")) as server:
        done = zel("""
          local paused, s, patience = "", nil, {600, 600, 1}
          function zel.sleep(seconds)
            paused = ("%s %g"):format(paused, seconds)
            s.object:SetProperty{TIMEOUT = table.remove(patience, 1) or 600}
          end
          s = require "zel.ogc".wms(arg[1] .. "wms", {retries = 3, pause = 0.1})
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
    with Responder(busy(503, " 86400")) as server:
        run = zel_running("require 'zel.ogc'.wms(arg[1] .. 'wms')", server.url)
        assert "again in 60 s" in run.stderr.readline()
        run.send_signal(signal.SIGINT)
        assert "interrupted!" in run.communicate(timeout=PATIENCE)[1]


# Services of maps and of coverages that say everything there is, each value one of its own, or odd values.
DOCUMENTS = SOURCE / "tests/service/documents"
PLAIN = capabilities(LAYER)
GRAY, COLOURS, PALETTE = (answer(base64.b64decode("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCA" + rest), "image/png") for rest in (
    "AAAAA6fptVAAAACklEQVQImWNgAAAAAgAB9HFkpgAAAABJRU5ErkJggg==",
    "IAAACQd1PeAAAADElEQVQImWNgYGAAAAAEAAGjChXjAAAAAElFTkSuQmCC",
    "MAAAAoyzS7AAAAA1BMVEX/AAAZ4gk3AAAACklEQVR4nGNgAAAAAgABSK+kcQAAAABJRU5ErkJggg=="))
SHOW = "for _, layer in ipairs(wms.layers) do layer.record, layer.parent = nil end zel.show(wms.layers[1])"


def service(name, **coverages):
    """Answers each request with what it asks for: its capabilities, a coverage's description, or else a picture."""
    answers = {"Request=GetFeatureInfo": answer('"what is there"\n', "text/plain")} | {
        asked: answer((DOCUMENTS / f"{document}.xml").read_text())
        for asked, document in {"Request=GetCapabilities": name, **{f"Coverage={c}": d for c, d in coverages.items()}}.items()}
    return [lambda head: [next((known for asked, known in answers.items() if re.search(f"{asked}[ &]", head)), PICTURE)]]


def refusing(*reports):
    return [PLAIN, *[answer(body, kind, status) for body, kind, status in reports for _ in range(2)]]


# What servers answer; after several answers pictures.
SERVERS = {
    "atlas": service("atlas"), "old": service("old"), "odd": service("odd"),
    "relief": service("relief", c="relief-described"),
    "fields": service("fields", G="fields-described", bare="bare-described", flat="flat-described"),
    "plain": [PLAIN, PICTURE], "disk": [PLAIN, PICTURE], "empty": [capabilities("")],
    "siblings": [capabilities("<Layer><Layer><Name>a</Name><CRS>EPSG:3857</CRS></Layer><Layer><Name>b</Name></Layer>"
                              "<Layer><Name>c</Name><CRS>EPSG:2180</CRS></Layer></Layer>"), PICTURE],
    "feature": [capabilities(LAYER.replace(">", " queryable='1'>", 1)), answer(SE.format("<ServiceException>no</ServiceException>"))],
    "refusing": refusing(
        (SE.format('<ServiceException code="NotDefined">no\n  layer</ServiceException>'), "text/xml", "200 OK"),
        (SE.format('<ServiceException code="X" locator="BBOX">&lt;bad&gt; box</ServiceException>'), "text/xml", "400 Bad"),
        (SE.format('<ServiceException locator="L"><![CDATA[a & b]]></ServiceException>'), "text/xml", "500 Oops"),
        ("\ufeff\n" + SE.format("<ServiceException>1</ServiceException><ServiceException>2</ServiceException>"), "text/xml", "200 OK"),
        ('<ows:ExceptionReport xmlns:ows="http://www.opengis.net/ows/1.1"><ows:Exception exceptionCode="Y" locator="z">'
         '<ows:ExceptionText>new</ows:ExceptionText></ows:Exception></ows:ExceptionReport>', "text/xml", "400 Bad"),
        ("<html>gone</html>", "text/html", "404 Not Found"),
        ("<a><ServiceException>x</ServiceException></a>", "text/xml", "400 Bad"),
        ("<ServiceExceptionReport><ServiceException>x", "text/xml", "500 Oops")),
    "denied": [PLAIN, answer("", status="401 No", more="WWW-Authenticate: Basic realm=x\r\n"), PICTURE],
    "gone": [answer("<html>gone</html>", "text/html", "404 Not Found")],
    "never": [answer(SE.format("<ServiceException>no</ServiceException>"), status="400 Bad")],
    "newer": [capabilities(LAYER, "1.4.0"), capabilities(LAYER, "1.1.1")] * 2 + [PICTURE],
    "busy": [PLAIN, busy(503), PICTURE],
    "proxy": [PLAIN, answer("", status="407 No", more="Proxy-Authenticate: Basic realm=x\r\n"), PLAIN],
    "1.1.1": [capabilities(LAYER, "1.1.1"), PICTURE], "1.1.0": [capabilities(LAYER, "1.1.0"), PICTURE],
    "older": [answer(SE.format("<ServiceException>1.3.0?</ServiceException>"), status="400 Bad"),
              capabilities(LAYER, "1.1.1"), PICTURE],
    "limits": [capabilities(LAYER, service="<Service><LayerLimit>1</LayerLimit>"
                            "<MaxWidth>50</MaxWidth><MaxHeight>40</MaxHeight></Service>"), GRAY],
    "image/x": [capabilities(LAYER, picture="image/x"), PICTURE],
    "no formats": [answer("<WMT_MS_Capabilities version='1.1.1'><Capability><Layer><Name>a</Name>"
                          "<LatLonBoundingBox minx='0' miny='-90' maxx='360' maxy='90'/><Layer><Name>point</Name>"
                          "<LatLonBoundingBox minx='3' miny='3' maxx='3' maxy='3'/></Layer></Layer></Capability></WMT_MS_Capabilities>"),
                   PICTURE],
    "json": [*service("old"), answer('{"features": [{"name": "Z"}]}', "application/json")],
    "many": [capabilities(f"<Layer>{''.join(f'<Layer><Name>n{i}</Name></Layer>' for i in range(25))}</Layer>"), PICTURE],
    "untyped": [PLAIN, answer("x", "")], "gray": [PLAIN, GRAY], "palette": [PLAIN, PALETTE],
    "gif": [capabilities(LAYER, picture="image/gif"),
            answer(base64.b64decode("R0lGODdhAQABAPAAAP8AAAAAACwAAAAAAQABAAACAkQBADs="), "image/gif")],
    "tiles": [PLAIN, PLAIN, GRAY], "tiles that differ": [PLAIN, GRAY, COLOURS]}

# What differs from run to run, or is long, in what is seen.
SHORTER = {r"[\w./-]*script\.lua": "script.lua", "-nan": "nan", r"after \d+ ms": "after 0 ms", r"\n *Verbose: Info.*": "",
           r"\d:\d\d left": "0:00 left", r"(<SRS.{80}).*(?=</SRS)": r"\1",
           r"\d+\.\d{9,}": lambda number: f"{float(number[0]):.12g}", r"[^\n -~]": lambda code: ascii(code[0])[1:-1],
           r"\s*\n": "\n"}


@pytest.fixture
def ask(zel, zel_running, tmp_path):
    """ask(server, lines): runs lines of zel-ogc, or of a script with `wms` or `wcs`, of one of SERVERS. Returns what is
    printed, and that with all requests and the files f.*.

    In a script map{}, info{} and get{} print all that the methods of these names return or raise."""

    def run(server, lines):
        (tmp_path / "secret").write_text("no\nmore\n")
        said = ""
        with Responder(*SERVERS[server]) as responder:
            for line in lines.splitlines() if lines.startswith("zel-ogc") else ():
                words = shlex.split(line.replace("URL", responder.url.replace("//", "//me@") + "s"))[1:]
                running = zel_running("", *words, program="zel-ogc", errors="replace")
                said += "".join(running.communicate(timeout=PATIENCE)) + f"status {running.returncode}\n"
            if not said:
                kind = "wcs" if server in ("relief", "fields") else "wms"
                done = zel(f"""
                  local made, name = {{}}, os.tmpname
                  function os.tmpname() made[#made + 1] = name() return made[#made] end
                  {kind} = require 'zel.ogc'.{kind}(arg[1], {{quiet = true}})
                  function say(_, ...) print((require 'dkjson'.encode({{...}}, {{keyorder = {{'message', 'text', 'code', 'locator',
                    'exceptions', 'where', 'file', 'size', 'box', 'crs', 'format', 'scale', 'notes'}}}}))) end
                  for _, name in ipairs{{"map", "info", "get"}} do
                    _G[name] = function(o) say(pcall({kind}[name], {kind}, o)) end
                  end
                  {lines}
                  for _, path in ipairs(made) do assert(not zel.is_file(path)) end
                """, responder.url.replace("//", "//m%40:%c3%A4@") + "s", responder.port, ok=False, errors="replace",
                           env={"PROJ_DATA": "/usr/share/proj", "PROJ_LIB": "nowhere"},
                           **{"preexec_fn": limited(700)} if server == "disk" else {})
                said = done.out + done.err
        assert "assertion failed" not in said and not list(tmp_path.glob(".*"))
        asked = [re.sub(r"(?s)^GET (\S+).*?(\n\S*uthorization: [^\r]*|$).*", r"\1\2", head) for head in responder.requests]
        files = {path.relative_to(tmp_path): path.read_text(errors="replace") for path in sorted(tmp_path.rglob("*.*")) if path.is_file()}
        texts = [f"{name}: {text}" for name, text in files.items() if name.parts[0][:2] == "f." and "\0" not in text]
        seen = "\n".join([said, *asked, *texts]).replace(f":{responder.port}", ":PORT").replace(str(tmp_path), "")
        for pattern, short in SHORTER.items():
            seen = re.sub(pattern, short, seen)
        return said.replace(responder.url, "URL/"), seen

    return run


@pytest.mark.parametrize("server, line, known", [
    ("atlas", "zel-ogc info URL --json", "atlas.json"), ("atlas", "zel-ogc info URL --geojson", "atlas.geojson"),
    ("atlas", "zel-ogc info URL", "atlas.txt"), ("atlas", "zel-ogc info URL b", "layer.txt"),
    ("atlas", SHOW, "layers.txt"), ("old", SHOW, "old.txt"),
    ("relief", "zel-ogc info URL --wcs --json", "coverages.json"), ("relief", "zel-ogc info URL c --wcs --json", "coverage.json"),
    ("relief", "zel-ogc info URL c --wcs", "coverage.txt"), ("odd", "zel-ogc info URL --json", "odd.json"), ("odd", "zel-ogc info URL p q --geojson", "odd.geojson"),
    ("fields", "zel-ogc info URL G bare --wcs --json", "fields.json")])
def test_all_that_is_known(ask, server, line, known):
    said, _ = ask(server, line)
    parsed = json.loads if known.endswith("json") else str
    assert parsed(said.removesuffix("status 0\n")) == parsed((DOCUMENTS / known).read_text())


@pytest.mark.parametrize("row", (DOCUMENTS / "asked.txt").read_text().split("\n>> ")[1:],
                         ids=lambda row: " ".join(row.split()[:9]))
def test_what_is_asked(ask, row):
    """A row is the server, what is typed or run, and, below "--", all that comes of it: what is said, the requests and
    the files."""
    asked, known = row.split("\n--\n")
    _, seen = ask(*asked.split("\n", 1))
    assert seen.strip() == known.strip()


PIPE = "a pipe that nobody writes to"
# What ~/.config/zel/ogc.lua holds, and what is said about it; the proxy of a script is not that of the file.
DEFAULTS = {
    "return {retries = os.remove and 9 or 0, TIMEOUT = 7, connect_timeout = 3, USERNAME = 'x', proxy = 'http://me:pw@localhost:1'}":
        "0 8 3 x localhost 1 me .* The proxy is localhost:1, from .*/zel/ogc.lua. "
        ".* The proxy is localhost:2. the service was read from the file caps.xml",
    "return {retrys = 0}": 'there is no argument "retrys" of ', "return {timeout = 86400}": "timeout = 86400 is not a number of",
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

"""What people run into: each message is as the reference shows it, and the reference shows each."""

import re

import pytest
from responder import HEAD, HOLD, Responder

from conftest import SOURCE

SETUP = """
local function new(service, url, properties)
  local o = assert(zel.new("ZELnetOGC" .. service, properties))
  o:ParseUrl(url)
  return o
end
local function wms(...) return new("WMS", ...) end
local function wcs(...) return new("WCS", ...) end
local function file(text)
  io.open("document.xml", "w"):write(text):close()
  return {FROM_FILE = "document.xml"}
end
"""

# A name that no resolver is asked about: its first label is too long.
NOBODY = "x" * 64 + ".example"

# What goes wrong, and the row of the reference that tells about it.
CASES = {
    "wms('http://{nobody}/wms?'):GetCapabilities()": "Could not resolve host: ..., Curl Error Code = 6",
    "wms('http://localhost:1/wms?'):GetCapabilities()": "Failed to connect to ..., Curl Error Code = 7",
    "wms('{silent}wms?', {{TIMEOUT = 1}}):GetCapabilities()": "... Curl Error Code = 28",
    "wms('{refusing}wms?'):GetCapabilities()": "... Http ErrCode(400), Http Err(Bad Request) ...",
    "wms('{failing}wms?'):GetCapabilities()": "... Http ErrCode(500), Http Err(Internal Server Error) ...",
    "wms('{http}/nowhere?'):GetCapabilities()": "... Http ErrCode(404), Http Err(Not Found) ...",
    "wms('{http}/page.html?'):GetCapabilities()": "... Http ErrCode(200), ... Http ErrMsg(No HTML found)",
    "wms('{http}/broken.xml?'):GetCapabilities()": "Fatal Error: SAX Parser: ...",
    "wms('{secure}'):GetCapabilities()": "SSL certificate problem: ..., Curl Error Code = 60",
    "wms('{secure}', {{SSL_CERTIFICATE_FILE = 'nowhere.pem'}}):GetCapabilities()":
        "error setting certificate file: ..., Curl Error Code = 77",
    "wms('{http}/basic/hello.txt?', {{USERNAME = 'anna', PASSWORD = 'wrong'}}):GetCapabilities()":
        "... Http ErrCode(401), Http Err(Unauthorized) ...",
    "wms('{http}/hello.txt?', {{PROXY_HOSTNAME = 'localhost', PROXY_PORT = {proxy}}}):GetCapabilities()":
        "... Http ErrCode(407), ...",
    "wms('{secure}', {{PROXY_HOSTNAME = 'localhost', PROXY_PORT = {proxy}}}):GetCapabilities()":
        "CONNECT tunnel failed, response 407, Curl Error Code = 56",
    "wms('{http}/hello.txt?', {{PROXY_HOSTNAME = '{nobody}'}}):GetCapabilities()":
        "Could not resolve proxy: ..., Curl Error Code = 5",
    "wms('{service}'):GetCapabilities(file '<WMT_MS_Capabilities version=\"1.2.0\"/>')":
        "Error: OGC WMS version number (...) is not supported. ...",
    "wcs('{service}'):GetCapabilities(file '<WCS_Capabilities version=\"1.1.0\"/>')":
        "Error: OGC WCS version number (...) is not supported. ...",
    "wms('{service}'):GetMap('LAYERS=atlantis&STYLES=&SRS=EPSG:4326&BBOX=0,0,9,9&WIDTH=9&HEIGHT=9&FORMAT=image/png')":
        "Error: Recieved an XML file instead of a Map. ...",
    "wcs('{service}'):GetCoverage('COVERAGE=atlantis&CRS=EPSG:4326&BBOX=0,0,9,9&WIDTH=9&HEIGHT=9&FORMAT=GTiff')":
        "Error: Remote OGC server returned a service exception: (...)",
    "zel.new('ZELnetOGCWMS'):GetCapabilities()":
        "Error: Request can not be processed until the Host property has been set.",
    "wms('http://localhost/?'):GetCapabilities()":
        "Error: Request can not be processed until the Path property has been set.",
    "wms('http://localhost/wms')": "Error: url does not contain a ? ...",
    "wms('{service}', {{CALLBACK_FUNCTION = function(_, p) return p[1] == 0 end}}):GetCapabilities()":
        "Cancel request detected...Operation canceled.",
    "wms('{service}'):GetLayers{{LAST = 1}}": "Keyword ... is not allowed. Accepted keywords: ...",
}


@pytest.fixture(scope="module")
def places(servers, ogc):
    (ogc.root / "page.html").write_text("<html><body>Welcome</body></html>\n")
    (ogc.root / "broken.xml").write_text("<?xml version='1.0'?><WMT_MS_Capabilities version='1.1.1'><Service>")
    refusal = b"HTTP/1.1 %s\r\nContent-Type: text/xml\r\nContent-Length: 25\r\n\r\n<ServiceExceptionReport/>"
    with Responder([HEAD, HOLD]) as silent, Responder([HEAD, refusal % b"400 Bad Request"]) as refusing, \
            Responder([HEAD, refusal % b"500 Internal Server Error"]) as failing:
        yield {"nobody": NOBODY, "refusing": refusing.url, "failing": failing.url, "http": ogc.url, "silent": silent.url,
               "service": ogc.service, "secure": ogc.secure_service, "proxy": servers.guarded_proxy.port}


@pytest.mark.parametrize("code, message", CASES.items(), ids=lambda value: value[:40])
def test_message(zel, places, code, message):
    run = zel(SETUP + code.format(**places), ok=False)
    assert run.status == 1
    assert re.search(".*".join(map(re.escape, message.split("..."))), run.err.split("stack traceback")[0]), run.err


def test_reference_tells_of_each():
    reference = (SOURCE / "docs" / "reference.md").read_text()
    section = reference.split("## Errors people meet")[1].split("\n## ")[0]
    rows = [row.split(" | ")[0] for row in section.splitlines() if row.startswith("| `")]
    assert {message for row in rows for message in re.findall("`(.*?)`", row)} == set(CASES.values())

"""The catalogue page in a real browser, of a real server and of one that means harm."""

import base64
import html
import http.server
import os
import signal
import subprocess
import threading
import urllib.parse

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

from conftest import BUILD, SOURCE

CATALOGUE = SOURCE / "examples" / "catalogue.lua"
SWITCHES = ("headless", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run", "disable-background-networking",
            "disable-component-update", "disable-sync", "disable-dev-shm-usage")
PNG = base64.b64decode("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==")


@pytest.fixture(scope="module")
def browser(tmp_path_factory):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for switch in SWITCHES:
        options.add_argument("--" + switch)
    options.add_argument(f"--user-data-dir={tmp_path_factory.mktemp('browser')}")
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    yield driver
    driver.quit()


class Maps:
    """A map server: `layers` is the XML inside its outermost layer; `queries` are the parameters of its GetMaps.

    /picture, /page and /huge are what legends may name; a layer "refused" gets a service exception, "slow" waits for
    `release`.
    """

    def __init__(self, layers, version="1.1.1", title="Maps"):
        self.queries, self.asked, self.release = [], threading.Event(), threading.Event()
        maps = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                kind, body = maps.answer(self.path)
                self.send_response(200)
                self.send_header("Content-Type", kind)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                try:
                    self.wfile.write(body)
                except OSError:
                    pass  # the client has seen enough

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.url = f"http://127.0.0.1:{self.server.server_port}/wms"
        root, name = {"1.3.0": ("WMS_Capabilities", "WMS")}.get(version, ("WMT_MS_Capabilities", "OGC:WMS"))
        self.document = f"""<?xml version="1.0" encoding="UTF-8"?>
            <{root} version="{version}" xmlns:xlink="http://www.w3.org/1999/xlink"><Service><Name>{name}</Name>
            <Title>{text(title)}</Title><Abstract>{text(title)}</Abstract>
            <OnlineResource xlink:href="javascript:window.owned=1"/></Service>
            <Capability><Request><GetMap><Format>image/svg+xml</Format><Format>image/png</Format></GetMap></Request>
            <Layer><Title>{text(title)}</Title>{layers.replace("SELF", self.url)}</Layer></Capability></{root}>"""
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def answer(self, path):
        parts = urllib.parse.urlsplit(path)
        query = dict(urllib.parse.parse_qsl(parts.query, keep_blank_values=True))
        if parts.path.endswith("/page"):
            return "image/png", b"<html><script>window.owned=1</script></html>"
        if parts.path.endswith("/huge"):
            return "image/png", PNG + bytes(8_000_000)
        if query.get("Request") == "GetCapabilities":
            return "text/xml", self.document.encode()
        if query.get("Request") == "GetMap":
            self.queries.append(query)
            self.asked.set()
            if query["LAYERS"] == "refused":
                return "text/xml", b"""<ServiceExceptionReport version="1.1.1"><ServiceException><![CDATA[Out of <b>ink</b>]]></ServiceException></ServiceExceptionReport>"""
            if query["LAYERS"] == "slow":
                self.release.wait(30)
        return "image/png", PNG

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.release.set()
        self.server.shutdown()
        self.server.server_close()


def layer(name, title="", inside='<LatLonBoundingBox minx="-180" miny="-90" maxx="180" maxy="90"/><SRS>EPSG:4326</SRS>'):
    return f"<Layer><Name>{text(name)}</Name><Title>{text(title or name)}</Title>{inside}</Layer>"


def text(value):
    """Text for a document; in one piece, because the parts around an entity arrive joined by a blank."""
    return f"<![CDATA[{value}]]>"


def opened(browser, page):
    browser.get(page.as_uri())
    return {item.find_element(By.CSS_SELECTOR, "summary code").text: item
            for item in browser.find_elements(By.CSS_SELECTOR, ".layer") if item.find_elements(By.CSS_SELECTOR, "code")}


def visible(item):
    return item.parent.execute_script("return arguments[0].checkVisibility()", item)


def pictures(browser):
    """How wide each picture of the page came out, by what it shows."""
    return dict(browser.execute_script("return [...document.images].map(i => [i.alt, i.complete ? i.naturalWidth : 0])"))


def test_page_of_a_real_server(zel, ogc, browser, tmp_path):
    page = tmp_path / "page.html"
    run = zel(CATALOGUE, ogc.service, page)
    assert run.out == f"Catalogue: {page}\n" and "10 layers, 10 with a picture" in run.err
    assert not list(run.user_dir.rglob("catalogue-*"))
    layers = opened(browser, page)
    assert browser.title == "Die Erde – la Terre – Земля"
    shown = pictures(browser)
    assert shown["Map of Earth from space"] == 240 and shown["Legend of Grey edges"] > 0 and len(shown) == 13
    assert all(width > 0 for width in shown.values())
    words = browser.find_element(By.TAG_NAME, "main").text
    for part in ("Jürgen Müller, Kartograph", "EPSG:3857", "longitude, latitude: -180, -90 to 180, 90", "text/plain",
                 "2024-01-01", "A few cities & towns"):
        assert part in words
    assert browser.find_elements(By.CSS_SELECTOR, 'a[href="http://localhost/places.geojson"]')

    layers["features"].find_element(By.TAG_NAME, "summary").click()
    assert not visible(layers["zones"]) and visible(layers["earth"])
    field = browser.find_element(By.ID, "filter")
    field.send_keys("CLIMATE zones")
    assert browser.find_element(By.ID, "found").text == "1 of 10 layers"
    assert [item.find_element(By.TAG_NAME, "code").text for item in browser.find_elements(By.CSS_SELECTOR, ".layer")] == [
        "world", "features", "zones"]
    assert visible(layers["zones"])
    browser.execute_script("arguments[0].value = ''; arguments[0].dispatchEvent(new Event('input'))", field)
    assert len(browser.find_elements(By.CSS_SELECTOR, ".layer")) == 10

    assert browser.execute_script("return performance.getEntriesByType('resource').every(e => e.name.startsWith('data:'))")
    assert browser.get_log("browser") == []


HOSTILE = ["</title><script>window.owned=1</script>", "<img src=x onerror=window.owned=1>", '" autofocus onfocus="window.owned=1',
           "' onload='window.owned=1", "</style><svg onload=window.owned=1>", "{*script}{nonce}%1", "--><script>window.owned=1</script>",
           "&lt;script&gt;window.owned=1&lt;/script&gt;"]
LEGENDS = {"javascript:window.owned=1": None, "file:///etc/hostname": None, "data:text/html,x": None,
           'SELF/x" onerror="window.owned=1': None, "SELF/page": "what came is not a picture",
           "SELF/huge": "it is larger than", "SELF/picture": ""}


def test_hostile_server(zel, browser, tmp_path):
    styles = "".join(f"""<Style><Name>{i}</Name><Title>{text(HOSTILE[i % len(HOSTILE)])}</Title><LegendURL width="1"
        height="1"><Format>image/png</Format><OnlineResource xlink:href="{html.escape(url)}"/></LegendURL></Style>"""
                     for i, url in enumerate(LEGENDS))
    area = '<LatLonBoundingBox minx="0" miny="0" maxx="1" maxy="1"/><SRS>EPSG:4326</SRS>'
    keywords = "".join(f"<Keyword>{text(words)}</Keyword>" for words in HOSTILE)
    body = "".join(layer(words, words, area + f"<Abstract>{text(words)}</Abstract><KeywordList>{keywords}</KeywordList>")
                   for words in HOSTILE) + layer("styled", inside=area + styles)
    page = tmp_path / "page.html"
    with Maps(body, title=HOSTILE[0]) as server:
        zel(CATALOGUE, server.url, page)
        asked = [query["LAYERS"] for query in server.queries]
    assert asked == HOSTILE + ["styled"]
    layers = opened(browser, page)
    assert browser.execute_script("return window.owned") is None
    assert list(layers) == HOSTILE + ["styled"] and browser.title == HOSTILE[0]
    assert browser.execute_script("return document.scripts.length") == 1
    assert browser.execute_script(
        "return [...document.querySelectorAll('*')].filter(e => [...e.attributes].some(a => /^on|autofocus/.test(a.name))).length") == 0
    assert browser.execute_script("return [...document.links].filter(a => !/^https?:/.test(a.href)).length") == 0
    shown = layers["styled"].text
    assert [why for why in LEGENDS.values() if why and "No legend: " + why not in shown] == []
    assert list(pictures(browser).values()) == [1] * (len(HOSTILE) + 2)
    # What got past the escaping would still not run.
    browser.execute_script("const s = document.createElement('script'); s.text = 'window.owned = 1'; document.body.append(s)")
    assert browser.execute_script("return window.owned") is None


GEOGRAPHIC = """<EX_GeographicBoundingBox><westBoundLongitude>-20</westBoundLongitude><eastBoundLongitude>40</eastBoundLongitude>
    <southBoundLatitude>30</southBoundLatitude><northBoundLatitude>70</northBoundLatitude></EX_GeographicBoundingBox>"""
OWN = '<BoundingBox {}="EPSG:3035" minx="1" miny="2" maxx="3" maxy="4"/>'


@pytest.mark.parametrize("version, inside, place", [
    ("1.1.1", '<SRS>EPSG:4326</SRS><LatLonBoundingBox minx="-20" miny="30" maxx="40" maxy="70"/>',
     ("EPSG:4326", "-20,30,40,70", "240", "160")),
    ("1.1.0", '<SRS>EPSG:3035</SRS><LatLonBoundingBox minx="0" miny="0" maxx="9" maxy="9"/>' + OWN.format("SRS"),
     ("EPSG:3035", "1,2,3,4", "160", "160")),
    ("1.3.0", "<CRS>EPSG:4326</CRS><CRS>CRS:84</CRS>" + GEOGRAPHIC, ("CRS:84", "-20,30,40,70", "240", "160")),
    ("1.3.0", "<CRS>EPSG:4326</CRS>" + GEOGRAPHIC, ("EPSG:4326", "30,-20,70,40", "240", "160")),
    ("1.3.0", "<CRS>EPSG:3035</CRS>" + GEOGRAPHIC + OWN.format("CRS"), ("EPSG:3035", "1,2,3,4", "160", "160")),
    ("1.1.1", '<SRS>EPSG:4326</SRS><LatLonBoundingBox minx="5" miny="0" maxx="nan" maxy="1"/>', None),
])
def test_place_of_a_thumbnail(zel, tmp_path, version, inside, place):
    page = tmp_path / "page.html"
    with Maps(layer("a&b #1+%", inside=inside), version) as server:
        zel(CATALOGUE, "--version", version, server.url, page)
        queries = server.queries
    wanted = [("a&b #1+%", version, *place)] if place else []
    system = "CRS" if version == "1.3.0" else "SRS"
    assert [(q["LAYERS"], q["Version"], q[system], q["BBOX"], q["WIDTH"], q["HEIGHT"]) for q in queries] == wanted
    assert ("names no area that can be drawn" in page.read_text()) == (place is None)


def test_pictures_that_cannot_be_had(zel, tmp_path):
    page = tmp_path / "page.html"
    with Maps(layer("refused") + layer("second") + layer("third")) as server:
        run = zel(CATALOGUE, "--max", 2, server.url, page)
    words = page.read_text()
    assert "No picture: Out of &lt;b&gt;ink&lt;/b&gt;" in words
    assert "No picture: only the first 2 were asked for" in words
    assert "4 layers, 1 with a picture" in run.err


@pytest.mark.parametrize("arguments, message", [
    ([], "Usage: zel catalogue.lua"), (["http://localhost:1/x"], "Usage: zel catalogue.lua"),
    (["--max", "all", "http://localhost:1/x", "page"], "--max needs a number, not all"),
    (["--what", "http://localhost:1/x", "page"], "There is no option --what"),
    (["ftp://localhost/x", "page"], "must begin with http:// or https://, not ftp://localhost/x"),
    (["http://localhost:1/x", "page"], "No Web Map Service answered at http://localhost:1/x?"),
    (["http://localhost:1/x", "missing/page"], "Cannot write missing/page: missing/page.part: No such file"),
])
def test_what_goes_wrong_is_said_and_leaves_the_old_page(zel, tmp_path, arguments, message):
    (tmp_path / "page").write_text("old")
    run = zel(CATALOGUE, *arguments, ok=False)
    assert run.status == 1 and message in run.err and "traceback" not in run.err
    assert (tmp_path / "page").read_text() == "old" and not list(tmp_path.rglob("*.part"))


def test_interrupt_leaves_nothing(tmp_path):
    with Maps(layer("slow") + layer("next")) as server, \
            subprocess.Popen([BUILD / "zel", CATALOGUE, server.url, "page"], cwd=tmp_path, stderr=subprocess.PIPE, text=True,
                             env=os.environ | {"ZEL_USER_DIR": str(tmp_path / "user")}) as run:
        assert server.asked.wait(30)
        run.send_signal(signal.SIGINT)
        error = run.communicate(timeout=20)[1]
    assert run.returncode == 1 and "interrupted!" in error and len(server.queries) == 1
    assert [path.name for path in tmp_path.rglob("*") if path.is_file() and path.name != "README.txt"] == []


def test_thousands_of_layers(zel, browser, tmp_path):
    """More than an index can reach are read; a page of thousands can be filtered."""
    page = tmp_path / "page.html"
    for count in (33_000, 4_000):
        with Maps("".join(f"<Layer><Name>n{i}</Name><Title>t</Title></Layer>" for i in range(count))) as server:
            assert f"\n{count + 1} layers, 0 with a picture\n" in zel(CATALOGUE, "--max", 0, server.url, page).err
    browser.set_script_timeout(30)
    browser.get(page.as_uri())
    browser.find_element(By.ID, "filter").send_keys("n3999")
    assert browser.find_element(By.ID, "found").text == "1 of 4001 layers"
    assert len(browser.find_elements(By.CSS_SELECTOR, ".layer")) == 2

"""Maps, their descriptions and feature information, from a real server and from files."""

import json
import shutil

import pytest
from osgeo import gdal
from owslib.wms import WebMapService

from conftest import SOURCE
from lua_json import JSON
from mapserver.lighttpd import make_certificates

gdal.UseExceptions()

VERSIONS = pytest.mark.parametrize("version", ["1.1.0", "1.1.1", "1.3.0"])
OBJECT = JSON + """
local wms <close> = assert(zel.new("ZELnetOGCWMS", {WMS_VERSION = arg[2]}))
if arg[1] ~= "" then wms:ParseURL(arg[1]) end
local function try(f, ...) return select(2, pcall(f, wms, ...)) end
"""
MAP = "LAYERS=earth&STYLES=&BBOX=-180,-90,180,90&SRS=EPSG:4326&WIDTH=360&HEIGHT=180"
MAP_130 = MAP.replace("SRS=EPSG:4326", "CRS=CRS:84")
LAYERS = {"world": (-1, 1), "pictures": (0, 2), "earth": (1, 3), "numbers": (1, 3), "relief": (3, 4),
          "seasons": (3, 4), "features": (0, 2), "zones": (6, 3), "points": (6, 3), "places": (8, 4)}


@pytest.fixture
def wms(zel):
    """wms(code, url, version): runs a script on an object for that service."""
    return lambda code, url="", version="1.1.1", **more: zel(OBJECT + code, url, version, **more)


@VERSIONS
def test_layers(wms, ogc, version):
    done = wms("""
      print(wms:GetCapabilities())
      print(json(wms:GetLayers()))
      print(json(wms:GetServiceSection()[1]))
      print(wms:GetProperty{"LAST_FILE"}.LAST_FILE)
    """, ogc.service, version)
    count, layers, service, file = done.out.splitlines()
    layers, service = json.loads(layers), json.loads(service)
    assert count == "10" and file.endswith("/cap.xml")
    assert {layer["NAME"]: (int(layer["PARENT"]), int(layer["LEVEL"])) for layer in layers} == LAYERS
    assert [layer["LAYER"] for layer in layers] == [str(i) for i in range(10)]
    assert all(layer["VERSION"] == version for layer in layers)

    earth, seasons, zones, places = (layers[i] for i in (2, 5, 7, 9))
    names = "CRS" if version == "1.3.0" else "SRS"
    assert places[names] == ["EPSG:4326", "EPSG:3857", "CRS:84"] and places["NUM_" + names] == "3"
    assert layers[0]["NUM_" + names] == ("1" if version == "1.1.0" else "3")
    assert places["TITLE"] == "Places (Städte, 都市)" and places["KEYWORD"][:2] == ["cities", "Städte"]
    assert earth["ATTRIBUTION"]["LOGO_ONLINE"] == "http://localhost/logo.png"
    assert [style["NAME"] for style in zones["STYLE"]] == ["edges", "bold"]
    assert places["STYLE"][1] == dict.fromkeys(zones["STYLE"][0], "") and places["NUM_STYLE"] == "1"
    assert places["IDENTIFIER"] == [{"ID": "places-1", "AUTHORITY": "gazetteer"}]
    assert places["DATA_URL"][0]["FORMAT"] == "application/geo+json"
    if version == "1.3.0":
        assert seasons["DIMENSION"][0]["EXTENT"] == "2024-01-01,2024-07-01" and seasons["NUM_EXTENT"] == "0"
        assert places["EX_GEOBBOX"]["WEST"].startswith("-180") and places["LAT_LON_BBOX"]["MINX"] == ""
    else:
        assert seasons["EXTENT"][0]["EXTENT"] == "2024-01-01,2024-07-01" and seasons["NUM_DIMENSION"] == "1"
        assert places["LAT_LON_BBOX"]["MAXY"].startswith("90")
    assert list(layers[0])[:8] == ["LAYER", "PARENT", "LEVEL", "VERSION", "UPDATE_SEQ", "NAME", "TITLE", "ABSTRACT"]
    assert len(layers[0]) == 47 and len(service) == 23
    assert service["TITLE"] == "Die Erde – la Terre – Земля" and service["KEYWORD"] == ["Earth", "Erde", "satellite image"]
    assert service["ADDRESS"] == "Bahnhofstraße 1" and service["EMAIL"] == "maps@localhost"


@pytest.mark.parametrize("version", ["1.1.1", "1.3.0"])
def test_another_reader_sees_the_same(wms, ogc, version):
    done = wms("""
      wms:GetCapabilities()
      print(wms:GetProperty{"LAST_FILE"}.LAST_FILE)
      print(json(wms:GetLayers()))
    """, ogc.service, version)
    file, layers = done.out.splitlines()
    names = "CRS" if version == "1.3.0" else "SRS"
    with open(file, "rb") as document:
        reader = WebMapService("http://localhost/", version=version, xml=document.read())
    for layer in json.loads(layers):
        other = reader[layer["NAME"]]
        assert layer["TITLE"] == other.title
        assert set(other.styles) == {style["NAME"] for style in layer["STYLE"]} - {""}
        assert set(other.crsOptions) == set(layer[names])
        assert [k for k in layer["KEYWORD"] if k] == other.keywords


def test_selection(wms, ogc):
    """INDEX, NUMBER and COUNT of GETLAYERS, and what they refuse."""
    calls = ['INDEX = 8', 'INDEX = 3, NUMBER = 4', 'INDEX = 9, NUMBER = 100', 'NUMBER = 0', 'NUMBER = 65537', 'INDEX = 10',
             'INDEX = -1', 'NUMBER = -1', 'INDEX = 65536 * 3 + 2, NUMBER = "1"', 'INDEX = {1}', 'NUMBER = "x"']
    done = wms(f"""
      local function select(keywords)
        keywords[#keywords + 1] = "COUNT"
        local ok, layers, out = pcall(wms.GetLayers, wms, keywords)
        if not ok then return print(layers) end
        local names = {{}}
        for _, layer in ipairs(type(layers) == "table" and layers or {{}}) do names[#names + 1] = layer.NAME end
        print(out.COUNT .. " " .. table.concat(names, ","))
      end
      select{{NUMBER = -1, INDEX = 99}}
      wms:GetCapabilities()
      {chr(10).join("select{" + call + "}" for call in calls)}
    """, ogc.service)
    lines = done.out.splitlines()
    assert lines[:6] == ["0 ", "2 points,places", "4 numbers,relief,seasons,features", "1 places", "0 ", "1 world"]
    for line, part in zip(lines[6:], [
            "Error: Invalid Index keyword value. It is too large.",
            "Error: Invalid Index keyword value. It is less than zero.",
            "Error: Invalid Number keyword value. It is less than zero.", "1 earth", "single value is required",
            'Unable to read the text "x"'], strict=True):
        assert part in line


@pytest.mark.parametrize("version, query, format, driver", [
    ("1.1.0", MAP, "image/png", "PNG"), ("1.1.1", MAP, "image/jpeg", "JPEG"), ("1.3.0", MAP_130, "image/png", "PNG")])
def test_map(wms, ogc, version, query, format, driver):
    """The picture has the size asked for and shows the Earth."""
    done = wms(f"""
      local file = wms:GetMap("{query}&FORMAT={format}")
      local p = wms:GetProperty{{"LAST_FILE", "CONTENT_TYPE", "RESPONSE_HEADER"}}
      print(file, p.CONTENT_TYPE, p.LAST_FILE == file, p.RESPONSE_HEADER:match("^HTTP/1.1 200"))
    """, ogc.service, version, no_leak=False)
    file, content_type, same, status = done.out.strip().split("\t")
    assert file.endswith("/map." + format.split("/")[1]) and same == "true" and status and content_type in file
    picture = gdal.Open(file)
    assert picture.GetDriver().ShortName == driver
    assert (picture.RasterXSize, picture.RasterYSize, picture.RasterCount) == (360, 180, 3)
    earth = gdal.Translate("", str(ogc.data / "earth.tif"), format="MEM", width=360, height=180, resampleAlg="average")
    difference = abs(picture.ReadAsArray().astype(float) - earth.ReadAsArray()).mean()
    assert difference < 12


def test_feature_info(wms, ogc):
    query = MAP.replace("earth", "places").replace("WIDTH=360&HEIGHT=180", "WIDTH=720&HEIGHT=360") + \
        "&QUERY_LAYERS=places&X=377&Y=85&INFO_FORMAT="
    done = wms(f"""
      for _, format in ipairs{{"text/plain", "application/vnd.ogc.gml"}} do
        local file = wms:GetFeatureInfo("{query}" .. format)
        print(file, (io.open(file):read("a"):gsub("\\n", " ")))
      end
    """, ogc.service)
    plain, gml = (line.split("\t", 1) for line in done.out.splitlines())
    assert plain[0].endswith("/feature.plain") and "Zürich" in plain[1]
    assert gml[0].endswith("/feature.vnd.ogc.gml") and "<name>Zürich</name>" in gml[1]


def test_service_exception(wms, ogc):
    """The server's own words reach the status routine; the error tells what came instead of a map."""
    done = wms(f"""
      wms:SetProperty{{CALLBACK_FUNCTION = function(text) if text:find("^Error") then print((text:gsub("%s+", " "))) end end}}
      print(try(wms.GetMap, "{MAP.replace('earth', 'nosuch')}&FORMAT=image/png"))
      print(try(wms.GetMap, "{MAP}&FORMAT=image/none"))
      print(wms:GetMap("{MAP}&FORMAT=image/png"))
    """, ogc.service)
    told, first, also_told, second, file = done.out.splitlines()
    assert told.startswith("Error: Remote OGC server returned a service exception: (") and "LayerNotDefined" in told
    assert "InvalidFormat" in also_told
    assert "Error: Recieved an XML file instead of a Map. " in first and "xml" in first and "xml" in second
    assert file.endswith("map.png")


def test_over_tls(wms, ogc, tmp_path):
    """A server that offers HTTP/2 is read; one whose certificate cannot be trusted is refused, whatever the reason."""
    make_certificates(tmp_path)
    done = wms(f"""
      print(try(wms.GetCapabilities))
      wms:SetProperty{{SSL_CERTIFICATE_FILE = "{tmp_path}/ca.pem"}}
      print(try(wms.GetCapabilities))
      wms:SetProperty{{SSL_CERTIFICATE_FILE = "{ogc.ca}"}}
      print(wms:GetCapabilities(), wms:GetMap("{MAP}&FORMAT=image/png"))
      wms:SetProperty{{SSL_CERTIFICATE_FILE = "", SSL_VERIFY_PEER = 0, SSL_VERIFY_HOST = 0}}
      print(wms:GetCapabilities())
    """, ogc.secure_service)
    missing, wrong, trusted, unchecked = done.out.splitlines()
    assert "CCurlException" in missing and "ertificate" in missing and "CCurlException" in wrong
    assert trusted.startswith("10\t") and trusted.endswith("map.png") and unchecked == "10"


def test_from_file_and_from_url(wms, ogc, tmp_path):
    """A document fetched by its URL is read later from where it was written, and stays as it is."""
    done = wms(f"""
      wms:SetProperty{{CALLBACK_FUNCTION = function(text) print(text) end}}
      print(wms:GetCapabilities{{FROM_URL = "{ogc.service}&Service=WMS&Version=1.3.0&Request=GetCapabilities"}})
      wms:SetProperty{{CALLBACK_FUNCTION = ""}}
      local file = wms:GetProperty{{"LAST_FILE"}}.LAST_FILE
      print(file, wms:GetLayers())
      local before = io.open(file):read("a")
      print(wms:GetCapabilities{{FROM_FILE = file}}, wms:GetLayers()[10].NAME, before == io.open(file):read("a"))
      print(wms:GetCapabilities{{FROM_FILE = file, DISABLE_INHERITANCE = 1}}, wms:GetLayers()[10].NUM_CRS)
      print(wms:GetCapabilities{{FROM_FILE = file, DISABLE_INHERITANCE = 65536}}, wms:GetLayers()[10].NUM_CRS)
      wms:SetProperty{{CAPABILITIES_FILENAME = "copy"}}
      print(wms:GetCapabilities{{FROM_FILE = file}}, before == io.open("copy.xml"):read("a"))
    """)
    lines = done.out.splitlines()
    i = lines.index("0")
    assert lines[i - 2] == "url response written to: " and lines[i - 1] == lines[i + 1].split("\t")[0]
    assert [line.split("\t")[-2:] for line in lines[i + 1:]] == [
        [lines[i - 1], "0"], ["places", "true"], ["10", "1"], ["10", "3"], ["10", "true"]]
    assert (tmp_path / "copy.xml").stat().st_mode & 0o666 == 0o666


REFUSED = {
    'FROM_FILE = 5': "A string is required",
    'FROM_FILE = "no such"': "Error: Passed in FROM_FILE does not exist: no such",
    'FROM_FILE = ""': "Error: Passed in FROM_FILE does not exist: ",
    'FROM_URL = {"a", "b"}': "single value is required",
    'FROM_URL = ""': "Error: Passed in FROM_URL is empty.",
    'FROM_URL = "", SCHEMA_CHECKING = 3': "Error: Passed in FROM_URL is empty.",
    'SCHEMA_CHECKING = 3, VALIDATION_MODE = 3': "Error: Schema_Check keyword value is not valid.",
    'SCHEMA_CHECKING = -1': "Error: Schema_Check keyword value is not valid.",
    'VALIDATION_MODE = {0}, DISABLE_INHERITANCE = {0}': "single value is required",
    'VALIDATION_MODE = -1': "Error: Validation_Mode keyword value is not valid.",
    'VALIDATION_MODE = 65536': "Error: Validation_Mode keyword value is not valid.",
    'DISABLE_INHERITANCE = {1}': "single value is required",
    'FROM_FIL = "x"': "Keyword FROM_FIL is not allowed",
}


def test_refused_arguments(wms, ogc):
    """Nothing is sent, and the layers that were read stay."""
    done = wms(f"""
      wms:GetCapabilities()
      wms:SetProperty{{CALLBACK_FUNCTION = function(text) print("told " .. text) end}}
      {chr(10).join("print(try(wms.GetCapabilities, {" + call + "}))" for call in REFUSED)}
      print(try(wms.GetMap, ""))
      print(try(wms.GetMap, 5))
      print(try(wms.GetMap))
      print(try(wms.GetMap, "a=b", {{FORMAT = "x"}}))
      print(try(wms.GetFeatureInfo, ""))
      print(#wms:GetLayers())
    """, ogc.service)
    for line, part in zip(done.out.splitlines(), [
            *REFUSED.values(), "Error: Passed in Map argument is empty.", "A string is required",
            "Incorrect number of arguments", "Keyword FORMAT is not allowed", "Error: Passed in Feature argument is empty.",
            "10"], strict=True):
        assert part in line


# Sources that are no capabilities, and what is said about them.
BAD = {
    "malformed.xml": "Fatal Error: SAX Parser: Message (",
    "empty.xml": "Fatal Error: SAX Parser",
    "directory": "Error",
    "map.png": "Fatal Error: SAX Parser",
    "coverages.xml": "",
    "exception.xml": "Error: Remote OGC server returned a service exception: (",
    "old.xml": "ersion",
}


@pytest.mark.parametrize("source", BAD)
def test_bad_documents(zel, ogc, tmp_path, source):
    """Each ends in an error or in nothing found; the object goes on, and nothing is left."""
    (tmp_path / "malformed.xml").write_text('<WMS_Capabilities version="1.3.0"><Capability><Layer><Name>a</Nam')
    (tmp_path / "empty.xml").write_text("")
    (tmp_path / "directory").mkdir()
    shutil.copy("/usr/share/xplanet/images/earth.jpg", tmp_path / "map.png")
    (tmp_path / "coverages.xml").write_text(
        '<WCS_Capabilities version="1.0.0"><ContentMetadata><CoverageOfferingBrief><name>a</name>'
        '</CoverageOfferingBrief></ContentMetadata></WCS_Capabilities>')
    (tmp_path / "exception.xml").write_text(
        '<ServiceExceptionReport version="1.1.1"><ServiceException code="X">why</ServiceException></ServiceExceptionReport>')
    (tmp_path / "old.xml").write_text('<WMT_MS_Capabilities version="0.9"/>')
    (tmp_path / "good.xml").write_text(
        '<WMS_Capabilities version="1.3.0"><Capability><Layer><Name>a</Name></Layer></Capability></WMS_Capabilities>')
    done = zel(f"""
      local wms = zel.new("ZELnetOGCWMS")
      print(wms:GetCapabilities{{FROM_FILE = "good.xml"}})
      print(select(2, pcall(wms.GetCapabilities, wms, {{FROM_FILE = "{source}"}})))
      print(wms:GetCapabilities{{FROM_FILE = "good.xml"}}, wms:GetLayers()[1].NAME)
      wms:close() wms = nil
    """, no_leak=True)
    lines = done.out.splitlines()
    assert lines[0] == "1" and lines[-1] == "1\ta"
    assert BAD[source] in lines[1] and lines[1] != "1"


@pytest.fixture(scope="module")
def flat(tmp_path_factory):
    """flat(n, names): a document of a layer with that many reference systems and n - 1 layers in it."""
    def write(n, names=1):
        path = tmp_path_factory.mktemp("flat") / "caps.xml"
        crs = "".join(f"<CRS>EPSG:{i}</CRS>" for i in range(names))
        layers = "".join(f"<Layer><Name>n{i}</Name></Layer>" for i in range(1, n))
        path.write_text(f'<WMS_Capabilities version="1.3.0"><Capability><Layer><Name>n0</Name>{crs}{layers}</Layer>'
                        "</Capability></WMS_Capabilities>")
        return path
    return write


def test_more_layers_than_fit_16_bits(wms, flat):
    """The count wraps. INDEX and NUMBER reach the first layers, an INDEX without NUMBER all the rest."""
    done = wms(f"""
      print(wms:GetCapabilities{{FROM_FILE = "{flat(70000)}"}})
      print(wms:GetLayers{{INDEX = 32767, NUMBER = 1}}[1].NAME)
      wms:GetCapabilities{{FROM_FILE = "{flat(33000)}"}}
      local rest, out = wms:GetLayers{{INDEX = 32767, "COUNT"}}
      print(out.COUNT, #rest, rest[1].NAME, rest[233].LAYER, rest[233].NAME, rest[233].PARENT)
    """)
    assert done.out.splitlines() == ["4464", "n32767", "233\t233\tn32767\t32999\tn32999\t0"]


def test_many_inherited_names(wms, flat):
    done = wms(f"""
      wms:GetCapabilities{{FROM_FILE = "{flat(40, 6000)}"}}
      local layers = wms:GetLayers{{INDEX = 1}}
      for _, i in ipairs{{1, 39}} do print(layers[i].NUM_CRS, #layers[i].CRS, layers[i].CRS[1], layers[i].CRS[6000]) end
    """)
    assert done.out.splitlines() == ["6000\t6000\tEPSG:0\tEPSG:5999"] * 2


@pytest.mark.parametrize("script, arguments, said", [
    ("wms_layers.lua", "{service}", "        Places (Städte, 都市) [places], queryable, -180 -90 180 90\n"),
    ("wms_layers.lua", "{service} zones", "  STYLE: NAME bold, TITLE Red areas, "),
    ("wms_layers.lua", "{service} atlantis", "has no layer atlantis"),
    ("wms_layers.lua", "nowhere.xml", "Passed in FROM_FILE does not exist: nowhere.xml"),
    ("wms_feature_info.lua", "{service} places 8.6 47.4", "name = 'Zürich'"),
    ("wms_feature_info.lua", "{service} earth 8.6 47.4", "answers no questions about layer earth"),
    ("wms_feature_info.lua", "{service} places 8.6 47.4 text/html", "no feature format text/html, only text/plain, "),
    ("wms_feature_info.lua", "{service} places here", "Usage: "),
])
def test_examples(zel, ogc, script, arguments, said):
    run = zel(SOURCE / "examples" / script, *arguments.format(service=ogc.service).split(), ok=False)
    assert said in run.out + run.err

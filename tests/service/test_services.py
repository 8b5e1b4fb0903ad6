"""Maps and coverages from a real server, and what both services refuse."""

import json
import urllib.parse

import pytest
from osgeo import gdal

from lua_json import JSON
from responder import HEAD, Responder

gdal.UseExceptions()

OBJECT = JSON + """
local service, url, version = table.unpack(arg)
local o <close> = assert(zel.new("ZELnetOGC" .. service, version and {WMS_VERSION = version}))
if url ~= "" then o:ParseURL(url) end
local function try(f, ...) return select(2, pcall(f, o, ...)) end
local function last() return o:GetProperty{"LAST_FILE"}.LAST_FILE end
"""
BOTH = pytest.mark.parametrize("service", ["WMS", "WCS"])
MAP = "LAYERS=earth&STYLES=&BBOX=-180,-90,180,90&SRS=EPSG:4326&WIDTH=360&HEIGHT=180"


@pytest.fixture
def on(zel):
    """on(service, code, url, version): the lines that a script prints on an object for that service."""
    return lambda service, code, url="", *version: zel(OBJECT + code, service, url, *version).out.splitlines()


@pytest.mark.parametrize("version", ["1.1.1", "1.3.0"])
def test_an_inspire_service(on, ogc, version):
    """Its document in version 1.1.1 has namespaces that its DTD declares. A name with a comma can only be listed."""
    names = ["Wald & Wiese, l'Île \"R&D\" 100 % #1", "l'Île \"R&D\" 100 % #1"]
    query = MAP.replace("earth", urllib.parse.quote(names[1])) + "&CRS=CRS:84&FORMAT=image/png"
    root, *listed, file = on("WMS", f"""
      o:GetCapabilities()
      for _, layer in ipairs(o:GetLayers()) do print(layer.NAME) end
      print(o:GetMap("{query}"))
    """, ogc.inspire, version)
    assert root == "inspire" and listed == names
    assert gdal.Open(file).ReadAsArray().std() > 20


def test_coverages(on, ogc):
    """All in one request, and one."""
    nothing, count, briefs, none, names, relief, seasons, one, unknown = on("WCS", """
      print(json(o:GetServiceSection()), json(o:GetCoverageOfferingBriefs()))
      print(o:GetCapabilities())
      print(json(o:GetCoverageOfferingBriefs()))
      print(try(o.GetCoverageOffering))
      local names, out = o:DescribeCoverage{NAMES = {"earth", "relief", "seasons"}, "COUNT"}
      print(json(names), out.COUNT, last())
      for i = 1, 2 do print(json(o:GetCoverageOffering{INDEX = i}[1])) end
      print(json(o:DescribeCoverage{NAMES = "relief"}), o:GetCoverageOffering{INDEX = -1}[1].CO_NAME)
      print((try(o.DescribeCoverage, {NAMES = "nosuch"}):gsub("%s+", " ")))
    """, ogc.service)
    briefs, relief, seasons = map(json.loads, (briefs, relief, seasons))
    assert (nothing, count) == ("0\t0", "3") and "Error: Invalid index in OgcWcsGetCO call." in none
    assert [(brief["INDEX"], brief["LABEL"]) for brief in briefs][1] == ("1", "Relief (Höhe)")
    assert names.startswith('["earth","relief","seasons"]\t3\t') and names.endswith("/descov.xml") and one == '["relief"]\trelief'
    assert relief["RANGE"]["NULL_SINGLE_VALUES"] == ["-32768"] and relief["RANGE"]["LABEL"] == "Höhe in Metern"
    assert [time["POSITION"] for time in seasons["TEMP_TM_POSITION"]] == ["2024-01-01", "2024-07-01"]
    assert "Error: Remote OGC server returned a service exception: (" in unknown and "nosuch" in unknown


CAPABILITIES = {"WMS": ("<WMS_Capabilities version='1.3.0'><Capability>{}</Capability></WMS_Capabilities>",
                        "<Layer><Name>c{}</Name><KeywordList>{}</KeywordList></Layer>", "GetLayers", "KEYWORD"),
                "WCS": ("<WCS_Capabilities version='1.0.0'><ContentMetadata>{}</ContentMetadata></WCS_Capabilities>",
                        "<CoverageOfferingBrief><name>c{}</name>{}</CoverageOfferingBrief>", "GetCoverageOfferingBriefs", "KEYWORDS")}


@pytest.mark.parametrize("version, query, extension", [
    ("1.1.0", MAP, "png"), ("1.1.1", MAP, "jpeg"), ("1.3.0", MAP.replace("SRS=EPSG:4326", "CRS=CRS:84"), "png")])
def test_map(on, ogc, version, query, extension):
    file, told = on("WMS", f"""
      print(o:GetMap("{query}&FORMAT=image/{extension}"))
      local p = o:GetProperty{{"LAST_FILE", "CONTENT_TYPE", "RESPONSE_HEADER"}}
      print(p.LAST_FILE, p.CONTENT_TYPE, p.RESPONSE_HEADER:match("^HTTP/1.1 200"))
    """, ogc.service, version)
    assert file.endswith("/map." + extension) and told == f"{file}\t{extension}\tHTTP/1.1 200"
    assert gdal.Open(file).GetDriver().ShortName == extension.upper() and gdal.Open(file).ReadAsArray().std() > 20


REPORT = "<ServiceExceptionReport><ServiceException code='c'>no</ServiceException></ServiceExceptionReport>"
NEWER = "<ExceptionReport><Exception exceptionCode='No'/></ExceptionReport>"
SAID = "Error: Remote OGC server returned a service exception: ( Code= c"
NO_MAP, NO_COVERAGE = "Error: Recieved an XML file instead of a Map. {}.", "Error: Received an XML file instead of a coverage. {}."
BROKEN, EMPTY, HTML = "Fatal Error: SAX Parser: Message (", "Error: failed to get a", "Error: Http Get did not succeed. "
STATUS = ("Http ErrCode(400), Http Err(Bad) Http ErrMsg(No HTML found)",) * 4
# The errors when a map, a coverage, feature information, capabilities were asked for, and the last words of the server that
# the status routine heard when it was a map.
ANSWERS = {
    ("200 OK", "image/png", "picture"): (("", "", "", BROKEN), ""),
    ("200 OK", "application/vnd.ogc.se_xml", REPORT): ((NO_MAP, SAID, "", SAID), SAID),
    ("200 OK", "application/xhtml+xml", "<a/>"): ((NO_MAP, NO_COVERAGE, "", ""), ""),
    ("200 OK", "text/xml", "<WMS_Capabilities version='9'><Layer/></WMS_Capabilities>"):
        ((NO_MAP, NO_COVERAGE, "", "Error: OGC WMS version number (9) is not supported."), ""),
    ("200 OK", "text/xml", REPORT[:-4]): ((BROKEN, BROKEN, "", BROKEN), ""),
    ("200 OK", "text/xml", ""): ((EMPTY,) * 4, ""),
    ("200 OK", "text/html", "<html><body>no</body></html>"): ((HTML, HTML, "", HTML), ""),
    **{("400 Bad", kind, body): (STATUS, words) for kind, body, words in (
        ("text/xml", REPORT, SAID), ("text/html", REPORT, SAID), ("text/xml", REPORT[:-9], SAID), ("text/xml", REPORT[:9], ""),
        ("text/xml", NEWER, "Error: Remote OGC server returned a exception report: ( Code= No)"), ("text/html", "", ""),
        ("text/xml", "<WMS_Capabilities/>", ""), ("image/png", "picture", ""), ("text/html", "<!DOCTYPE a SYSTEM 'd'><p:b/>", ""))}}


@pytest.mark.parametrize("answer", ANSWERS)
def test_answers_that_were_not_asked_for(zel, tmp_path, answer):
    """What was read before stays when something else than capabilities was asked for, and all works again."""
    status, kind, body = answer
    errors, words = ANSWERS[answer]
    head = f"HTTP/1.1 {status}\r\nContent-Type: {kind}\r\nContent-Length: {len(body)}\r\nConnection: close\r\n\r\n"
    (tmp_path / "caps.xml").write_text(CAPABILITIES["WMS"][0].format("<Layer/><Layer/>"))
    with Responder([HEAD, (head + body).encode()]) as server:
        done = zel(f"""
          local told = {{}}
          local wms = zel.new("ZELnetOGCWMS", {{CALLBACK_FUNCTION = function(text) told[#told + 1] = text end}})
          local wcs = zel.new("ZELnetOGCWCS")
          wms:ParseURL("{server.url}ows?") wcs:ParseURL("{server.url}ows?")
          wms:GetCapabilities{{FROM_FILE = "caps.xml"}}
          local function ask(o, method, ...)
            local ok, why = pcall(o[method], o, ...)
            print(ok and "" or (why:gsub("\\n", " ")))
          end
          ask(wms, "GetMap", "a=b")
          local heard = told[#told - 1] .. "|" .. told[#told]
          ask(wcs, "GetCoverage", "a=b") ask(wms, "GetFeatureInfo", "a=b")
          local kept = #wms:GetLayers()
          ask(wms, "GetCapabilities")
          print(kept) print((heard:gsub("\\n", " ")))
        """)
    *said, kept, told = done.out.splitlines()
    assert not done.err
    for line, part in zip(said, errors, strict=True):
        assert part.replace("{}", kind) in line and bool(part) == bool(line)
    assert kept == "2" and words in told and (words != "" or "Remote OGC server" not in told)
    assert ("see file: (" in told) == (status[0] == "4" and body != "")


def test_from_file_and_from_url(on, ogc, tmp_path):
    """A document fetched by its URL is read later from where it was written, and stays as it is."""
    lines = on("WMS", f"""
      o:SetProperty{{CALLBACK_FUNCTION = function(text) print(text) end}}
      local url = "{ogc.service}&Service=WMS&Version=1.3.0&Request=GetCapabilities"
      print(o:GetCapabilities{{FROM_URL = url}})
      o:SetProperty{{CALLBACK_FUNCTION = ""}}
      local file, before = last(), io.open(last()):read("a")
      print(file, o:GetLayers())
      for _, disable in ipairs{{0, 1, 65536}} do
        print(o:GetCapabilities{{FROM_FILE = file, DISABLE_INHERITANCE = disable}}, o:GetLayers()[10].NUM_CRS)
      end
      print(before == io.open(file):read("a"))
      o:SetProperty{{CAPABILITIES_FILENAME = "copy", CALLBACK_FUNCTION = function()
        o:SetProperty{{CAPABILITIES_FILENAME = "later"}}
      end}}
      print(o:GetCapabilities{{FROM_FILE = file, FROM_URL = url}}, before == io.open("copy.xml"):read("a"))
    """, "", "1.3.0")
    i = lines.index("0")
    assert lines[i - 2:i] == ["url response written to: ", lines[i + 1].split("\t")[0]] and lines[i + 1].endswith("\t0")
    assert lines[i + 2:] == ["10\t3", "10\t1", "10\t3", "true", "10\ttrue"]
    assert (tmp_path / "copy.xml").stat().st_mode & 0o666 == 0o666


VALIDATION, SCHEMA = (f"Error: {what} keyword value is not valid." for what in ("Validation_Mode", "Schema_Check"))
# Before anything is sent: the object has no server. The first of two faults is the one that is said.
REFUSED = {
    'GetCapabilities, {FROM_FILE = ""}': "Error: Passed in FROM_FILE does not exist: ",
    'GetCapabilities, {FROM_FILE = "http://me:pw@h"}': "Error: Passed in FROM_FILE does not exist: http://***@h",
    'GetCapabilities, {FROM_URL = "", SCHEMA_CHECKING = 3}': "Error: Passed in FROM_URL is empty.",
    'GetCapabilities, {VALIDATION_MODE = -1}': VALIDATION, 'GetCapabilities, {VALIDATION_MODE = 65536 + 3}': VALIDATION,
    'GetCapabilities, {SCHEMA_CHECKING = "3"}': SCHEMA, 'GetCapabilities, {SCHEMA_CHECKING = -1}': SCHEMA,
    **{f"GetCapabilities, {{{keyword} = {value}}}": f"keyword {keyword}: {why}"
       for keyword in ("FROM_FILE", "FROM_URL", "VALIDATION_MODE", "SCHEMA_CHECKING")
       for value, why in (('{"a", "b"}', "A single value is required"), ("print", "a function cannot be passed"))}}
METHODS = ["Init", "Cleanup", "GetProperty", "SetProperty", "GetCapabilities", "GetServiceSection", "ParseURL, 'x'"]
OWN_METHODS = {"WMS": ["GetLayers"], "WCS": ["DescribeCoverage", "GetCoverageOffering", "GetCoverageOfferingBriefs"]}
REFUSED_BY = {
    "WMS": REFUSED | {
        'GetCapabilities, {VALIDATION_MODE = 3, SCHEMA_CHECKING = 3}': SCHEMA,
        'GetCapabilities, {VALIDATION_MODE = 65536}': VALIDATION, 'GetCapabilities, {VALIDATION_MODE = 3}': VALIDATION,
        'GetMap, ""': "Error: Passed in Map argument is empty.", 'GetMap': "Incorrect number of arguments",
        'GetMap, "a=b", {FORMAT = "x"}': "Keyword FORMAT is not allowed", 'GetMap, 5': "argument 1: A string is required",
        'GetMap, o': "OGCWMS::GETMAP: ", 'GetMap, {1, 2}': "OGCWMS::GETMAP: ",
        'GetFeatureInfo, ""': "Error: Passed in Feature argument is empty."},
    "WCS": REFUSED | {
        'GetCapabilities, {VALIDATION_MODE = 3, SCHEMA_CHECKING = 3}': VALIDATION,
        'GetCapabilities, {DISABLE_INHERITANCE = 1}': "Keyword DISABLE_INHERITANCE is not allowed",
        'DescribeCoverage, {NAMES = "a", SCHEMA_CHECKING = 3}': SCHEMA,
        'DescribeCoverage, {VALIDATION_MODE = 9}': "Error: The NAMES keyword must be set.",
        'DescribeCoverage, {NAMES = "a", FROM_FILE = 5}': "Error: NAMES and FROM_FILE keywords are mutally exclusive..",
        'DescribeCoverage, {FROM_FILE = "no such"}': "Error: Passed in FROM_FILE does not exist: no such",
        'DescribeCoverage, {NAMES = 5, VALIDATION_MODE = 3}': VALIDATION, 'DescribeCoverage, {NAMES = 5}': "A string is required",
        'GetCoverage, ""': "Error: Passed in coverage argument is empty.",
        'GetServiceSection, {COUNT = 1}': "Keyword COUNT is not allowed"}}


@BOTH
def test_refused_arguments(on, service):
    cases = REFUSED_BY[service] | dict.fromkeys(
        (f"{method}, 1" for method in METHODS + OWN_METHODS[service]), "Incorrect number of arguments: ")
    for line, (call, part) in zip(on(service, "\n".join(f"print(try(o.{call}))" for call in cases)), cases.items(), strict=True):
        assert part in line, call


def test_many_layers_and_names(on, tmp_path):
    """The count wraps at 16 bits. INDEX and NUMBER reach the first layers, an INDEX without NUMBER all the rest."""
    for n, names in ((70000, 1), (33000, 1), (40, 6000)):
        inside = "".join(f"<CRS>EPSG:{i}</CRS>" for i in range(names)) + "".join(
            f"<Layer><Name>n{i}</Name></Layer>" for i in range(1, n))
        (tmp_path / f"flat{n}.xml").write_text(CAPABILITIES["WMS"][0].format(f"<Layer><Name>n0</Name>{inside}</Layer>"))
    assert on("WMS", """
      print(o:GetCapabilities{FROM_FILE = "flat70000.xml"}, o:GetLayers{INDEX = 32767, NUMBER = 1}[1].NAME)
      o:GetCapabilities{FROM_FILE = "flat33000.xml"}
      local rest, out = o:GetLayers{INDEX = 32767, "COUNT"}
      print(out.COUNT, #rest, rest[1].NAME, rest[233].LAYER, rest[233].NAME, rest[233].PARENT)
      o:GetCapabilities{FROM_FILE = "flat40.xml"}
      local last = o:GetLayers{INDEX = 39}[1]
      print(last.NUM_CRS, #last.CRS, last.CRS[1], last.CRS[6000])
    """) == ["4464\tn32767", "233\t233\tn32767\t32999\tn32999\t0", "6000\t6000\tEPSG:0\tEPSG:5999"]


LARGE = {"WMS": "It is too large.", "WCS": "Index is greater than the total available briefs."}
# What a selection of five gives: how many, the first one, and its list as long as the longest of those; or what is said.
SELECTIONS = {"": '5 c0 ["","","","",""]', "INDEX = 1, NUMBER = 1": '1 c1 ["k","k"]', "INDEX = 3, NUMBER = 10": '2 c3 ""',
              "NUMBER = 0, INDEX = 7": "0 ", "NUMBER = '2'": '2 c0 ["",""]', "INDEX = 65536 * 3 + 2, NUMBER = 1": '1 c2 ["k","k","k","k","k"]',
              "INDEX = 5": "Error: Invalid Index keyword value. ", "INDEX = -1": "Error: Invalid Index keyword value. It is less than zero.",
              "NUMBER = -1, INDEX = 7": "Error: Invalid Number keyword value. It is less than zero.",
              "NUMBER = 32768": "Error: Invalid Number keyword value. It is less than zero.", "INDEX = {0}": "single value is required",
              "NUMBER = 'x'": 'Unable to read the text "x"'}


@BOTH
def test_selection(on, tmp_path, service):
    document, item, method, tag = CAPABILITIES[service]
    items = "".join(item.format(i, ("<keyword>k</keyword>" * n)) for i, n in enumerate((0, 2, 5, 0, 0)))
    (tmp_path / "caps.xml").write_text(document.format(items))
    before, *lines = on(service, f"""
      local function select(keywords)
        keywords[#keywords + 1] = "COUNT"
        local ok, found, out = pcall(o.{method}, o, keywords)
        print(ok and out.COUNT .. " " .. (found == 0 and "" or found[1].NAME .. " " .. json(found[1].{tag})) or found)
      end
      select{{NUMBER = -1, INDEX = 99}}
      o:GetCapabilities{{FROM_FILE = "caps.xml"}}
      {chr(10).join("select{" + call + "}" for call in SELECTIONS)}
    """)
    assert before == "0 "
    for line, (call, expected) in zip(lines, SELECTIONS.items(), strict=True):
        assert line == expected or expected[0] not in "0125" and expected in line, call
    assert LARGE[service] in lines[-6]

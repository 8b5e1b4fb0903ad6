"""Coverages and their descriptions, from a real server and from files."""

import json

import pytest
from osgeo import gdal

from conftest import SOURCE
from lua_json import JSON

gdal.UseExceptions()

OBJECT = JSON + """
local wcs <close> = assert(zel.new("ZELnetOGCWCS"))
if arg[1] ~= "" then wcs:ParseURL(arg[1]) end
local function try(f, ...) return select(2, pcall(f, wcs, ...)) end
"""
# The north-western quarter, pixel by pixel.
QUARTER = "COVERAGE={}&CRS=EPSG:4326&BBOX=-180,0,0,90&WIDTH={}&HEIGHT={}&FORMAT={}"
RELIEF = QUARTER.format("relief", 360, 180, "GEOTIFF_INT16")


@pytest.fixture
def wcs(zel):
    """wcs(code, url): runs a script on an object for that service."""
    return lambda code, url="", **more: zel(OBJECT + code, url, **more)


def test_capabilities(wcs, ogc):
    done = wcs("""
      print(json(wcs:GetServiceSection()), json(wcs:GetCoverageOfferingBriefs()))
      print(wcs:GetCapabilities(), wcs:GetProperty{"LAST_FILE"}.LAST_FILE)
      print(json(wcs:GetServiceSection()))
      print(json(wcs:GetCoverageOfferingBriefs()))
    """, ogc.service)
    nothing, count, service, briefs = done.out.splitlines()
    assert nothing == "0\t0" and count.startswith("3\t") and count.endswith("/cap.xml")
    [service], briefs = json.loads(service), json.loads(briefs)
    assert list(service) == ["NAME", "LABEL", "DESCRIPTION", "KEYWORDS", "INDIVIDUAL", "ORGANIZATION", "POSITION", "VOICE",
                             "FAX", "DELIVERY", "CITY", "ADMINISTRATIVE", "POSTAL", "COUNTRY", "EMAIL", "ONLINE", "FEES",
                             "ACCESS"]
    assert service["LABEL"] == "Die Erde als Coverage" and service["KEYWORDS"] == ["Earth", "Erde", "satellite image"]
    assert service["INDIVIDUAL"] == "Jürgen Müller"
    assert list(briefs[0]) == ["INDEX", "NAME", "LABEL", "SRS_NAME", "POS1", "DIMS1", "POS2", "DIMS2", "TM_POS1", "TM_POS2",
                               "KEYWORDS", "DESCRIPTION", "VERSION", "UPDATE_SEQ"]
    assert [(brief["INDEX"], brief["NAME"]) for brief in briefs] == [("0", "earth"), ("1", "relief"), ("2", "seasons")]
    assert briefs[1]["LABEL"] == "Relief (Höhe)" and (briefs[1]["POS1"], briefs[1]["POS2"]) == ("-180 -90", "180 90")
    assert briefs[0]["KEYWORDS"] == ["picture", "RGB"] and briefs[2]["KEYWORDS"] == ["", ""]
    assert (briefs[2]["TM_POS1"], briefs[2]["TM_POS2"], briefs[0]["TM_POS1"]) == ("2024-01-01", "2024-07-01", "")


def test_selection_of_briefs(wcs, tmp_path):
    """INDEX, NUMBER and COUNT; KEYWORDS is as long as the longest of those that are returned."""
    briefs = "".join(f"<CoverageOfferingBrief><name>c{i}</name><keywords>{'<keyword>k</keyword>' * n}</keywords>"
                     "</CoverageOfferingBrief>" for i, n in enumerate((0, 2, 5, 0, 0)))
    (tmp_path / "caps.xml").write_text(f'<WCS_Capabilities version="1.0.0"><Service><name>s</name></Service>'
                                       f"<ContentMetadata>{briefs}</ContentMetadata></WCS_Capabilities>")
    calls = ["", "INDEX = 1, NUMBER = 1", "INDEX = 3, NUMBER = 10", "NUMBER = 0, INDEX = 7", "NUMBER = '2'", "INDEX = 5",
             "INDEX = -1", "NUMBER = -1, INDEX = 7", "NUMBER = 32768", "INDEX = {0}"]
    done = wcs(f"""
      print(wcs:GetCapabilities{{FROM_FILE = "caps.xml"}}, json(wcs:GetServiceSection()[1].KEYWORDS))
      local function select(keywords)
        keywords[#keywords + 1] = "COUNT"
        local ok, briefs, out = pcall(wcs.GetCoverageOfferingBriefs, wcs, keywords)
        print(ok and out.COUNT .. " " .. (briefs == 0 and "" or briefs[1].NAME .. " " .. json(briefs[1].KEYWORDS)) or briefs)
      end
      {chr(10).join("select{" + call + "}" for call in calls)}
    """)
    lines = done.out.splitlines()
    assert lines[:6] == ['5\t""', '5 c0 ["","","","",""]', '1 c1 ["k","k"]', '2 c3 ""', "0 ", '2 c0 ["",""]']
    for line, part in zip(lines[6:], [
            "Error: Invalid Index keyword value. Index is greater than the total available briefs.",
            "Error: Invalid Index keyword value. It is less than zero.",
            "Error: Invalid Number keyword value. It is less than zero.",
            "Error: Invalid Number keyword value. It is less than zero.", "single value is required"], strict=True):
        assert part in line


def test_description(wcs, ogc):
    """All coverages in one request, and one."""
    done = wcs("""
      print(try(wcs.GetCoverageOffering))
      local names, out = wcs:DescribeCoverage{NAMES = {"earth", "relief", "seasons"}, "COUNT"}
      print(json(names), out.COUNT, wcs:GetProperty{"LAST_FILE"}.LAST_FILE)
      for i = 0, 2 do print(json(wcs:GetCoverageOffering{INDEX = i}[1])) end
      print(wcs:GetCoverageOffering{INDEX = -1}[1].CO_NAME, try(wcs.GetCoverageOffering, {INDEX = 3}))
      print(json(wcs:DescribeCoverage{NAMES = "relief"}), wcs:GetCoverageOffering()[1].CO_NAME)
      print(try(wcs.DescribeCoverage, {NAMES = "nosuch"}))
    """, ogc.service)
    none, names, earth, relief, seasons, index, one, *unknown = done.out.splitlines()
    assert "Error: Invalid index in OgcWcsGetCO call." in none and "Error: Invalid index in OgcWcsGetCO call." in index
    assert names.startswith('["earth","relief","seasons"]\t3\t') and names.endswith("/descov.xml")
    assert index.startswith("earth\t") and one == '["relief"]\trelief'
    assert "Error: Remote OGC server returned a service exception: (" in unknown[0] and "nosuch" in " ".join(unknown)
    earth, relief, seasons = map(json.loads, (earth, relief, seasons))
    assert earth["SPAT_DOM_GRID"][0]["LIMITS_ENV_HIGH"] == "2047 1023"
    assert earth["SPAT_DOM_GRID"][0]["OFFSET_VECTORS"] == ["0.17578125 0", "0 -0.17578125"]
    assert earth["RANGE_AXIS"][0]["SINGLE_VALUE"] == ["1", "2", "3"] and earth["FORMATS"] == ["GEOTIFF_RGB", "png"]
    assert relief["RANGE"]["NULL_SINGLE_VALUES"] == ["-32768"] and relief["RANGE"]["LABEL"] == "Höhe in Metern"
    assert relief["NUM_RANGE_AXES"] == "0" and relief["NATIVE_FORMAT"] == "GeoTIFF"
    assert [time["POSITION"] for time in seasons["TEMP_TM_POSITION"]] == ["2024-01-01", "2024-07-01"]
    assert seasons["LONLATENV"]["TIME_POS2"] == "2024-07-01"


OFFERING = """<CoverageDescription version="1.0.0" updateSequence="7">
<CoverageOffering><description>d</description><name>n</name><label>l</label>
<lonLatEnvelope srsName="crs84"><pos dimension="2">1 2</pos><pos>3 4</pos><timePosition>t</timePosition></lonLatEnvelope>
<domainSet><spatialDomain>
<EnvelopeWithTimePeriod srsName="e"><pos>5 6</pos><pos dimension="3">7 8</pos>
<timePosition>t1</timePosition><timePosition>t2</timePosition></EnvelopeWithTimePeriod>
<Grid dimension="2" srsName="g"><limits><GridEnvelope><low>0 0</low><high>9 9</high></GridEnvelope></limits>
<axisName>x</axisName></Grid>
<RectifiedGrid dimension="3"><axisName>a</axisName><axisName>b</axisName><axisName>c</axisName>
<origin><pos>0 0 0</pos></origin><offsetVector>1</offsetVector><offsetVector>2</offsetVector></RectifiedGrid>
</spatialDomain><temporalDomain><TimePosition frame="f" calendarEraName="c" indeterminatePosition="i">p</TimePosition>
<timePeriod><beginPosition frame="bf">b</beginPosition><endPosition>e</endPosition><timeResolution>r</timeResolution>
</timePeriod></temporalDomain></domainSet>
<rangeSet><RangeSet><description>rd</description><name>rn</name><label>rl</label>
<AxisDescription><name>a1</name><label>al</label><description>ad</description>
<values><interval><min>1</min><max>2</max><res>3</res></interval><interval><min>4</min></interval>
<singleValue>s</singleValue><default>D</default></values></AxisDescription>
<AxisDescription><name>a2</name><values><singleValue>u</singleValue><singleValue>v</singleValue></values></AxisDescription>
<nullValues><singleValue>-9</singleValue><interval><min>-8</min><max>-7</max></interval></nullValues>
</RangeSet></rangeSet>
<supportedCRSs><requestResponseCRSs>EPSG:1 EPSG:2</requestResponseCRSs><requestCRSs>q</requestCRSs>
<responseCRSs>r1</responseCRSs><responseCRSs>r2</responseCRSs></supportedCRSs>
<supportedFormats nativeFormat="N"><formats>F1 F2</formats><formats>F3</formats></supportedFormats>
<supportedInterpolations default="none"><interpolationMethod>nearest</interpolationMethod></supportedInterpolations>
</CoverageOffering></CoverageDescription>"""


def envelope(srs, pos1, dims1, pos2, dims2, time1, time2):
    return dict(SRS_NAME=srs, POS1=pos1, DIMS1=dims1, POS2=pos2, DIMS2=dims2, TIME_POS1=time1, TIME_POS2=time2)


def interval(low="", high="", res=""):
    return {"MIN": low, "MAX": high, "RES": res}


def grid(rectified, dims, srs, low, high, axes, origin, offsets):
    return dict(RECTIFIED=rectified, DIMS=dims, SRS_NAME=srs, LIMITS_ENV_LOW=low, LIMITS_ENV_HIGH=high, AXIS_NAMES=axes,
                ORIGIN_POS=origin, OFFSET_VECTORS=offsets)


# Grids, and axes, share one definition: their lists are as long as the longest. Lists without entries are single.
STRUCTURE = {
    "INDEX": "0", "VERSION": "1.0.0", "UPDATE_SEQ": "7", "CO_NAME": "n", "CO_LABEL": "l", "CO_DESC": "d",
    "LONLATENV": envelope("crs84", "1 2", "2", "3 4", "", "t", ""),
    "NUM_SPAT_DOM_LLES": "1", "SPAT_DOM_LONLATENV": [envelope("e", "5 6", "", "7 8", "3", "t1", "t2")],
    "NUM_SPAT_DOM_GRIDS": "2", "SPAT_DOM_GRID": [
        grid("No", "2", "g", "0 0", "9 9", ["x", "", ""], "", ["", ""]),
        grid("Yes", "3", "", "", "", ["a", "b", "c"], "0 0 0", ["1", "2"])],
    "NUM_TEMP_TM_POSITIONS": "1",
    "TEMP_TM_POSITION": [{"POSITION": "p", "FRAME": "f", "CALENDAR": "c", "INDETERMINATE": "i"}],
    "NUM_TEMP_TM_PERIODS": "1",
    "TEMP_TM_PERIOD": [{"_BEGIN": "b", "_END": "e", "RESOLUTION": "r", "FRAME": "bf", "CALENDAR": "", "INDETERMINATE": ""}],
    "RANGE": {"NAME": "rn", "LABEL": "rl", "DESC": "rd", "NULL_SINGLE_VALUES": ["-9"], "NUM_NULL_INTERVALS": "1",
              "NULL_INTERVAL": [interval("-8", "-7")]},
    "NUM_RANGE_AXES": "2", "RANGE_AXIS": [
        {"NAME": "a1", "LABEL": "al", "DESC": "ad", "SINGLE_VALUE": ["s", ""], "NUM_INTERVALS": "2",
         "INTERVAL": [interval("1", "2", "3"), interval("4")], "DEFAULT": "D"},
        {"NAME": "a2", "LABEL": "", "DESC": "", "SINGLE_VALUE": ["u", "v"], "NUM_INTERVALS": "0",
         "INTERVAL": [interval(), interval()], "DEFAULT": ""}],
    "CRS": {"REQUEST_RESPONSE": ["EPSG:1", "EPSG:2"], "REQUEST": ["q"], "RESPONSE": ["r1", "r2"], "NATIVE": ""},
    "FORMATS": ["F1", "F2", "F3"], "NATIVE_FORMAT": "N", "INTERPOLATION_METHOD": ["nearest"],
    "NATIVE_INTERPOLATION": "none"}


def test_complete_offering(wcs, tmp_path):
    (tmp_path / "offering.xml").write_text(OFFERING)
    done = wcs("""
      print(json(wcs:DescribeCoverage{FROM_FILE = "offering.xml"}))
      print(json(wcs:GetCoverageOffering()))
    """)
    names, offering = done.out.splitlines()
    [offering] = json.loads(offering)
    assert names == '["n"]' and offering == STRUCTURE and list(offering) == list(STRUCTURE)
    assert (done.user_dir / "zel").exists() and any(done.user_dir.rglob("descov.xml"))


@pytest.mark.parametrize("query, raster, bands", [
    (QUARTER.format("earth", 1024, 512, "GEOTIFF_RGB"), "earth.tif", 3),
    (RELIEF, "relief.tif", 1),
    (QUARTER.format("seasons", 360, 180, "GEOTIFF_INT16") + "&TIME=2024-01-01", "season-2024-01-01.tif", 1),
    (QUARTER.format("seasons", 360, 180, "GEOTIFF_INT16") + "&TIME=2024-07-01", "season-2024-07-01.tif", 1)])
def test_coverage(wcs, ogc, query, raster, bands):
    """The values are those of the server's raster, at their place on the Earth."""
    done = wcs(f"""
      local file = wcs:GetCoverage("{query}")
      print(file == wcs:GetProperty{{"LAST_FILE"}}.LAST_FILE, file)
    """, ogc.service)
    same, file = done.out.split()
    coverage, source = gdal.Open(file), gdal.Open(str(ogc.data / raster))
    width, height = source.RasterXSize // 2, source.RasterYSize // 2
    assert same == "true" and file.endswith("/cov.tiff") and coverage.GetDriver().ShortName == "GTiff"
    assert (coverage.RasterXSize, coverage.RasterYSize, coverage.RasterCount) == (width, height, bands)
    assert coverage.GetGeoTransform() == pytest.approx((-180, 180 / width, 0, 90, 0, -90 / height))
    assert (coverage.ReadAsArray() == source.ReadAsArray(0, 0, width, height)).all()


@pytest.mark.parametrize("wrong, said", [
    (RELIEF.replace("relief", "nosuch"), "nosuch"), (RELIEF.replace("EPSG:4326", "EPSG:99999"), "99999"),
    (RELIEF.replace("GEOTIFF_INT16", "no/format"), "format")])
def test_service_exceptions(wcs, ogc, wrong, said):
    """The server's words are what the script gets; the next request works."""
    done = wcs(f"""
      print((try(wcs.GetCoverage, "{wrong}"):gsub("%s+", " ")))
      print(wcs:GetCoverage("{RELIEF}"))
    """, ogc.service)
    error, file = done.out.splitlines()
    assert "CCurlException: Error: Remote OGC server returned a service exception: (" in error
    assert said.lower() in error.lower() and file.endswith("/cov.tiff")


REFUSED = {
    'GetCapabilities, {FROM_FILE = "no such"}': "Error: Passed in FROM_FILE does not exist: no such",
    'GetCapabilities, {FROM_URL = ""}': "Error: Passed in FROM_URL is empty.",
    'GetCapabilities, {FROM_URL = 1}': "A string is required",
    'GetCapabilities, {VALIDATION_MODE = 3, SCHEMA_CHECKING = 3}': "Error: Validation_Mode keyword value is not valid.",
    'GetCapabilities, {VALIDATION_MODE = -1}': "Error: Validation_Mode keyword value is not valid.",
    'GetCapabilities, {SCHEMA_CHECKING = "3"}': "Error: Schema_Check keyword value is not valid.",
    'GetCapabilities, {SCHEMA_CHECKING = {1, 2}}': "single value is required",
    'GetCapabilities, {DISABLE_INHERITANCE = 1}': "Keyword DISABLE_INHERITANCE is not allowed",
    'DescribeCoverage': "Error: The NAMES keyword must be set.",
    'DescribeCoverage, {VALIDATION_MODE = 9}': "Error: The NAMES keyword must be set.",
    'DescribeCoverage, {NAMES = "a", FROM_FILE = 5}': "Error: NAMES and FROM_FILE keywords are mutally exclusive..",
    'DescribeCoverage, {FROM_FILE = "no such"}': "Error: Passed in FROM_FILE does not exist: no such",
    'DescribeCoverage, {NAMES = 5, VALIDATION_MODE = 3}': "Error: Validation_Mode keyword value is not valid.",
    'DescribeCoverage, {NAMES = 5}': "A string is required",
    'GetCoverage, ""': "Error: Passed in coverage argument is empty.",
    'GetCoverage, 5': "A string is required",
    'GetCoverage, "a=b", {FORMAT = "x"}': "Keyword FORMAT is not allowed",
    'GetCoverageOffering, {INDEX = {0}}': "single value is required",
    'GetServiceSection, {COUNT = 1}': "Keyword COUNT is not allowed",
}


def test_refused_arguments(wcs):
    """Before anything is sent: the object has no server."""
    done = wcs("\n".join(f"print(try(wcs.{call}))" for call in REFUSED))
    for line, part in zip(done.out.splitlines(), REFUSED.values(), strict=True):
        assert part in line


def test_bad_documents(zel, tmp_path):
    """The object goes on after each of them, and nothing is left."""
    documents = {"malformed.xml": '<WCS_Capabilities version="1.0.0"><ContentMetadata><CoverageOff', "empty.xml": "",
                 "exception.xml": "<ServiceExceptionReport><ServiceException>why</ServiceException></ServiceExceptionReport>",
                 "other.xml": "<html/>"}
    for name, text in documents.items():
        (tmp_path / name).write_text(text)
    (tmp_path / "offering.xml").write_text(OFFERING)
    sources = ", ".join(f'"{name}"' for name in [*documents, ".", "/usr/share/xplanet/images/earth.jpg"])
    done = zel(f"""
      local wcs = zel.new("ZELnetOGCWCS")
      for _, source in ipairs{{{sources}}} do
        for _, method in ipairs{{"GetCapabilities", "DescribeCoverage"}} do
          local ok, why = pcall(wcs[method], wcs, {{FROM_FILE = source}})
          if not (source == "other.xml" and ok or not ok and why:find("CCurlException:  .*Error")) then print(source, why) end
          assert(wcs:DescribeCoverage{{FROM_FILE = "offering.xml"}}[1] == "n")
        end
      end
      wcs:close() wcs = nil
    """, no_leak=True)
    assert done.out == ""


@pytest.mark.parametrize("coverages, said", [
    ("", "seasons: Seasons, -180 -90 to 180 90, from 2024-01-01 to 2024-07-01\n3 coverages"),
    ("earth seasons", "  Grid             0 0 to 2047 1023, axes x, y, from -180 90 by 0.17578125 0, 0 -0.17578125\n"),
    ("atlantis", "The service gave no description of atlantis"),
])
def test_example(zel, ogc, coverages, said):
    run = zel(SOURCE / "examples" / "wcs_describe.lua", ogc.service, *coverages.split(), ok=False)
    assert said in run.out + run.err

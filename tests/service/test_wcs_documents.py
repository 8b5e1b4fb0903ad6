"""How capabilities and descriptions of coverages are read, as a script gets them."""

import json

import pytest

from lua_json import JSON, check_markers, element

# For each document what the methods give, or what was said.
READ = JSON + """
local checked
local wcs <close> = zel.new("ZELnetOGCWCS", {CAPABILITIES_FILENAME = "cap", DESCRIBE_COVERAGE_FILENAME = "descov",
  CALLBACK_FUNCTION = function(text) checked = checked or text:find "^XML Schema validation is on" end})
for _, file in ipairs(arg) do
  local describe = file:find("description")
  local ok, why, out = pcall(describe and wcs.DescribeCoverage or wcs.GetCapabilities, wcs,
                             {FROM_FILE = file, SCHEMA_CHECKING = 1, describe and "COUNT"})
  checked = assert(checked and (not (ok and describe) or (why == "" and 0 or #why) == out.COUNT)) and nil
  local given = {wcs:GetServiceSection(), wcs:GetCoverageOfferingBriefs(), {}, ok and "" or why}
  for i = 0, 99 do
    local found, offering = pcall(wcs.GetCoverageOffering, wcs, {INDEX = i})
    if not found then break end
    given[3][i + 1] = offering[1]
  end
  if #given[3] == 0 then given[3] = 0 end
  print(json(given))
end
"""


def shown(value):
    """What is not empty: A=text B=[one - two] C={D=text}; entries at the end of a list that are empty are left out."""
    if isinstance(value, dict):
        parts = {tag: shown(item) for tag, item in value.items() if not tag.startswith("NUM_")}
        return " ".join(f"{tag}={part}" if part[0] in "[{" or isinstance(value[tag], str) else f"{tag}={{{part}}}"
                        for tag, part in parts.items() if part)
    if isinstance(value, list):
        items = [shown(item) for item in value]
        while items and not items[-1]:
            items.pop()
        return "[" + "; ".join(item or "-" for item in items) + "]" if items else ""
    return value


@pytest.fixture
def read(zel, tmp_path):
    """read(documents, kind): for each its service section, briefs and offerings as shown(), and what was said; or these as
    they are."""

    def run(documents, kind, plain=False):
        files = [tmp_path / f"{kind}{i}.xml" for i in range(len(documents))]
        for file, document in zip(files, documents):
            file.write_text(document)
        for *given, said in map(json.loads, zel(READ, *files).out.splitlines()):
            yield given if plain else [shown(value)[1:-1] if value else None for value in given], said

    return run


BRIEF, OFFERING = "briefs[0]", "offerings[0]"
SPACE, GRID, TIMES, PERIOD, AXIS = (f"{OFFERING}.{tag}" for tag in (
    "SPAT_DOM_LONLATENV", "SPAT_DOM_GRID", "TEMP_TM_POSITION", "TEMP_TM_PERIOD[0]", "RANGE_AXIS"))
MARKERS = {"caps": "".join([
    element("Service", "service[0]", """description>DESCRIPTION name>NAME label>LABEL keyword>KEYWORDS[0] keyword>KEYWORDS[1]
        individualName>INDIVIDUAL organisationName>ORGANIZATION positionName>POSITION voice>VOICE facsimile>FAX
        deliveryPoint>DELIVERY city>CITY administrativeArea>ADMINISTRATIVE postalCode>POSTAL country>COUNTRY
        electronicMailAddress>EMAIL onlineResource/href=ONLINE fees>FEES accessConstraints>ACCESS"""),
    "<ContentMetadata>",
    element("CoverageOfferingBrief", BRIEF, "description>DESCRIPTION name>NAME label>LABEL", element(
        "lonLatEnvelope", BRIEF, "srsName=SRS_NAME timePosition>TM_POS1 timePosition>TM_POS2",
        element("pos", BRIEF, "dimension=DIMS1 >POS1"), element("pos", BRIEF, "dimension=DIMS2 >POS2")),
        element("keywords", BRIEF, "keyword>KEYWORDS[0] keyword>KEYWORDS[1]")),
    "</ContentMetadata>"]),
           "description": element(
    "CoverageOffering", OFFERING, "description>CO_DESC name>CO_NAME label>CO_LABEL",
    element("lonLatEnvelope", OFFERING + ".LONLATENV", "srsName=SRS_NAME timePosition>TIME_POS1 timePosition>TIME_POS2",
            element("pos", OFFERING + ".LONLATENV", "dimension=DIMS1 >POS1"),
            element("pos", OFFERING + ".LONLATENV", "dimension=DIMS2 >POS2")),
    "<spatialDomain>",
    element("Envelope", SPACE + "[0]", "srsName=SRS_NAME", element("pos", SPACE + "[0]", "dimension=DIMS1 >POS1"),
            element("pos", SPACE + "[0]", "dimension=DIMS2 >POS2")),
    element("EnvelopeWithTimePeriod", SPACE + "[1]", """srsName=SRS_NAME pos>POS1 timePosition>TIME_POS1
        timePosition>TIME_POS2"""),
    element("Grid", GRID + "[0]", """dimension=DIMS srsName=SRS_NAME low>LIMITS_ENV_LOW high>LIMITS_ENV_HIGH
        axisName>AXIS_NAMES[0] axisName>AXIS_NAMES[1]"""),
    element("RectifiedGrid", GRID + "[1]", """dimension=DIMS axisName>AXIS_NAMES[0] offsetVector>OFFSET_VECTORS[0]
        offsetVector>OFFSET_VECTORS[1]""", element("origin", GRID + "[1]", "pos>ORIGIN_POS")),
    "</spatialDomain><temporalDomain>",
    element("timePosition", TIMES + "[0]", """frame=FRAME calendarEraName=CALENDAR
        indeterminatePosition=INDETERMINATE >POSITION"""),
    element("timePosition", TIMES + "[1]", ">POSITION"),
    element("timePeriod", PERIOD, "endPosition>_END timeResolution>RESOLUTION", element(
        "beginPosition", PERIOD, """frame=FRAME calendarEraName=CALENDAR
            indeterminatePosition=INDETERMINATE >_BEGIN""")),
    "</temporalDomain>",
    element("RangeSet", OFFERING + ".RANGE", "description>DESC name>NAME label>LABEL",
            element("AxisDescription", AXIS + "[0]", """description>DESC name>NAME label>LABEL singleValue>SINGLE_VALUE[0]
                default>DEFAULT""", element("interval", AXIS + "[0].INTERVAL[0]", "min>MIN max>MAX res>RES"),
                    element("interval", AXIS + "[0].INTERVAL[1]", "min>MIN")),
            element("AxisDescription", AXIS + "[1]", "name>NAME singleValue>SINGLE_VALUE[0]",
                    element("interval", AXIS + "[1].INTERVAL[0]", "max>MAX")),
            element("nullValues", OFFERING + ".RANGE", "singleValue>NULL_SINGLE_VALUES[0]",
                    element("interval", OFFERING + ".RANGE.NULL_INTERVAL[0]", "min>MIN max>MAX res>RES"))),
    element("supportedCRSs", OFFERING + ".CRS", """requestResponseCRSs>REQUEST_RESPONSE[0]
        requestResponseCRSs>REQUEST_RESPONSE[1] requestCRSs>REQUEST[0] responseCRSs>RESPONSE[0] nativeCRSs>NATIVE[0]"""),
    element("supportedFormats", OFFERING, "nativeFormat=NATIVE_FORMAT formats>FORMATS[0]"),
    element("supportedInterpolations", OFFERING, """default=NATIVE_INTERPOLATION
        interpolationMethod>INTERPOLATION_METHOD[0]"""))}


@pytest.mark.parametrize("kind, more", [
    ("caps", {}),
    ("description", {"SPAT_DOM_GRID[0].RECTIFIED": "No", "SPAT_DOM_GRID[1].RECTIFIED": "Yes", "NUM_SPAT_DOM_LLES": "2",
                     "NUM_SPAT_DOM_GRIDS": "2", "NUM_TEMP_TM_POSITIONS": "2", "NUM_TEMP_TM_PERIODS": "1", "NUM_RANGE_AXES": "2",
                     "RANGE_AXIS[0].NUM_INTERVALS": "2", "RANGE_AXIS[1].NUM_INTERVALS": "1", "RANGE.NUM_NULL_INTERVALS": "1"})])
def test_every_value_goes_to_its_tag(read, kind, more):
    root = {"caps": "WCS_Capabilities", "description": "CoverageDescription"}[kind]
    document = f"<{root} version='1.0.0' updateSequence='seq'>{MARKERS[kind]}</{root}>"
    [((service, briefs, offerings), said)] = read([document], kind, plain=True)
    structures = {"service": service, "briefs": briefs} if briefs else {"offerings": offerings}
    more = {"INDEX": "0", "VERSION": "1.0.0", "UPDATE_SEQ": "seq"} | more
    assert check_markers(document, **structures) == {f"{list(structures)[-1]}[0].{tag}": value for tag, value in more.items()}
    assert not said


def capabilities(body):
    return f"<WCS_Capabilities version='1.0.0'>{body}</WCS_Capabilities>"


CAPABILITIES = {
    # prefixes and letter case do not matter
    "<w:WCS_CAPABILITIES xmlns:w='u' w:Version='1.0.0' UPDATESEQUENCE='7'><w:SERVICE><w:NAME>n</w:NAME></w:SERVICE>"
    "<w:contentmetadata><w:coverageofferingbrief><w:Name>b</w:Name></w:coverageofferingbrief></w:contentmetadata>"
    "</w:WCS_CAPABILITIES>": ("NAME=n", "INDEX=0 NAME=b VERSION=1.0.0 UPDATE_SEQ=7"),
    # an empty service section is none, an unknown child makes one
    capabilities("<Service/>"): (None, None), capabilities("<Service><x/></Service>"): ("", None),
    # another section is no child, and a brief ends the text before it
    capabilities("<Service><ContentMetadata><CoverageOfferingBrief><name>a<CoverageOfferingBrief>lost</CoverageOfferingBrief>"
                 "</name></CoverageOfferingBrief></ContentMetadata></Service>"):
        (None, "INDEX=0 NAME=a VERSION=1.0.0; INDEX=1 VERSION=1.0.0"),
    # keywords go to the section they are in, texts are whole, a child ends them
    capabilities("<Service><keyword>R&amp;D<![CDATA[ <x>]]></keyword></Service><ContentMetadata><CoverageOfferingBrief><name>a"
                 "<x>b</x>c</name><keyword/></CoverageOfferingBrief><CoverageOfferingBrief/><CoverageOfferingBrief><keywords>"
                 "<keyword>k1</keyword></keywords><keyword>k2</keyword></CoverageOfferingBrief></ContentMetadata>"):
        ("KEYWORDS=[R&D <x>]", "INDEX=0 NAME=a b VERSION=1.0.0; INDEX=1 VERSION=1.0.0; INDEX=2 KEYWORDS=[k1; k2] VERSION=1.0.0"),
    # runs of position text are counted in a brief, of time positions in the document; what has no brief is ignored
    capabilities("<ContentMetadata><name>n</name><keyword>k</keyword><pos dimension='1'>1</pos><lonLatEnvelope srsName='s'/>"
                 "<CoverageOfferingBrief><lonLatEnvelope srsName='EPSG:4326'><pos dimension='2'>1 2</pos><pos dimension='3'>"
                 "3&#32;4</pos><pos dimension='4'>5</pos><timePosition>t1</timePosition></lonLatEnvelope>"
                 "<description>d</description><label>l</label></CoverageOfferingBrief><CoverageOfferingBrief>"
                 "<pos dimension='2'/><pos dimension='3'>1</pos><timePosition>t2</timePosition><timePosition>t3</timePosition>"
                 "</CoverageOfferingBrief></ContentMetadata><name>behind</name>"):
        (None, "INDEX=0 LABEL=l SRS_NAME=EPSG:4326 POS1=1 2 DIMS1=2 POS2=3 4 DIMS2=3 TM_POS1=t1 DESCRIPTION=d VERSION=1.0.0; "
               "INDEX=1 POS1=1 DIMS1=2 3 TM_POS2=t2 VERSION=1.0.0"),
}


def test_capabilities(read):
    for (document, expected), ((service, briefs, _), said) in zip(CAPABILITIES.items(), read(list(CAPABILITIES), "caps"),
                                                                  strict=True):
        assert (service, briefs, said) == (*expected, ""), document


OFFERINGS = {
    # an envelope keeps two positions
    "<label>l</label><lonLatEnvelope srsName='s' dimension='9'><pos dimension='2'>1 1</pos><pos>2 2</pos><pos dimension='4'>3 3"
    "</pos><timePosition>t1</timePosition><timePosition>t2</timePosition><timePosition>t3</timePosition></lonLatEnvelope><label>"
    "too late</label><spatialDomain><Envelope/><pos>outside</pos></spatialDomain>":
        "CO_LABEL=l LONLATENV={SRS_NAME=s POS1=1 1 DIMS1=2 POS2=2 2 TIME_POS1=t1 TIME_POS2=t2}",
    # limits outside of an interval are nowhere
    "<RangeSet><min>outside</min><AxisDescription><interval><min>1</min></interval><singleValue>7</singleValue><interval><max>3"
    "</max></interval></AxisDescription><AxisDescription><min>no interval yet</min><name>second</name></AxisDescription>"
    "<nullValues><min>none yet</min><interval><min>-9</min></interval></nullValues><nullValues><max>none here</max>"
    "<singleValue>-2</singleValue></nullValues></RangeSet>":
        "RANGE={NULL_SINGLE_VALUES=[-2] NULL_INTERVAL=[MIN=-9]} "
        "RANGE_AXIS=[SINGLE_VALUE=[7] INTERVAL=[MIN=1; MAX=3]; NAME=second]",
    # range sets and axes count only as spelled
    "<lonLatEnvelope/><rangeset><name>n</name></rangeset><RangeSet><name>m</name><axisdescription><label>l</label>"
    "</axisdescription></RangeSet>": "RANGE={NAME=m LABEL=l}",
    # lists of reference systems, formats and interpolations
    "<supportedCRSs><requestResponseCRSs>EPSG:4326 EPSG:32633\n</requestResponseCRSs><requestCRSs>A, B</requestCRSs>"
    "<responseCRSs>C ,D</responseCRSs><nativeCRSs> E </nativeCRSs><requestCRSs>F&#44;G</requestCRSs><responseCRSs/>"
    "</supportedCRSs><supportedFormats nativeFormat='GeoTIFF'><formats>GeoTIFF PNG</formats><formats>GML</formats>"
    "</supportedFormats><supportedInterpolations default='nearest neighbor'><interpolationMethod>nearest neighbor"
    "</interpolationMethod><interpolationMethod>bilinear</interpolationMethod></supportedInterpolations>":
        "CRS={REQUEST_RESPONSE=[EPSG:4326; EPSG:32633] REQUEST=[A; B; F; G] RESPONSE=[C] NATIVE=[ E]} FORMATS=[GeoTIFF; PNG; GML] "
        "NATIVE_FORMAT=GeoTIFF INTERPOLATION_METHOD=[nearest neighbor; bilinear] NATIVE_INTERPOLATION=nearest neighbor",
}


def test_offerings(read):
    """Each alone, then all in one document: they share nothing, and what stands outside of one is nowhere."""
    head = "<CoverageDescription version='1.0.0' updateSequence='9'>"
    single = [f"{head}{body}<CoverageOffering>{body}</CoverageOffering></CoverageDescription>" for body in OFFERINGS]
    everything = head + "".join(f"<CoverageOffering>{body}</CoverageOffering>" for body in OFFERINGS) + "</CoverageDescription>"
    *alone, together = ((offerings, said) for (_, _, offerings), said in read([*single, everything], "description"))
    for expected, got in zip(OFFERINGS.values(), alone, strict=True):
        assert got == (f"INDEX=0 VERSION=1.0.0 UPDATE_SEQ=9 {expected}", "")
    assert together[0] == "; ".join(f"INDEX={i} VERSION=1.0.0 UPDATE_SEQ=9 {expected}"
                                    for i, expected in enumerate(OFFERINGS.values()))


EXCEPTION = "Error: Remote OGC server returned a "
FAILURES = {
    "<ServiceExceptionReport><ServiceException code='c' locator='l'>text</ServiceException></ServiceExceptionReport>":
        EXCEPTION + "service exception: ( Code= c  Locator= l Service Exception Text= text).",
    # half a document is none
    "<{0} version='1.0.0'><Service><name>s</name></Service><ContentMetadata><CoverageOfferingBrief/></ContentMetadata>"
    "<CoverageOffering/><ServiceExceptionReport><ServiceException code='c'/></ServiceExceptionReport></{0}>":
        EXCEPTION + "service exception: ( Code= c  Locator=).",
    "<ServiceExceptionReport><x/></ServiceExceptionReport>": "",
    "<{}/>": "Error: The WCS_Capabilities Version number attribute is missing..",
    "<{} version='1.0.1'/>": "Error: OGC WCS version number (1.0.1) is not supported. This WCS Client supports OGC WCS version "
                             "1.0.0..",
}


@pytest.mark.parametrize("kind, root", [("caps", "WCS_Capabilities"), ("description", "CoverageDescription")])
def test_failures_name_their_cause(read, kind, root):
    for (document, expected), (given, said) in zip(FAILURES.items(), read([text.format(root) for text in FAILURES], kind), strict=True):
        assert said.endswith(expected) and bool(said) == bool(expected) and not any(given), document

"""How capabilities of maps are read and inherited, as a script gets them."""

import itertools
import json
import random

import pytest

from lua_json import JSON, check_markers

VERSIONS = ["1.1.0", "1.1.1", "1.3.0"]
# For each document its layers and its service section, or what was said.
READ = JSON + """
local wms <close> = zel.new("ZELnetOGCWMS", {CAPABILITIES_FILENAME = "kept"})
for _, file in ipairs(arg) do
  local ok, why = pcall(wms.GetCapabilities, wms, {FROM_FILE = file, DISABLE_INHERITANCE = file:find("plain") and 1 or 0})
  print(json{wms:GetLayers(), wms:GetServiceSection(), ok and "" or why})
end
"""


def line(layer):
    """A layer in one line: index, parent, level, then what is not empty: texts, records [a|-|b], counted lists 2[a][b]."""
    def shown(value):
        if isinstance(value, dict):
            return "[" + ("|".join(value.values()).rstrip("|") or "-") + "]"
        return "".join(map(shown, value)) if isinstance(value, list) else f"[{value or '-'}]"

    parts = [layer["LAYER"], layer["PARENT"], layer["LEVEL"]]
    for tag, value in itertools.islice(layer.items(), 4, None):
        if tag.startswith("NUM_"):
            continue
        if "NUM_" + tag in layer:
            count = int(layer["NUM_" + tag])
            parts += [f"{tag} {count}" + (shown(value[:count] if isinstance(value, list) else value))] if count else []
        elif isinstance(value, dict):
            parts += [tag + shown(value)] if any(value.values()) else []
        elif value:
            parts.append(f"{tag}={value}")
    return " ".join(parts)


@pytest.fixture
def read(zel, tmp_path):
    """read(documents, plain=False): for each the lines of its layers, its service section, and what was said."""

    def run(documents, plain=False):
        files = [tmp_path / f"{'plain' if plain else 'inherited'}{i}.xml" for i in range(len(documents))]
        for file, document in zip(files, documents):
            file.write_text(document)
        for layers, service, said in map(json.loads, zel(READ, *files).out.splitlines()):
            yield [line(layer) for layer in layers or []], service and service[0], said, layers or []

    return run


def capabilities(body, version="1.1.1"):
    return f"<WMT_MS_Capabilities version='{version}' xmlns:x='urn:x'>{body}</WMT_MS_Capabilities>"


# Every attribute and text names the place where a script finds it; @ is layers[0].
MARKERS = """<WMT_MS_Capabilities version='{version}' updateSequence='seq' xmlns:x='u'><Service><Name>service.NAME</Name>
<Title>service.TITLE</Title><Abstract>service.ABSTRACT</Abstract><KeywordList><Keyword>service.KEYWORD[0]</Keyword>
<Keyword>service.KEYWORD[1]</Keyword></KeywordList><OnlineResource x:href='service.ONLINE'/><ContactInformation>
<ContactPerson>service.PERSON</ContactPerson><ContactOrganization>service.ORGANIZATION</ContactOrganization>
<ContactPosition>service.POSITION</ContactPosition><AddressType>service.ADDRESS_TYPE</AddressType>
<Address>service.ADDRESS</Address><City>service.CITY</City><StateOrProvince>service.STATE</StateOrProvince>
<PostCode>service.POSTAL_CODE</PostCode><Country>service.COUNTRY</Country>
<ContactVoiceTelephone>service.VOICE</ContactVoiceTelephone>
<ContactFacsimileTelephone>service.FAX</ContactFacsimileTelephone>
<ContactElectronicMailAddress>service.EMAIL</ContactElectronicMailAddress></ContactInformation>
<Fees>service.FEES</Fees><AccessConstraints>service.ACCESS</AccessConstraints>
<LayerLimit>service.LAYER_LIMIT</LayerLimit><MaxWidth>service.MAX_WIDTH</MaxWidth>
<MaxHeight>service.MAX_HEIGHT</MaxHeight></Service><Capability><GetMap><Format>@.MAP_FORMAT[0]</Format>
<Format>@.MAP_FORMAT[1]</Format></GetMap><GetFeatureInfo><Format>@.FEATURE_FORMAT[0]</Format></GetFeatureInfo>
<Layer queryable='@.QUERYABLE' cascaded='@.CASCADED' opaque='@.OPAQUE' noSubsets='@.NO_SUBSETS'
fixedWidth='@.FIXED_WIDTH' fixedHeight='@.FIXED_HEIGHT'><Name>@.NAME</Name><Title>@.TITLE</Title>
<Abstract>@.ABSTRACT</Abstract><KeywordList><Keyword>@.KEYWORD[0]</Keyword><Keyword>@.KEYWORD[1]</Keyword>
</KeywordList><SRS>@.SRS[0]</SRS><SRS>@.SRS[1]</SRS><CRS>@.CRS[0]</CRS><EX_GeographicBoundingBox>
<westBoundLongitude>@.EX_GEOBBOX.WEST</westBoundLongitude><eastBoundLongitude>@.EX_GEOBBOX.EAST</eastBoundLongitude>
<southBoundLatitude>@.EX_GEOBBOX.SOUTH</southBoundLatitude><northBoundLatitude>@.EX_GEOBBOX.NORTH</northBoundLatitude>
</EX_GeographicBoundingBox><LatLonBoundingBox minx='@.LAT_LON_BBOX.MINX' miny='@.LAT_LON_BBOX.MINY'
maxx='@.LAT_LON_BBOX.MAXX' maxy='@.LAT_LON_BBOX.MAXY'/><BoundingBox SRS='@.BOUNDING_BOX[0].SRS'
CRS='@.BOUNDING_BOX[0].CRS' minx='@.BOUNDING_BOX[0].MINX' miny='@.BOUNDING_BOX[0].MINY' maxx='@.BOUNDING_BOX[0].MAXX'
maxy='@.BOUNDING_BOX[0].MAXY' resx='@.BOUNDING_BOX[0].RESX' resy='@.BOUNDING_BOX[0].RESY'/>
<BoundingBox minx='@.BOUNDING_BOX[1].MINX'/><Dimension name='@.DIMENSION[0].NAME' units='@.DIMENSION[0].UNITS'
unitSymbol='@.DIMENSION[0].UNIT_SYMBOL' default='@.DIMENSION[0].DEFAULT'
multipleValues='@.DIMENSION[0].MULTIPLE_VALUES' nearestValue='@.DIMENSION[0].NEAREST_VALUE'
current='@.DIMENSION[0].CURRENT'>@.DIMENSION[0].EXTENT</Dimension><Extent name='@.EXTENT[0].NAME'
default='@.EXTENT[0].DEFAULT' nearestValue='@.EXTENT[0].NEAREST_VALUE'>@.EXTENT[0].EXTENT</Extent><Attribution>
<Title>@.ATTRIBUTION.TITLE</Title><OnlineResource x:href='@.ATTRIBUTION.ONLINE'/>
<LogoURL width='@.ATTRIBUTION.LOGO_WIDTH' height='@.ATTRIBUTION.LOGO_HEIGHT'>
<Format>@.ATTRIBUTION.LOGO_FORMAT</Format><OnlineResource x:href='@.ATTRIBUTION.LOGO_ONLINE'/></LogoURL></Attribution>
<AuthorityURL name='@.AUTHORITY[0].NAME'><OnlineResource x:href='@.AUTHORITY[0].ONLINE'/></AuthorityURL>
<Identifier authority='@.IDENTIFIER[0].AUTHORITY'>@.IDENTIFIER[0].ID</Identifier>
<MetadataURL type='@.METADATA_URL[0].TYPE'><Format>@.METADATA_URL[0].FORMAT</Format>
<OnlineResource x:href='@.METADATA_URL[0].ONLINE'/></MetadataURL><DataURL><Format>@.DATA_URL[0].FORMAT</Format>
<OnlineResource x:href='@.DATA_URL[0].ONLINE'/></DataURL><FeatureListURL><Format>@.FEATURE_URL[0].FORMAT</Format>
<OnlineResource x:href='@.FEATURE_URL[0].ONLINE'/></FeatureListURL><Style><Name>@.STYLE[0].NAME</Name>
<Title>@.STYLE[0].TITLE</Title><Abstract>@.STYLE[0].ABSTRACT</Abstract><LegendURL width='@.STYLE[0].LEGEND_WIDTH'
height='@.STYLE[0].LEGEND_HEIGHT'><Format>@.STYLE[0].LEGEND_FORMAT</Format>
<OnlineResource x:href='@.STYLE[0].LEGEND_ONLINE'/></LegendURL><StyleSheetURL><Format>@.STYLE[0].SHEET_FORMAT</Format>
<OnlineResource x:href='@.STYLE[0].SHEET_ONLINE'/></StyleSheetURL><StyleURL><Format>@.STYLE[0].STYLE_FORMAT</Format>
<OnlineResource x:href='@.STYLE[0].STYLE_ONLINE'/></StyleURL></Style><ScaleHint min='@.MIN_SCALE' max='@.MAX_SCALE'/>
<Layer><MinScaleDenominator>layers[1].MIN_SCALE</MinScaleDenominator>
<MaxScaleDenominator>layers[1].MAX_SCALE</MaxScaleDenominator></Layer></Layer></Capability></WMT_MS_Capabilities>""".replace("@", "layers[0]")


@pytest.mark.parametrize("version", VERSIONS)
def test_every_value_goes_to_its_tag(read, version):
    document = MARKERS.format(version=version)
    [(_, service, said, layers)] = read([document], plain=True)
    rest = check_markers(document, service=service, layers=layers)
    assert not said and rest == {
        f"layers[{i}].{tag}": value for i, parent, level in (("0", "-1", "1"), ("1", "0", "2"))
        for tag, value in (("LAYER", i), ("PARENT", parent), ("LEVEL", level), ("VERSION", version), ("UPDATE_SEQ", "seq"))
    } | {f"layers[1].{tag}": f"layers[0].{tag}" for tag in ("MAP_FORMAT[0]", "MAP_FORMAT[1]", "FEATURE_FORMAT[0]")}


URL = "<OnlineResource x:href='u'/>"
LAYERS = {
    # order, parents and levels
    "<Layer/><Layer/>": "0 -1 1 / 1 -1 1",
    "<Layer><Layer/><Layer><Layer/></Layer></Layer><Layer><Layer/></Layer>":
        "0 -1 1 / 1 0 2 / 2 0 2 / 3 2 3 / 4 -1 1 / 5 4 2",
    "<Layer><Name>a</Name><Layer><Name>b</Name></Layer><Name>c</Name></Layer><Title>t</Title>":
        "0 -1 1 NAME=a / 1 0 2 NAME=b c TITLE=t",
    "<x:LAYER QUERYABLE='1' x:Opaque=''><x:nAmE>n</x:nAmE><TITLE>t</TITLE></x:LAYER>": "0 -1 1 NAME=n TITLE=t QUERYABLE=1",
    # runs of text
    "<Layer><Title>R&amp;D <b>x</b> lost</Title><Abstract></Abstract></Layer>": "0 -1 1 TITLE=R&D  x",
    "<Layer><Name>Wald &amp; W&#105;e<!-- -->se, l<?pi?>'<![CDATA[Île]]></Name></Layer>": "0 -1 1 NAME=Wald & Wiese, l'Île",
    "<Layer><SRS>A  B,C , D</SRS><SRS/><SRS>E&amp;F G</SRS></Layer>": "0 -1 1 SRS 3[A][B][C]",
    "<Layer><CRS>A B</CRS><x/><CRS>C&amp;D</CRS></Layer>": "0 -1 1 CRS 2[A B][C&D]",
    "<Layer><KeywordList><Keyword>a</Keyword><Keyword/></KeywordList><Keyword>no</Keyword><KeywordList><Keyword>b</Keyword>"
    "</KeywordList></Layer>": "0 -1 1 KEYWORD 3[a][-][b]",
    # the lat-lon box stays open until another grouping element
    "<Layer><LatLonBoundingBox minx='1' miny='2' maxx='3' maxy='4'/><ScaleHint min='5' max='6' minx='9'/><SRS>A</SRS>"
    "<z minx='8'/></Layer>": "0 -1 1 SRS 1[A] LAT_LON_BBOX[1 9|2|3|4] MIN_SCALE=5 MAX_SCALE=6",
    "<Layer><LatLonBoundingBox minx='1'/><LatLongBoundingBox maxy='2'/><z minx='8'/><LatLonBoundingBox minx='3'/></Layer>"
    "<z maxx='9'/>": "0 -1 1 LAT_LON_BBOX[1 3|||2]",
    # names and titles inside grouping elements
    "<Layer><Attribution><Title>t</Title><Name>n</Name>" + URL + "<LogoURL width='1' height='2'><Format>f</Format>"
    "<OnlineResource href='l'/></LogoURL><Format>no</Format></Attribution><Title>own</Title></Layer>":
        "0 -1 1 NAME=n TITLE=own ATTRIBUTION[t|u|f|l|1|2]",
    f"<Layer><AuthorityURL name='a'>{URL}</AuthorityURL><AuthorityURL name='b'/><Identifier authority='a'>i</Identifier>{URL}"
    "</Layer>": "0 -1 1 AUTHORITY 2[a|u][b] IDENTIFIER 1[i|a]",
    f"<Layer><MetadataURL type='t'><Format>f</Format>{URL}<Title>own</Title></MetadataURL><DataURL>{URL}<Format>g</Format>"
    f"</DataURL><FeatureListURL><Format>h</Format></FeatureListURL><FeatureListURL>{URL}</FeatureListURL><Format>no</Format>"
    "</Layer>": "0 -1 1 TITLE=own METADATA_URL 1[t|f|u] DATA_URL 1[g|u] FEATURE_URL 2[h][|u]",
    f"<Layer><Style>{URL}<Name>s</Name><Title>t</Title><Abstract>a</Abstract><LegendURL width='1' height='2'><Format>lf"
    f"</Format>{URL}</LegendURL><StyleSheetURL><Format>sf</Format>{URL}</StyleSheetURL><StyleURL><Format>uf</Format>{URL}"
    "</StyleURL><Format>no</Format></Style><Style><Name>r</Name></Style><Name>own</Name></Layer>":
        "0 -1 1 NAME=own STYLE 2[s|t|a|lf|u|1|2|sf|u|uf|u][r]",
    # formats belong to all layers that follow
    "<GetMap><Format>lost</Format></GetMap><GetMap><Format>p</Format><x><Format>j</Format></x></GetMap><GetFeatureInfo>"
    "<Format>t</Format></GetFeatureInfo><Exception><Format>no</Format></Exception><Layer><Layer/></Layer>":
        "0 -1 1 MAP_FORMAT 2[p][j] FEATURE_FORMAT 1[t] / 1 0 2 MAP_FORMAT 2[p][j] FEATURE_FORMAT 1[t]",
    # out of place
    "<Name>n</Name><Keyword>k</Keyword><BoundingBox minx='1'/><Style><Name>s</Name></Style><SRS>A</SRS><Layer/>": "0 -1 1",
    "<Service><Layer/></Service><Title>t</Title>": "0 -1 1 TITLE=t",
    "<Layer><Service><Name>s</Name><KeywordList><Keyword>k</Keyword></KeywordList></Service><Name>lost</Name></Layer>":
        "0 -1 1",
}


def test_layers_hold_what_stands_in_the_document(read):
    results = read([capabilities(body) for body in LAYERS], plain=True)
    for (body, expected), (lines, *_) in zip(LAYERS.items(), results, strict=True):
        assert " / ".join(lines) == expected, body


def test_service_section(read):
    """Wherever its elements stand in it; an empty one is none, an unknown child makes one."""
    bodies = ["<Service><Somewhere><Fees>f</Fees></Somewhere></Service><Name>outside</Name><Keyword>c</Keyword>",
              "<Service/>", "<Service><x/></Service>"]
    full, none, empty = (service for _, service, *_ in read([capabilities(body) for body in bodies]))
    assert {tag: value for tag, value in full.items() if value} == {"FEES": "f", "NUM_KEYWORD": "0"}
    assert not none and not any(value for tag, value in empty.items() if tag != "NUM_KEYWORD")


EXCEPTION = "Error: Remote OGC server returned a "
MISSING = "Error: The WMS Capabilities Version number attribute is missing."
UNSUPPORTED = ("Error: OGC WMS version number (1.0.0) is not supported. This WMS Client supports OGC WMS version 1.1.0, 1.1.1, "
               "and 1.3.0.")
ROOTS = {
    "<WMT_MS_Capabilities version='1.1.0'><Layer/></WMT_MS_Capabilities>": ("1.1.0", ""),
    "<x:wms_capabilities xmlns:x='u' Version='1.3.0' updateSequence='7'><Layer/></x:wms_capabilities>": ("1.3.0", "7"),
    "<WMS_Capabilities version='1.3.0'><WMT_MS_Capabilities version='9'/><Layer/></WMS_Capabilities>": ("1.3.0", ""),
    "<WMS_Capabilities><Layer/></WMS_Capabilities>": MISSING, "<WMS_Capabilities version=''/>": MISSING,
    "<WMS_Capabilities version='1.0.0'><Layer/></WMS_Capabilities>": UNSUPPORTED,
    "<WMS_Capabilities version='1.3.0'><Layer/><Layer>&#x7;</Layer></WMS_Capabilities>": "invalid character reference",
    "<ServiceExceptionReport><ServiceException code='c' locator='l'>no</ServiceException></ServiceExceptionReport>":
        EXCEPTION + "service exception: ( Code= c  Locator= l Service Exception Text= no).",
    "<ExceptionReport><Exception exceptionCode='c'><ExceptionText>no</ExceptionText></Exception></ExceptionReport>":
        EXCEPTION + "exception report: ( Code= c Exception Text= no).",
}


def test_roots_are_checked(read):
    for (document, expected), (_, _, said, layers) in zip(ROOTS.items(), read(list(ROOTS)), strict=True):
        if isinstance(expected, str):
            assert expected in said and not layers, document
        else:
            assert [(layer["VERSION"], layer["UPDATE_SEQ"]) for layer in layers] == [expected], document


TIME = "<Dimension name='t' units='u' unitSymbol='s' default='d'>v</Dimension>"
EXTENT = "<Extent name='t' default='d'>e</Extent><Extent name='z'/>"
# What a layer, and the one in it, have when the outermost has this: (outermost, layer, version) -> both.
INHERITED = {
    ("<ScaleHint max='9'/>", "", "1.1.1"): "1 0 2 MAX_SCALE=9 / 2 1 3",
    ("<Attribution><Title>t</Title></Attribution>", "", "1.3.0"): "1 0 2 ATTRIBUTION[t] / 2 1 3",
    ("<BoundingBox SRS='a'/><BoundingBox SRS='b'/>", "", "1.1.0"): "1 0 2 BOUNDING_BOX 1[a] / 2 1 3 BOUNDING_BOX 1[a]",
    ("<CRS>EPSG:1</CRS><CRS>EPSG:2</CRS>", "<CRS>epsg:1</CRS>", "1.3.0"):
        "1 0 2 CRS 2[epsg:1][EPSG:2] / 2 1 3 CRS 2[epsg:1][EPSG:2]",
    ("<SRS>A B</SRS><SRS>a</SRS><SRS/><SRS/>", "<SRS>b C</SRS>", "1.1.1"):
        "1 0 2 SRS 4[b][C][A][-] / 2 1 3 SRS 5[b][C][A][-][-]",
    ("<Style><Name>s</Name></Style>", "<Style><Name>s</Name></Style>", "1.1.1"): "1 0 2 STYLE 2[s][s] / 2 1 3 STYLE 2[s][s]",
    ("<AuthorityURL name='a'/>", "", "1.1.1"): "1 0 2 AUTHORITY 1[a] / 2 1 3 AUTHORITY 1[a]",
    ("<LatLonBoundingBox minx='1'/>", "<EX_GeographicBoundingBox/>", "1.1.1"):
        "1 0 2 LAT_LON_BBOX[1] / 2 1 3 LAT_LON_BBOX[1]",
    (TIME + TIME, "", "1.3.0"): "1 0 2 DIMENSION 1[t|u|s|d||||v] / 2 1 3 DIMENSION 1[t|u|s|d||||v]",
    (TIME, "<Dimension name='z'/>", "1.3.0"): "1 0 2 DIMENSION 1[z] / 2 1 3 DIMENSION 1[z]",
    (TIME, "<Dimension name='z' default='0'/>", "1.1.1"): "1 0 2 DIMENSION 2[z|||0][t|u|s] / 2 1 3 DIMENSION 2[z][t|u|s]",
    (TIME + EXTENT, "", "1.1.1"): "1 0 2 EXTENT 1[t|d||e] DIMENSION 1[t|u|s] / 2 1 3 EXTENT 1[t|d||e] DIMENSION 1[t|u|s]",
    (TIME + EXTENT, "", "1.1.0"): "1 0 2 / 2 1 3",
    (EXTENT, "", "1.3.0"): "1 0 2 / 2 1 3",
    ("<Name>n</Name><Title>t</Title><KeywordList><Keyword>k</Keyword></KeywordList><Identifier>i</Identifier><MetadataURL "
     "type='m'/><DataURL><Format>f</Format></DataURL>", "", "1.1.1"): "1 0 2 / 2 1 3",
}


def test_layers_inherit_by_the_rules_of_their_version(read):
    documents = [capabilities(f"<Layer>{root}<Layer>{child}<Layer/></Layer></Layer>", version)
                 for root, child, version in INHERITED]
    for (case, expected), (lines, *_) in zip(INHERITED.items(), read(documents), strict=True):
        assert " / ".join(lines[1:]) == expected, case


FLAGS = {"queryable": "QUERYABLE", "cascaded": "CASCADED", "opaque": "OPAQUE", "noSubsets": "NO_SUBSETS",
         "fixedWidth": "FIXED_WIDTH", "fixedHeight": "FIXED_HEIGHT"}


def test_values_go_down_one_level(read):
    """A layer has its own value, also an empty one, or that of the layer around it when that one has its own."""
    own = "".join(f" {name}='{i}'" for i, name in enumerate(FLAGS, 1))
    blank = "".join(f" {name}=''" for name in FLAGS)
    [(_, _, _, layers)] = read([capabilities(
        f"<Layer{own}><ScaleHint min='7' max='8'/><Layer><Layer/></Layer><Layer{blank}><ScaleHint min='' max=''/></Layer>"
        "</Layer>")])
    values = [[layer[tag] for tag in (*FLAGS.values(), "MIN_SCALE", "MAX_SCALE")] for layer in layers]
    assert values == [list("12345678"), list("12345678"), [""] * 8, [""] * 8]


# What a random layer may have: the list that it goes to, the element, and the entry as line() shows it.
CONTENTS = [("SRS", "<SRS>EPSG:1</SRS>", "EPSG:1"), ("SRS", "<SRS>epsg:1</SRS>", "epsg:1"), ("SRS", "<SRS>EPSG:2</SRS>", "EPSG:2"),
            ("SRS", "<SRS/>", None), ("SRS", "<SRS> </SRS>", ""), ("CRS", "<CRS>CRS:84</CRS>", "CRS:84"),
            ("CRS", "<CRS>crs:84</CRS>", "crs:84"), ("BOUNDING_BOX", "<BoundingBox SRS='s'/>", "s"),
            ("BOUNDING_BOX", "<BoundingBox SRS='t'/>", "t"), ("EXTENT", "<Extent name='t'>e</Extent>", "t|||e"),
            ("DIMENSION", "<Dimension name='t' units='u' default='d'>v</Dimension>", "t|u||d||||v"),
            ("DIMENSION", "<Dimension name='z'/>", "z"), ("AUTHORITY", "<AuthorityURL name='a'/>", "a"),
            ("STYLE", "<Style><Name>a</Name></Style>", "a"), ("STYLE", "<Style/>", "")]
ORDER = ["SRS", "CRS", "BOUNDING_BOX", "EXTENT", "DIMENSION", "AUTHORITY", "STYLE"]


def inherited(own, parent, version):
    """The lists of a layer, by plain copying."""
    lists = {tag: list(entries) for tag, entries in own.items()}
    for tag in ("SRS", "CRS"):
        known = {name.lower() for name in own[tag] if name is not None}
        for name in parent[tag]:
            if name is None or name.lower() not in known:
                lists[tag].append(name or None)
                known |= {name.lower()} if name else set()
    for tag in ("STYLE", "AUTHORITY"):
        lists[tag] += parent[tag]
    if version == "1.1.1":
        lists["DIMENSION"] += ["|".join(entry.split("|")[:3]).rstrip("|") for entry in parent["DIMENSION"]]
    copied = {"1.1.0": ["BOUNDING_BOX"], "1.1.1": ["BOUNDING_BOX", "EXTENT"], "1.3.0": ["BOUNDING_BOX", "DIMENSION"]}
    for tag in copied[version]:
        lists[tag] = lists[tag] or parent[tag][:1]
    return lists


def test_many_layers_inherit(read):
    """Layers nested and filled at random."""
    chance = random.Random(1)
    documents, expected = [], []

    def layer(level, index, parent, version, above):
        own = chance.choices(CONTENTS, k=chance.randrange(9))
        lists = {tag: [entry for list_, _, entry in own if list_ == tag] for tag in ORDER}
        lists = inherited(lists, above, version) if above else lists
        shown = [f"{tag} {len(lists[tag])}" + "".join(f"[{entry or '-'}]" for entry in lists[tag]) for tag in ORDER if lists[tag]]
        lines.append(" ".join([str(index), str(parent), str(level), *shown]))
        inner = [layer(level + 1, len(lines), index, version, lists) for _ in range(chance.randrange(4) if level < 6 else 0)]
        return f"<Layer>{''.join(element for _, element, _ in own)}{''.join(inner)}</Layer>"

    for i in range(90):
        lines, version = [], VERSIONS[i % 3]
        documents.append(capabilities(layer(1, 0, -1, version, None), version))
        expected.append(lines)
    for document, wanted, (lines, *_) in zip(documents, expected, read(documents), strict=True):
        assert lines == wanted, document
    assert sum(map(len, expected)) > 1000

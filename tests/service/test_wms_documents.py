"""How capabilities of maps are read and inherited, as a script gets them."""

import itertools
import json
import random

import pytest

from lua_json import JSON, check_markers, element

VERSIONS = ["1.1.0", "1.1.1", "1.3.0"]
# For each document its layers and its service section, or what was said.
READ = JSON + """
local wms <close> = zel.new("ZELnetOGCWMS", {CAPABILITIES_FILENAME = "kept"})
for _, file in ipairs(arg) do
  local ok, why = pcall(wms.GetCapabilities, wms, {FROM_FILE = file, DISABLE_INHERITANCE = file:find("plain") and 1 or 0})
  print(json{wms:GetLayers(), wms:GetServiceSection(), ok and "" or why})
end
"""


def parts(layer):
    """Index, parent and level of a layer, and what is not empty: texts, records [a|-|b], counted lists 2[a][b]."""
    def shown(value):
        if isinstance(value, dict):
            return "[" + ("|".join(value.values()).rstrip("|") or "-") + "]"
        return "".join(map(shown, value)) if isinstance(value, list) else f"[{value or '-'}]"

    yield f'{layer["LAYER"]} {layer["PARENT"]} {layer["LEVEL"]}'
    for tag, value in itertools.islice(layer.items(), 4, None):
        if tag.startswith("NUM_"):
            continue
        if "NUM_" + tag in layer:
            if count := int(layer["NUM_" + tag]):
                yield f"{tag} {count}" + shown(value[:count] if isinstance(value, list) else value)
        elif isinstance(value, dict):
            if any(value.values()):
                yield tag + shown(value)
        elif value:
            yield f"{tag}={value}"


@pytest.fixture
def read(zel, tmp_path):
    """read(documents, plain=False): for each the lines of its layers, its service section, and what was said."""

    def run(documents, plain=False):
        files = [tmp_path / f"{'plain' if plain else 'inherited'}{i}.xml" for i in range(len(documents))]
        for file, document in zip(files, documents):
            file.write_text(document)
        for layers, service, said in map(json.loads, zel(READ, *files).out.splitlines()):
            yield [" ".join(parts(layer)) for layer in layers or []], service and service[0], said, layers or []

    return run


def capabilities(body, version="1.1.1"):
    return f"<WMT_MS_Capabilities version='{version}' xmlns:x='urn:x'>{body}</WMT_MS_Capabilities>"


LAYER, BOX = "layers[0]", "layers[0].BOUNDING_BOX"
MARKERS = "".join([
    element("Service", "service", """Name>NAME Title>TITLE Abstract>ABSTRACT OnlineResource/href=ONLINE ContactPerson>PERSON
        ContactOrganization>ORGANIZATION ContactPosition>POSITION AddressType>ADDRESS_TYPE Address>ADDRESS City>CITY
        StateOrProvince>STATE PostCode>POSTAL_CODE Country>COUNTRY ContactVoiceTelephone>VOICE ContactFacsimileTelephone>FAX
        ContactElectronicMailAddress>EMAIL Fees>FEES AccessConstraints>ACCESS LayerLimit>LAYER_LIMIT MaxWidth>MAX_WIDTH
        MaxHeight>MAX_HEIGHT""", element("KeywordList", "service", "Keyword>KEYWORD[0] Keyword>KEYWORD[1]")),
    element("GetMap", LAYER, "Format>MAP_FORMAT[0] Format>MAP_FORMAT[1]"),
    element("GetFeatureInfo", LAYER, "Format>FEATURE_FORMAT[0]"),
    element(
        "Layer", LAYER, """queryable=QUERYABLE cascaded=CASCADED opaque=OPAQUE noSubsets=NO_SUBSETS fixedWidth=FIXED_WIDTH
            fixedHeight=FIXED_HEIGHT Name>NAME Title>TITLE Abstract>ABSTRACT SRS>SRS[0] SRS>SRS[1] CRS>CRS[0]""",
        element("KeywordList", LAYER, "Keyword>KEYWORD[0] Keyword>KEYWORD[1]"),
        element("EX_GeographicBoundingBox", LAYER + ".EX_GEOBBOX", """westBoundLongitude>WEST eastBoundLongitude>EAST
            southBoundLatitude>SOUTH northBoundLatitude>NORTH"""),
        element("LatLonBoundingBox", LAYER + ".LAT_LON_BBOX", "minx=MINX miny=MINY maxx=MAXX maxy=MAXY"),
        element("BoundingBox", BOX + "[0]", "SRS=SRS CRS=CRS minx=MINX miny=MINY maxx=MAXX maxy=MAXY resx=RESX resy=RESY"),
        element("BoundingBox", BOX + "[1]", "minx=MINX"),
        element("Dimension", LAYER + ".DIMENSION[0]", """name=NAME units=UNITS unitSymbol=UNIT_SYMBOL default=DEFAULT
            multipleValues=MULTIPLE_VALUES nearestValue=NEAREST_VALUE current=CURRENT >EXTENT"""),
        element("Extent", LAYER + ".EXTENT[0]", "name=NAME default=DEFAULT nearestValue=NEAREST_VALUE >EXTENT"),
        element("Attribution", LAYER + ".ATTRIBUTION", "Title>TITLE OnlineResource/href=ONLINE", element(
            "LogoURL", LAYER + ".ATTRIBUTION", """width=LOGO_WIDTH height=LOGO_HEIGHT Format>LOGO_FORMAT
                OnlineResource/href=LOGO_ONLINE""")),
        element("AuthorityURL", LAYER + ".AUTHORITY[0]", "name=NAME OnlineResource/href=ONLINE"),
        element("Identifier", LAYER + ".IDENTIFIER[0]", "authority=AUTHORITY >ID"),
        element("MetadataURL", LAYER + ".METADATA_URL[0]", "type=TYPE Format>FORMAT OnlineResource/href=ONLINE"),
        element("DataURL", LAYER + ".DATA_URL[0]", "Format>FORMAT OnlineResource/href=ONLINE"),
        element("FeatureListURL", LAYER + ".FEATURE_URL[0]", "Format>FORMAT OnlineResource/href=ONLINE"),
        element(
            "Style", LAYER + ".STYLE[0]", "Name>NAME Title>TITLE Abstract>ABSTRACT",
            element("LegendURL", LAYER + ".STYLE[0]", """width=LEGEND_WIDTH height=LEGEND_HEIGHT Format>LEGEND_FORMAT
                OnlineResource/href=LEGEND_ONLINE"""),
            element("StyleSheetURL", LAYER + ".STYLE[0]", "Format>SHEET_FORMAT OnlineResource/href=SHEET_ONLINE"),
            element("StyleURL", LAYER + ".STYLE[0]", "Format>STYLE_FORMAT OnlineResource/href=STYLE_ONLINE")),
        element("ScaleHint", LAYER, "min=MIN_SCALE max=MAX_SCALE"),
        element("Layer", "layers[1]", "MinScaleDenominator>MIN_SCALE MaxScaleDenominator>MAX_SCALE"))])


@pytest.mark.parametrize("version", VERSIONS)
def test_every_value_goes_to_its_tag(read, version):
    document = f"<WMT_MS_Capabilities version='{version}' updateSequence='seq'>{MARKERS}</WMT_MS_Capabilities>"
    [(_, service, said, layers)] = read([document], plain=True)
    rest = check_markers(document, service=service, layers=layers)
    assert not said and rest == {
        f"layers[{i}].{tag}": value for i, parent, level in (("0", "-1", "1"), ("1", "0", "2"))
        for tag, value in (("LAYER", i), ("PARENT", parent), ("LEVEL", level), ("VERSION", version), ("UPDATE_SEQ", "seq"))
    } | {f"layers[1].{tag}": f"layers[0].{tag}" for tag in ("MAP_FORMAT[0]", "MAP_FORMAT[1]", "FEATURE_FORMAT[0]")}


URL = "<OnlineResource x:href='u' href='v'/>"
LAYERS = {
    # order, parents and levels
    "<Layer/><Layer/>": "0 -1 1 / 1 -1 1",
    "<Layer><Layer/><Layer><Layer/></Layer></Layer><Layer><Layer/></Layer>":
        "0 -1 1 / 1 0 2 / 2 0 2 / 3 2 3 / 4 -1 1 / 5 4 2",
    "<Layer><Name>a<Layer>lost<Name>b</Name></Layer></Name><Name>c</Name></Layer><Title>t</Title>":
        "0 -1 1 NAME=a / 1 0 2 NAME=b c TITLE=t",
    "<x:LAYER QUERYABLE='1' x:Opaque=''><x:nAmE>n</x:nAmE><TITLE>t</TITLE></x:LAYER>": "0 -1 1 NAME=n TITLE=t QUERYABLE=1",
    # runs of text
    "<Layer><Title>R&amp;D <b>x</b> lost</Title><Abstract></Abstract></Layer>": "0 -1 1 TITLE=R&D  x",
    "<Layer><Name>Wald &amp; W&#105;e<!-- -->se, l<?pi?>'<![CDATA[Île]]></Name></Layer>": "0 -1 1 NAME=Wald & Wiese, l'Île",
    "<Layer><SRS>A  B,C , D</SRS><SRS/><SRS>E&amp;F G</SRS></Layer>": "0 -1 1 SRS 3[A][B][C]",
    "<Layer><SRS>  A,,B</SRS><SRS>,C</SRS><SRS/></Layer>": "0 -1 1 SRS 3[  A][-][C]",
    "<Layer><CRS>A B</CRS><x/><CRS>C&amp;D</CRS></Layer>": "0 -1 1 CRS 2[A B][C&D]",
    "<Layer><KeywordList><Keyword>a</Keyword><Keyword/></KeywordList><Keyword>no</Keyword><KeywordList><Keyword>b</Keyword>"
    "</KeywordList></Layer>": "0 -1 1 KEYWORD 3[a][-][b]",
    # the lat-lon box stays open until another grouping element
    "<Layer><LatLonBoundingBox minx='1' miny='2' maxx='3' maxy='4' x:maxy='7'/><ScaleHint min='5' max='6' minx='9'/><SRS>A</SRS>"
    "<z minx='8'/></Layer>": "0 -1 1 SRS 1[A] LAT_LON_BBOX[1 9|2|3|4] MIN_SCALE=5 MAX_SCALE=6",
    "<Layer><LatLonBoundingBox minx='1'/><LatLongBoundingBox maxy='2'/><z minx='8'/><LatLonBoundingBox minx='3'/></Layer>"
    "<z maxx='9'/>": "0 -1 1 LAT_LON_BBOX[1 3|||2]",
    # names and titles inside grouping elements
    "<Layer><Attribution><Title>t</Title><Name>n</Name>" + URL + "<LogoURL width='1' height='2'><Format>f</Format>"
    "<OnlineResource href='l'/></LogoURL><Format>no</Format></Attribution><Title>own</Title></Layer>":
        "0 -1 1 NAME=n TITLE=own ATTRIBUTION[t|u|f|l|1|2]",
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


MISSING = "Error: The WMS Capabilities Version number attribute is missing."
ROOTS = {
    "<WMT_MS_Capabilities version='1.1.0'><Layer/></WMT_MS_Capabilities>": ("1.1.0", ""),
    "<x:wms_capabilities xmlns:x='u' Version='1.3.0' updateSequence='7'><Layer/></x:wms_capabilities>": ("1.3.0", "7"),
    "<WMS_Capabilities version='1.3.0'><WMT_MS_Capabilities version='9'/><Layer/></WMS_Capabilities>": ("1.3.0", ""),
    "<WMS_Capabilities><Layer/></WMS_Capabilities>": MISSING, "<WMS_Capabilities version=''/>": MISSING,
    "<WMS_Capabilities version='1.0.0'><Layer/></WMS_Capabilities>":
        "(1.0.0) is not supported. This WMS Client supports OGC WMS version 1.1.0, 1.1.1, and 1.3.0.",
    "<WMS_Capabilities version='1.3.0'><Layer/><Layer>\n&#x7;</Layer></WMS_Capabilities>":
        "invalid character reference), Line (2), Column( 6)",
}


def test_roots_are_checked(read):
    for (document, expected), (_, _, said, layers) in zip(ROOTS.items(), read(list(ROOTS)), strict=True):
        if isinstance(expected, str):
            assert expected in said and not layers, document
        else:
            assert [(layer["VERSION"], layer["UPDATE_SEQ"]) for layer in layers] == [expected], document


# What a random layer may have: the list that it goes to, the element, and how parts() shows it there.
LISTS = [
    ("SRS", "<SRS>EPSG:1</SRS>", "EPSG:1"), ("SRS", "<SRS>epsg:1</SRS>", "epsg:1"), ("SRS", "<SRS>EPSG:2</SRS>", "EPSG:2"),
    ("SRS", "<SRS/>", None), ("SRS", "<SRS> </SRS>", ""), ("CRS", "<CRS>CRS:84</CRS>", "CRS:84"),
    ("CRS", "<CRS>crs:84</CRS>", "crs:84"), ("BOUNDING_BOX", "<BoundingBox SRS='s'/>", "s"),
    ("BOUNDING_BOX", "<BoundingBox SRS='t'/>", "t"), ("EXTENT", "<Extent name='t'>e</Extent>", "t|||e"),
    ("EXTENT", "<Extent name='z' default='d'/>", "z|d"), ("DIMENSION", "<Dimension name='z'/>", "z"),
    ("DIMENSION", "<Dimension name='t' units='u' unitSymbol='s' default='d'>v</Dimension>", "t|u|s|d||||v"),
    ("AUTHORITY", "<AuthorityURL name='a'/>", "a"), ("STYLE", "<Style><Name>a</Name></Style>", "a"),
    ("STYLE", "<Style/>", ""), ("KEYWORD", "<KeywordList><Keyword>k</Keyword></KeywordList>", "k"),
    ("DATA_URL", "<DataURL><Format>f</Format></DataURL>", "f")]
ATTRIBUTES = {"QUERYABLE": "queryable", "CASCADED": "cascaded", "OPAQUE": "opaque", "NO_SUBSETS": "noSubsets",
              "FIXED_WIDTH": "fixedWidth", "FIXED_HEIGHT": "fixedHeight"}
ELEMENTS = {
    "MIN_SCALE": "<ScaleHint min='{}'/>", "MAX_SCALE": "<ScaleHint max='{}'/>", "NAME": "<Name>{}</Name>",
    "TITLE": "<Title>{}</Title>", "ATTRIBUTION": "<Attribution><Title>{}</Title></Attribution>",
    "LAT_LON_BBOX": "<LatLonBoundingBox minx='{}'/>",
    "EX_GEOBBOX": "<EX_GeographicBoundingBox><westBoundLongitude>{}</westBoundLongitude></EX_GeographicBoundingBox>"}
NOT_INHERITED, BOXES = {"NAME", "TITLE", "KEYWORD", "DATA_URL"}, {"LAT_LON_BBOX", "EX_GEOBBOX"}
TAGS = dict.fromkeys([tag for tag, *_ in LISTS])


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


def parts_of(place, lists, singles):
    """The same as parts()."""
    return {place, *(f"{tag} {len(entries)}" + "".join(f"[{entry or '-'}]" for entry in entries)
                     for tag, entries in lists.items() if entries),
            *(f"{tag}[{value}]" if tag in BOXES | {"ATTRIBUTION"} else f"{tag}={value}"
              for tag, value in singles.items() if value)}


def test_layers_inherit_by_the_rules_of_their_version(read):
    """Layers nested and filled at random. A single value, also an empty one, goes down one level, a box all levels."""
    chance = random.Random(1)
    documents, expected = [], []

    def layer(level, parent, version, above):
        entries = chance.choices(LISTS, k=chance.randrange(9))
        chosen = chance.sample([*ATTRIBUTES, *ELEMENTS], chance.randrange(6))
        own = {tag: chance.choice(["", "1", "2", "3"]) for tag in chosen}
        lists, singles = {tag: [entry for list_, _, entry in entries if list_ == tag] for tag in TAGS}, own
        if above:
            outer_lists, outer_own, outer = above
            lists = inherited(lists, outer_lists, version)
            singles = {tag: outer[tag] for tag in BOXES & set(outer)} | {
                tag: value for tag, value in outer_own.items() if tag not in NOT_INHERITED} | own
        index = len(layers)
        layers.append(parts_of(f"{index} {parent} {level}", lists, singles))
        inner = [layer(level + 1, index, version, (lists, own, singles))
                 for _ in range(chance.randrange(4) if level < 6 else 0)]
        attributes = "".join(f" {ATTRIBUTES[tag]}='{value}'" for tag, value in own.items() if tag in ATTRIBUTES)
        elements = [ELEMENTS[tag].format(value) for tag, value in own.items() if tag in ELEMENTS]
        return f"<Layer{attributes}>{''.join([*elements, *(entry for _, entry, _ in entries), *inner])}</Layer>"

    for i in range(90):
        layers, version = [], VERSIONS[i % 3]
        documents.append(capabilities(layer(1, -1, version, None), version))
        expected.append(layers)
    for document, wanted, (*_, got) in zip(documents, expected, read(documents), strict=True):
        assert [set(parts(one)) for one in got] == wanted, document
    assert sum(map(len, expected)) > 1000

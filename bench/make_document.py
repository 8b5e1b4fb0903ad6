#!/usr/bin/python3
"""Writes a capabilities or coverage description document of any size to standard output.

    make_document.py wms --layers 70000 > capabilities.xml

With the default options a layer, brief or offering is as long as servers write them: a layer has about 1,050 bytes.
"""

import argparse
import sys

ABSTRACT = ("Monthly mean of the surface temperature, interpolated from the stations of the national network, "
            "quality checked and published on the fifth working day.")


def reference_names(options, number):
    """The reference systems that record `number` lists: its own, then those it repeats from the root."""
    repeated = range(options.root_names if options.repeat == "all" else min(int(options.repeat), options.root_names))
    prefix = "epsg" if options.other_case else "EPSG"
    return ([f"LOCAL:{number * options.names + name}" for name in range(options.names)]
            + [f"{prefix}:{20000 + name}" for name in repeated])


WMS_HEAD = """<?xml version="1.0" encoding="UTF-8"?>
<{root} version="{version}" updateSequence="7" xmlns:xlink="http://www.w3.org/1999/xlink">
<Service>
 <Name>{service}</Name>
 <Title>Generated service</Title>
 <OnlineResource xlink:type="simple" xlink:href="http://maps.example.org/ows?"/>
</Service>
<Capability>
 <Request>
  <GetMap>
   <Format>image/png</Format>
   <Format>image/jpeg</Format>
  </GetMap>
  <GetFeatureInfo>
   <Format>text/plain</Format>
  </GetFeatureInfo>
 </Request>
 <Layer>
  <Title>All layers</Title>
"""


class Wms:
    """The elements of one version."""

    def __init__(self, options):
        self.options = options
        self.old = options.version != "1.3.0"
        self.names_tag = "SRS" if self.old else "CRS"
        self.extra = "".join(self.style(n) for n in range(options.styles)) + "".join(
            self.dimension(n) for n in range(options.dimensions))

    def names(self, texts):
        return "".join(f"  <{self.names_tag}>{text}</{self.names_tag}>\n" for text in texts)

    def style(self, number):
        return f"""  <Style>
   <Name>style_{number}</Name>
   <Title>Temperature</Title>
   <LegendURL width="96" height="240">
    <Format>image/png</Format>
    <OnlineResource xlink:type="simple" xlink:href="http://maps.example.org/legend?layer=t&amp;style={number}"/>
   </LegendURL>
  </Style>
"""

    def dimension(self, number):
        name, values = f"axis_{number}", "2001-01-01/2024-12-01/P1M"
        if self.old:
            return (f'  <Dimension name="{name}" units="ISO8601"/>\n'
                    f'  <Extent name="{name}" default="2024-12-01">{values}</Extent>\n')
        return f'  <Dimension name="{name}" units="ISO8601" default="2024-12-01">{values}</Dimension>\n'

    def boxes(self, number):
        west, south = number % 300 - 150, number % 120 - 60
        box = f'minx="{west}.25" miny="{south}.25" maxx="{west + 9}.75" maxy="{south + 9}.75"'
        if self.old:
            return f'  <LatLonBoundingBox {box}/>\n  <BoundingBox SRS="EPSG:4326" {box}/>\n'
        return f"""  <EX_GeographicBoundingBox>
   <westBoundLongitude>{west}.25</westBoundLongitude>
   <eastBoundLongitude>{west + 9}.75</eastBoundLongitude>
   <southBoundLatitude>{south}.25</southBoundLatitude>
   <northBoundLatitude>{south + 9}.75</northBoundLatitude>
  </EX_GeographicBoundingBox>
  <BoundingBox CRS="EPSG:4326" {box}/>
"""

    def layer(self, number):
        return f""" <Layer queryable="1" opaque="0">
  <Name>temperature_{number}</Name>
  <Title>Temperature of station group {number}</Title>
  <Abstract>{ABSTRACT}</Abstract>
  <KeywordList>
   <Keyword>temperature</Keyword>
   <Keyword>climate</Keyword>
  </KeywordList>
{self.names(reference_names(self.options, number))}{self.boxes(number)}\
  <MetadataURL type="FGDC">
   <Format>text/xml</Format>
   <OnlineResource xlink:type="simple" xlink:href="http://maps.example.org/metadata/{number}.xml"/>
  </MetadataURL>
{self.extra}"""

    def document(self):
        root, service = ("WMT_MS_Capabilities", "OGC:WMS") if self.old else ("WMS_Capabilities", "WMS")
        yield WMS_HEAD.format(root=root, version=self.options.version, service=service)
        yield self.names(f"EPSG:{20000 + name}" for name in range(self.options.root_names))
        for first in range(0, self.options.layers, self.options.depth):
            chain = range(first, min(first + self.options.depth, self.options.layers))
            yield from map(self.layer, chain)
            yield " </Layer>\n" * len(chain)
        yield f" </Layer>\n</Capability>\n</{root}>\n"


def envelope(number):
    west, south = number % 300 - 150, number % 120 - 60
    return f"""   <gml:pos dimension="2">{west}.25 {south}.25</gml:pos>
   <gml:pos dimension="2">{west + 9}.75 {south + 9}.75</gml:pos>
"""


def repeat(count, line):
    return "".join(line.format(n) for n in range(count))


def brief(options, number):
    return f""" <CoverageOfferingBrief>
  <description>{ABSTRACT}</description>
  <name>temperature_{number}</name>
  <label>Temperature of station group {number}</label>
  <lonLatEnvelope srsName="urn:ogc:def:crs:OGC:1.3:CRS84">
{envelope(number)}  </lonLatEnvelope>
  <keywords>
{repeat(options.keywords, "   <keyword>climate_{}</keyword>" + chr(10))}  </keywords>
 </CoverageOfferingBrief>
"""


def offering(options, number):
    axis = f"""   <axisDescription><AxisDescription>
    <name>axis_{{}}</name>
    <label>Height</label>
    <values>
{repeat(options.values, "     <singleValue>{}00</singleValue>" + chr(10))}     <default>100</default>
    </values>
   </AxisDescription></axisDescription>
"""
    names = "".join(f"   <requestResponseCRSs>{name}</requestResponseCRSs>\n" for name in
                    [f"EPSG:{20000 + name}" for name in range(options.root_names)] + reference_names(options, number))
    return f""" <CoverageOffering>
  <description>{ABSTRACT}</description>
  <name>temperature_{number}</name>
  <label>Temperature of station group {number}</label>
  <lonLatEnvelope srsName="urn:ogc:def:crs:OGC:1.3:CRS84">
{envelope(number)}  </lonLatEnvelope>
  <domainSet><spatialDomain>
   <gml:Envelope srsName="EPSG:4326">
{envelope(number)}   </gml:Envelope>
   <gml:RectifiedGrid dimension="2" srsName="EPSG:4326">
    <gml:limits><gml:GridEnvelope><gml:low>0 0</gml:low><gml:high>1199 599</gml:high></gml:GridEnvelope></gml:limits>
    <gml:axisName>x</gml:axisName>
    <gml:axisName>y</gml:axisName>
    <gml:origin><gml:pos>{number % 300 - 150} 90</gml:pos></gml:origin>
    <gml:offsetVector>0.3 0</gml:offsetVector>
    <gml:offsetVector>0 -0.3</gml:offsetVector>
   </gml:RectifiedGrid>
  </spatialDomain></domainSet>
  <rangeSet><RangeSet>
   <name>range_{number}</name>
   <label>Temperature</label>
{repeat(options.axes, axis)}   <nullValues><singleValue>-9999</singleValue></nullValues>
  </RangeSet></rangeSet>
  <supportedCRSs>
{names}  </supportedCRSs>
  <supportedFormats nativeFormat="GeoTIFF"><formats>GeoTIFF NetCDF</formats></supportedFormats>
  <supportedInterpolations default="nearest neighbor">
   <interpolationMethod>nearest neighbor</interpolationMethod>
   <interpolationMethod>bilinear</interpolationMethod>
  </supportedInterpolations>
 </CoverageOffering>
"""


def wcs_document(options, root, body, record, number):
    yield (f'<?xml version="1.0" encoding="UTF-8"?>\n<{root} version="1.0.0" updateSequence="7" '
           'xmlns="http://www.opengis.net/wcs" xmlns:gml="http://www.opengis.net/gml">\n')
    yield f"<{body}>\n" if body else ""
    for n in range(number):
        yield record(options, n)
    yield (f"</{body}>\n" if body else "") + f"</{root}>\n"


DOCUMENTS = {
    "wms": lambda options: Wms(options).document(),
    "wcs-briefs": lambda options: wcs_document(options, "WCS_Capabilities", "ContentMetadata", brief, options.briefs),
    "wcs-offerings": lambda options: wcs_document(options, "CoverageDescription", None, offering, options.offerings),
}


def arguments(words=None):
    parser = argparse.ArgumentParser(description="Writes a generated document to standard output.")
    kinds = parser.add_subparsers(dest="kind", required=True)

    def add(options, name, default, text, **more):
        options.add_argument(name, type=more.pop("type", int), default=default, help=f"{text} ({default})", **more)

    def add_reference_names(options, root_names, holder):
        add(options, "--root-names", root_names, f"reference systems {holder}")
        add(options, "--names", 2, "reference systems of its own that each record lists")
        add(options, "--repeat", "0", "how many of the root's each record repeats: a number or all", type=str)
        options.add_argument("--other-case", action="store_true", help="repeat them in other letter case")

    wms = kinds.add_parser("wms", help="WMS capabilities")
    add(wms, "--version", "1.1.1", "1.1.0, 1.1.1 or 1.3.0", type=str, choices=("1.1.0", "1.1.1", "1.3.0"))
    add(wms, "--layers", 1000, "layers below the root layer")
    add(wms, "--depth", 1, "layers nested in each other below the root layer")
    add_reference_names(wms, 8, "at the root layer")
    add(wms, "--styles", 1, "styles of a layer")
    add(wms, "--dimensions", 0, "dimensions of a layer, in 1.1.1 each with its extent")

    briefs = kinds.add_parser("wcs-briefs", help="WCS capabilities")
    add(briefs, "--briefs", 1000, "coverage offering briefs")
    add(briefs, "--keywords", 2, "keywords of a brief")

    offerings = kinds.add_parser("wcs-offerings", help="WCS coverage description")
    add(offerings, "--offerings", 1000, "coverage offerings")
    add_reference_names(offerings, 8, "in every offering alike")
    add(offerings, "--axes", 1, "axis descriptions of an offering")
    add(offerings, "--values", 4, "single values of an axis")
    return parser.parse_args(words)


def document(*words):
    """The document that a command line with these words writes."""
    options = arguments([str(word) for word in words])
    return "".join(DOCUMENTS[options.kind](options))


def main():
    options = arguments()
    sys.stdout.writelines(DOCUMENTS[options.kind](options))


if __name__ == "__main__":
    main()

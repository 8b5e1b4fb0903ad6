#include "test_ogc_wcs.h"

#include <sstream>

namespace {

/// Prints the fields of a record that are there, as name='text' and name=['text' 'text'].
class Dump {
public:
  Dump& operator()(const char* name, const char* value) {
    if (value != nullptr) m_out << ' ' << name << "='" << value << '\'';
    return *this;
  }
  Dump& operator()(const char* name, const xNodeStr_t* list) {
    if (list == nullptr) return *this;
    m_out << ' ' << name << "=[";
    for (; list != nullptr; list = list->next) {
      m_out << '\'' << (list->str != nullptr ? list->str : "(absent)") << (list->next != nullptr ? "' " : "'");
    }
    m_out << ']';
    return *this;
  }
  Dump& operator()(const char* name, const WcsInterval* list) {
    for (; list != nullptr; list = list->next) line(name)("min", list->min)("max", list->max)("res", list->res);
    return *this;
  }
  Dump& line(const char* kind) {
    m_out << '\n' << kind << ':';
    return *this;
  }
  [[nodiscard]] std::string str() const { return m_out.str(); }

private:
  std::ostringstream m_out;
};

void envelope(Dump& dump, const char* kind, const WcsEnvelope& e) {
  dump.line(kind)("srs", e.srsName)("pos1", e.pos1)("dim1", e.pos1Dimension)("pos2", e.pos2)("dim2", e.pos2Dimension);
  dump("time1", e.timePosition1)("time2", e.timePosition2);
}

std::string describe(const WcsService* s) {
  Dump dump;
  if (s == nullptr) return "";
  dump.line("service")("name", s->name)("label", s->label)("description", s->description)("keywords", s->keywords);
  dump("individual", s->individualName)("organisation", s->organisationName)("position", s->positionName);
  dump("voice", s->voice)("fax", s->facsimile)("delivery", s->deliveryPoint)("city", s->city);
  dump("area", s->administrativeArea)("postal", s->postalCode)("country", s->country)("mail", s->electronicMailAddress);
  dump("online", s->onlineResource)("fees", s->fees)("access", s->accessConstraints);
  return dump.str();
}

std::string describe(const WcsBrief* b) {
  Dump dump;
  for (; b != nullptr; b = b->next) {
    dump.line("brief")("index", b->index)("version", b->version)("update", b->updateSequence)("name", b->name);
    dump("description", b->description)("label", b->label)("srs", b->lonLatSrsName)("pos1", b->pos1);
    dump("dim1", b->pos1Dimension)("pos2", b->pos2)("dim2", b->pos2Dimension)("time1", b->timePosition1);
    dump("time2", b->timePosition2)("keywords", b->keywords);
  }
  return dump.str();
}

std::string describe(const WcsOffering* o) {
  Dump dump;
  for (; o != nullptr; o = o->next) {
    dump.line("offering")("index", o->index)("version", o->version)("update", o->updateSequence);
    dump("description", o->description)("name", o->name)("label", o->label);
    envelope(dump, "lonlat", o->lonLatEnvelope);
    for (const WcsEnvelope* e = o->envelopes; e != nullptr; e = e->next) envelope(dump, "envelope", *e);
    for (const WcsGrid* g = o->grids; g != nullptr; g = g->next) {
      dump.line("grid")("rectified", g->rectified)("dimension", g->dimension)("srs", g->srsName)("low", g->low);
      dump("high", g->high)("axes", g->axisNames)("origin", g->origin)("offsets", g->offsetVectors);
    }
    for (const WcsTimePosition* t = o->timePositions; t != nullptr; t = t->next) {
      dump.line("time")("position", t->position)("frame", t->frame)("calendar", t->calendarEraName);
      dump("indeterminate", t->indeterminatePosition);
    }
    for (const WcsTimePeriod* t = o->timePeriods; t != nullptr; t = t->next) {
      dump.line("period")("begin", t->begin)("end", t->end)("resolution", t->resolution)("frame", t->frame);
      dump("calendar", t->calendarEraName)("indeterminate", t->indeterminatePosition);
    }
    dump.line("range")("description", o->rangeSet.description)("label", o->rangeSet.label)("name", o->rangeSet.name);
    dump("nulls", o->rangeSet.nullSingleValues)("null", o->rangeSet.nullIntervals);
    for (const WcsAxis* a = o->axes; a != nullptr; a = a->next) {
      dump.line("axis")("name", a->name)("label", a->label)("description", a->description)("default", a->defaultValue);
      dump("values", a->singleValues)("interval", a->intervals);
    }
    dump.line("crs")("both", o->crs.requestResponseCRSs)("request", o->crs.requestCRSs);
    dump("response", o->crs.responseCRSs)("native", o->crs.nativeCRSs);
    dump("formats", o->formats)("format", o->nativeFormat)("methods", o->interpolationMethods);
    dump("method", o->defaultInterpolation);
  }
  return dump.str();
}

TEST_F(Wcs, ReadsCapabilities) {
  const struct {
    const char* what;
    std::string document;
    const char* service;
    const char* briefs;
  } cases[] = {
      {"prefixes and letter case do not matter",
       "<w:WCS_CAPABILITIES xmlns:w='u' w:Version='1.0.0' UPDATESEQUENCE='7'><w:SERVICE><w:NAME>n</w:NAME></w:SERVICE>"
       "<w:contentmetadata><w:coverageofferingbrief><w:Name>b</w:Name></w:coverageofferingbrief></w:contentmetadata>"
       "</w:WCS_CAPABILITIES>",
       "\nservice: name='n'", "\nbrief: index='0' version='1.0.0' update='7' name='b'"},
      {"every field of the service section",
       capabilities("<Service><description>d</description><name>n</name><label>l</label><keywords><keyword>k1</keyword>"
                    "<keyword>k2</keyword></keywords><responsibleParty><individualName>i</individualName>"
                    "<organisationName>o</organisationName><positionName>p</positionName><contactInfo><phone>"
                    "<voice>v</voice><facsimile>f</facsimile></phone><address><deliveryPoint>dp</deliveryPoint>"
                    "<city>c</city><administrativeArea>a</administrativeArea><postalCode>pc</postalCode>"
                    "<country>co</country><electronicMailAddress>e</electronicMailAddress></address>"
                    "<onlineResource xmlns:x='u' x:type='simple' x:href='http://h/'>text</onlineResource></contactInfo>"
                    "</responsibleParty><fees>NONE</fees><accessConstraints/></Service>"),
       "\nservice: name='n' label='l' description='d' keywords=['k1' 'k2'] individual='i' organisation='o' "
       "position='p' "
       "voice='v' fax='f' delivery='dp' city='c' area='a' postal='pc' country='co' mail='e' online='http://h/ text' "
       "fees='NONE'",
       ""},
      {"an empty service section is none, an unknown child makes one", capabilities("<Service/>"), "", ""},
      {"an unknown child", capabilities("<Service><x/></Service>"), "\nservice:", ""},
      {"another section is no child, and a brief ends the text before it",
       capabilities("<Service><ContentMetadata><CoverageOfferingBrief><name>a<CoverageOfferingBrief>lost"
                    "</CoverageOfferingBrief></name></CoverageOfferingBrief></ContentMetadata></Service>"),
       "", "\nbrief: index='0' version='1.0.0' name='a'\nbrief: index='1' version='1.0.0'"},
      {"keywords go to the section they are in, runs of text are joined, a child ends the text",
       capabilities("<Service><keyword>R&amp;D<![CDATA[ <x>]]></keyword></Service><ContentMetadata>"
                    "<CoverageOfferingBrief><name>a<x>b</x>c</name><keyword/></CoverageOfferingBrief>"
                    "<CoverageOfferingBrief/><CoverageOfferingBrief><keywords><keyword>k1</keyword></keywords>"
                    "<keyword>k2</keyword></CoverageOfferingBrief></ContentMetadata>"),
       "\nservice: keywords=['R &D  <x>']",
       "\nbrief: index='0' version='1.0.0' name='a b' keywords=['(absent)']"
       "\nbrief: index='1' version='1.0.0'"
       "\nbrief: index='2' version='1.0.0' keywords=['k1' 'k2']"},
      {"runs of position text are counted in a brief, of time positions in the document",
       capabilities(
           "<ContentMetadata><CoverageOfferingBrief><lonLatEnvelope srsName='EPSG:4326'>"
           "<pos dimension='2'>1 2</pos><pos dimension='3'>3&#32;4</pos><pos dimension='4'>5</pos>"
           "<timePosition>t1</timePosition></lonLatEnvelope></CoverageOfferingBrief>"
           "<CoverageOfferingBrief><pos dimension='2'/><pos dimension='3'>1</pos><timePosition>t2</timePosition>"
           "<timePosition>t3</timePosition></CoverageOfferingBrief></ContentMetadata>"),
       "",
       "\nbrief: index='0' version='1.0.0' srs='EPSG:4326' pos1='1 2' dim1='2' pos2='3' dim2='3' time1='t1'"
       "\nbrief: index='1' version='1.0.0' pos1='1' dim1='2 3' time2='t2'"},
      {"what has no brief is ignored",
       capabilities("<ContentMetadata><name>n</name><keyword>k</keyword><pos dimension='1'>1</pos>"
                    "<lonLatEnvelope srsName='s'/><CoverageOfferingBrief/></ContentMetadata><name>behind</name>"),
       "", "\nbrief: index='0' version='1.0.0'"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(readCapabilities(c.document), "");
    EXPECT_EQ(describe(wcs.Service()), c.service);
    EXPECT_EQ(describe(wcs.Briefs()), c.briefs);
  }
}

TEST_F(Wcs, ReadsCoverageDescriptions) {
  const struct {
    const char* what;
    std::string body;
    const char* offerings;
  } cases[] = {
      {"envelopes, also with time periods, keep two positions each",
       "<description>d</description><name>n</name><label>l</label><lonLatEnvelope srsName='s' dimension='9'>"
       "<pos dimension='2'>1 1</pos><pos dimension='3'>2 2</pos><pos dimension='4'>3 3</pos>"
       "<timePosition>t1</timePosition><timePosition>t2</timePosition><timePosition>t3</timePosition></lonLatEnvelope>"
       "<label>too late</label><domainSet><spatialDomain><Envelope srsName='e1'><pos>1</pos><pos dimension='2'>2</pos>"
       "</Envelope><EnvelopeWithTimePeriod srsName='e2'><pos>3</pos><timePosition>t4</timePosition>"
       "<timePosition>t5</timePosition></EnvelopeWithTimePeriod><pos>outside</pos></spatialDomain></domainSet>",
       " description='d' name='n' label='l'"
       "\nlonlat: srs='s' pos1='1 1' dim1='2' pos2='2 2' dim2='3' time1='t1' time2='t2'"
       "\nenvelope: srs='e1' pos1='1' pos2='2' dim2='2'"
       "\nenvelope: srs='e2' pos1='3' time1='t4' time2='t5'"
       "\nrange:\ncrs:"},
      {"grids of different size, rectified or not",
       "<spatialDomain><Grid dimension='2' srsName='g'><limits><GridEnvelope><low>0 0</low><high>9 9</high>"
       "</GridEnvelope></limits><axisName>x</axisName><offsetVector>1 0</offsetVector><axisName>y</axisName></Grid>"
       "<low>outside</low><RectifiedGrid dimension='3'><axisName>u</axisName><origin><pos dimension='2'>5 5</pos>"
       "</origin><offsetVector>1 0</offsetVector><offsetVector>0 -1</offsetVector></RectifiedGrid></spatialDomain>",
       "\nlonlat:\ngrid: rectified='No' dimension='2' srs='g' low='0 0' high='9 9' axes=['x' 'y'] offsets=['1 0']"
       "\ngrid: rectified='Yes' dimension='3' axes=['u'] origin='5 5' offsets=['1 0' '0 -1']"
       "\nrange:\ncrs:"},
      {"positions and periods of time with their attributes",
       "<domainSet><temporalDomain><timePosition frame='#f' calendarEraName='era' indeterminatePosition='now'>2020"
       "</timePosition><timePosition>2021</timePosition><timePeriod><beginPosition frame='#b' calendarEraName='c' "
       "indeterminatePosition='after'>2000</beginPosition><endPosition frame='#e'>2001</endPosition>"
       "<timeResolution>P1M</timeResolution></timePeriod><timePeriod><beginPosition>2002</beginPosition></timePeriod>"
       "</temporalDomain></domainSet>",
       "\nlonlat:\ntime: position='2020' frame='#f' calendar='era' indeterminate='now'\ntime: position='2021'"
       "\nperiod: begin='2000' end='2001' resolution='P1M' frame='#b' calendar='c' indeterminate='after'"
       "\nperiod: begin='2002'\nrange:\ncrs:"},
      {"null values and axes, single and as intervals",
       "<rangeSet><RangeSet><description>d</description><name>n</name><label>l</label><min>outside</"
       "min><axisDescription>"
       "<AxisDescription><description>ad</description><name>an</name><label>al</label><values><interval><min>1</min>"
       "<max>2</max><res>.5</res></interval><singleValue>7</singleValue><interval><min>3</min></interval>"
       "<singleValue>8</singleValue><default>7</default></values></AxisDescription></axisDescription><axisDescription>"
       "<AxisDescription><min>no interval yet</min><name>second</name></AxisDescription></axisDescription>"
       "<nullValues><singleValue>-1</singleValue><interval><min>-9</min><max>-5</max></interval></nullValues>"
       "<nullValues><interval><res>2</res></interval><singleValue>-2</singleValue></nullValues></RangeSet></rangeSet>",
       "\nlonlat:\nrange: description='d' label='l' name='n' nulls=['-1' '-2']"
       "\nnull: min='-9' max='-5'\nnull: res='2'"
       "\naxis: name='an' label='al' description='ad' default='7' values=['7' '8']"
       "\ninterval: min='1' max='2' res='.5'\ninterval: min='3'"
       "\naxis: name='second'\ncrs:"},
      {"range sets and axes count only as spelled",
       "<lonLatEnvelope/><rangeset><name>n</name></rangeset><RangeSet><name>m</name><axisdescription><label>l</label></"
       "axisdescription>"
       "</RangeSet>",
       "\nlonlat:\nrange: label='l' name='m'\ncrs:"},
      {"lists of reference systems, formats and interpolations",
       "<supportedCRSs><requestResponseCRSs>EPSG:4326 EPSG:32633\n</requestResponseCRSs><requestCRSs>A, B</requestCRSs>"
       "<responseCRSs>C ,D</responseCRSs><nativeCRSs> E </nativeCRSs><requestCRSs>F&#44;G</requestCRSs>"
       "<responseCRSs/></supportedCRSs><supportedFormats nativeFormat='GeoTIFF'><formats>GeoTIFF PNG</formats>"
       "<formats>GML</formats></supportedFormats><supportedInterpolations default='nearest neighbor'>"
       "<interpolationMethod>nearest neighbor</interpolationMethod><interpolationMethod>bilinear</interpolationMethod>"
       "</supportedInterpolations>",
       "\nlonlat:\nrange:\ncrs: both=['EPSG:4326' 'EPSG:32633'] request=['A' 'B' 'F' 'G'] response=['C' '(absent)'] "
       "native=[' E'] formats=['GeoTIFF' 'PNG' 'GML'] format='GeoTIFF' methods=['nearest neighbor' 'bilinear'] "
       "method='nearest neighbor'"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(readDescription(description("<CoverageOffering>" + c.body + "</CoverageOffering>")), "");
    EXPECT_EQ(describe(wcs.Offerings()), std::string("\noffering: index='0' version='1.0.0'") + c.offerings);
    EXPECT_EQ(readDescription(description(c.body)), "") << "records that no element made";
    EXPECT_EQ(wcs.OfferingCount(), 0);
  }
}

TEST_F(Wcs, OfferingsShareNothing) {
  const std::string parts =
      "<spatialDomain><Grid><axisName>x</axisName></Grid></spatialDomain><RangeSet><nullValues>"
      "<interval><min>1</min></interval></nullValues><AxisDescription><singleValue>1</singleValue>"
      "</AxisDescription></RangeSet><supportedFormats><formats>F</formats></supportedFormats>";
  const std::string offering = "<CoverageOffering>" + parts + "</CoverageOffering>";
  EXPECT_EQ(readDescription("<CoverageDescription version='1.0.0' updateSequence='9'>" + offering + offering +
                            "</CoverageDescription>"),
            "");
  const std::string dump = "\nlonlat:\ngrid: rectified='No' axes=['x']\nrange:\nnull: min='1'\naxis: values=['1']"
                           "\ncrs: formats=['F']";
  EXPECT_EQ(describe(wcs.Offerings()), "\noffering: index='0' version='1.0.0' update='9'" + dump +
                                           "\noffering: index='1' version='1.0.0' update='9'" + dump);
}

TEST_F(Wcs, FailuresNameTheirCause) {
  const std::string brief = "<ContentMetadata><CoverageOfferingBrief/></ContentMetadata>";
  const std::string serviceReport = "Error: Remote OGC server returned a service exception: ( Code= c  Locator= l "
                                    "Service Exception Text= text).";
  const struct {
    std::string document;
    std::string message;
  } cases[] = {
      {"<ServiceExceptionReport><ServiceException code='c' "
       "locator='l'>text</ServiceException></ServiceExceptionReport>",
       serviceReport},
      {"<o:ExceptionReport xmlns:o='u'><o:Exception exceptionCode='c' locator='l'><o:ExceptionText>text"
       "</o:ExceptionText></o:Exception></o:ExceptionReport>",
       "Error: Remote OGC server returned a exception report: ( Code= c Exception Text= text)."},
      {"<ServiceExceptionReport><x/></ServiceExceptionReport>", ""},
      {"<%s/>", "Error: The WCS_Capabilities Version number attribute is missing.."},
      {"<%s version='1.0.1'/>", "Error: OGC WCS version number (1.0.1) is not supported. This WCS Client supports OGC "
                                "WCS version 1.0.0.."},
  };
  for (const auto& c : cases) {
    for (const bool isCapabilities : {true, false}) {
      std::string document = c.document;
      if (const std::size_t at = document.find("%s"); at != std::string::npos) {
        document.replace(at, 2, isCapabilities ? "WCS_Capabilities" : "CoverageDescription");
      }
      SCOPED_TRACE(document);
      EXPECT_EQ(isCapabilities ? readCapabilities(document) : readDescription(document), c.message);
    }
  }
  EXPECT_EQ(readCapabilities(capabilities(brief)), "") << "a report must not poison the next request";
  EXPECT_NE(readCapabilities(capabilities(brief) + "<"), "");
  EXPECT_EQ(wcs.BriefCount(), 1) << "what was read stays";
  EXPECT_EQ(wcs.OgcWcsGetNextCOB(), nullptr);
  const char* missing = "/nonexistent/file.xml";
  EXPECT_EQ(failure([&] { wcs.OgcWcsGetCap(missing, nullptr, 0, 0); }),
            "Error: File does not exist.  file: (/nonexistent/file.xml).");
  EXPECT_EQ(wcs.BriefCount(), 0);
}

} // namespace

// How WMS capabilities are read, before layers inherit.
#include "wms_client.h"

namespace {

TEST_F(Wms, LayersHoldWhatStandsInTheDocument) {
  const std::string url = "<OnlineResource x:href='u'/>";
  const struct {
    std::string body;
    std::string layers;
  } cases[] = {
      // order, parents and levels
      {"<Layer/><Layer/>", "0 -1 1 / 1 -1 1"},
      {"<Layer><Layer/><Layer><Layer/></Layer></Layer><Layer><Layer/></Layer>",
       "0 -1 1 / 1 0 2 / 2 0 2 / 3 2 3 / 4 -1 1 / 5 4 2"},
      {"<Layer><Name>a</Name><Layer><Name>b</Name></Layer><Name>c</Name></Layer><Title>t</Title>",
       "0 -1 1 name=a / 1 0 2 name=b c title=t"},
      {"<x:LAYER QUERYABLE='1' x:Opaque=''><x:nAmE>n</x:nAmE><TITLE>t</TITLE></x:LAYER>",
       "0 -1 1 name=n opaque!- queryable!1 title=t"},
      {"<Layer queryable='0' cascaded='2' opaque='1' noSubsets='1' fixedWidth='30' fixedHeight='40'/>",
       "0 -1 1 cascaded!2 fixedheight!40 fixedwidth!30 nosubsets!1 opaque!1 queryable!0"},
      // runs of text
      {"<Layer><Title>R&amp;D <b>x</b> lost</Title><Abstract></Abstract></Layer>", "0 -1 1 title=R &D  x"},
      {"<Layer><SRS>A  B,C , D</SRS><SRS/><SRS>E&amp;F G</SRS></Layer>", "0 -1 1 srs 3[A][B][C][-][E &F][G]"},
      {"<Layer><CRS>A B</CRS><x/><CRS>C&amp;D</CRS></Layer>", "0 -1 1 crs 2[A B][C &D]"},
      {"<Layer><KeywordList><Keyword>a</Keyword><Keyword/></KeywordList><Keyword>no</Keyword>"
       "<KeywordList><Keyword>b</Keyword></KeywordList></Layer>",
       "0 -1 1 keyword 3[a][-][b]"},
      // the lat-lon box stays open until another grouping element
      {"<Layer><LatLonBoundingBox minx='1' miny='2' maxx='3' maxy='4'/><ScaleHint min='5' max='6' minx='9'/>"
       "<SRS>A</SRS><z minx='8'/></Layer>",
       "0 -1 1 max!6 min!5 latlon 1[1 9|2|3|4] srs 1[A]"},
      {"<Layer><LatLonBoundingBox minx='1'/><LatLongBoundingBox maxy='2'/><z minx='8'/><LatLonBoundingBox minx='3'/>"
       "</Layer><z maxx='9'/>",
       "0 -1 1 latlon 2[1 3|-|-|2]"},
      {"<Layer><EX_GeographicBoundingBox><westBoundLongitude>1</westBoundLongitude><eastBoundLongitude>2"
       "</eastBoundLongitude><southBoundLatitude>3</southBoundLatitude><northBoundLatitude>4</northBoundLatitude>"
       "</EX_GeographicBoundingBox><westBoundLongitude>5</westBoundLongitude></Layer>",
       "0 -1 1 geo 1[1|2|3|4]"},
      {"<Layer><BoundingBox CRS='c' minx='1' miny='2' maxx='3' maxy='4' resx='5' resy='6'/>"
       "<BoundingBox SRS='s' x:maxy='7' maxy='8'/></Layer>",
       "0 -1 1 bbox 2[c|-|1|2|3|4|5|6][-|s|-|-|-|7]"},
      {"<Layer><MinScaleDenominator/><MaxScaleDenominator>9</MaxScaleDenominator></Layer>", "0 -1 1 max!9 min!-"},
      {"<Layer><Dimension name='time' units='u' unitSymbol='s' default='d' multipleValues='1' nearestValue='0' "
       "current='1'>v</Dimension><Extent name='time' default='d' nearestValue='0'>e</Extent><Dimension name='z'/>"
       "<Extent>f</Extent></Layer>",
       "0 -1 1 dimension 2[time|u|s|d|1|0|1|v][z] extent 2[time|d|0|e][-|-|-|f]"},
      // names and titles inside grouping elements
      {"<Layer><Attribution><Title>t</Title><Name>n</Name>" + url +
           "<LogoURL width='1' height='2'><Format>f</Format><OnlineResource href='l'/></LogoURL>"
           "<Format>no</Format></Attribution><Title>own</Title></Layer>",
       "0 -1 1 name=n title=own attribution 1[t|u|f|l|1|2]"},
      {"<Layer><AuthorityURL name='a'>" + url + "</AuthorityURL><AuthorityURL name='b'/><Identifier authority='a'>i" +
           "</Identifier>" + url + "</Layer>",
       "0 -1 1 authority 2[a|u][b] identifier 1[i|a]"},
      {"<Layer><MetadataURL type='t'><Format>f</Format>" + url + "<Title>own</Title></MetadataURL><DataURL>" + url +
           "<Format>g</Format></DataURL><FeatureListURL><Format>h</Format></FeatureListURL><FeatureListURL>" + url +
           "</FeatureListURL><Format>no</Format></Layer>",
       "0 -1 1 title=own data 1[g|u] features 2[h][-|u] metadata 1[t|f|u]"},
      {"<Layer><Style>" + url + "<Name>s</Name><Title>t</Title><Abstract>a</Abstract><LegendURL width='1' height='2'>" +
           "<Format>lf</Format>" + url + "</LegendURL><StyleSheetURL><Format>sf</Format>" + url +
           "</StyleSheetURL><StyleURL><Format>uf</Format>" + url + "</StyleURL><Format>no</Format></Style>" +
           "<Style><Name>r</Name></Style><Name>own</Name></Layer>",
       "0 -1 1 name=own style 2[s|t|a|lf|u|1|2|sf|u|uf|u][r]"},
      // formats belong to all layers that follow
      {"<GetMap><Format>lost</Format></GetMap><GetMap><Format>p</Format><x><Format>j</Format></x></GetMap>"
       "<GetFeatureInfo><Format>t</Format></GetFeatureInfo><Exception><Format>no</Format></Exception>"
       "<Layer><Layer/></Layer>",
       "0 -1 1 feature 1[t] map 2[p][j] / 1 0 2 feature 1[t] map 2[p][j]"},
      // out of place
      {"<Name>n</Name><Keyword>k</Keyword><BoundingBox minx='1'/><Style><Name>s</Name></Style><SRS>A</SRS><Layer/>",
       "0 -1 1"},
      {"<Service><Layer/></Service><Title>t</Title>", "0 -1 1 title=t"},
      {"<Layer><Service><Name>s</Name><KeywordList><Keyword>k</Keyword></KeywordList></Service><Name>lost</Name></"
       "Layer>",
       "0 -1 1"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(read(c.body, 1), "") << c.body;
    EXPECT_EQ(shown(layersOf(wms)), c.layers) << c.body;
  }
}

TEST_F(Wms, ServiceSectionIsRead) {
  using S = xWmsService_t;
  const struct {
    const char* element;
    const char* S::*field;
  } fields[] = {{"Name", &S::szName},
                {"Title", &S::szTitle},
                {"Abstract", &S::szAbstract},
                {"ContactPerson", &S::szContactPerson},
                {"ContactOrganization", &S::szContactOrganization},
                {"ContactPosition", &S::szContactPosition},
                {"AddressType", &S::szAddressType},
                {"Address", &S::szAddress},
                {"City", &S::szCity},
                {"StateOrProvince", &S::szStateOrProvince},
                {"PostCode", &S::szPostCode},
                {"Country", &S::szCountry},
                {"ContactVoiceTelephone", &S::szVoiceTelephone},
                {"ContactFacsimileTelephone", &S::szFacsimileTelephone},
                {"ContactElectronicMailAddress", &S::szElectronicMailAddress},
                {"Fees", &S::szFees},
                {"AccessConstraints", &S::szAccessConstraints},
                {"LayerLimit", &S::szLayerLimit},
                {"MaxWidth", &S::szMaxWidth},
                {"MaxHeight", &S::szMaxHeight}};
  std::string body = "<Service><OnlineResource x:href='h'>t</OnlineResource><KeywordList><Keyword>a</Keyword>"
                     "<Keyword>b</Keyword></KeywordList><Somewhere>";
  for (const auto& field : fields) {
    const std::string name = field.element;
    body += "<" + name + ">the " + name + "</" + name + ">";
  }
  EXPECT_EQ(read(body + "</Somewhere></Service><Name>outside</Name><Keyword>c</Keyword>"), "");
  ASSERT_NE(wms.Service(), nullptr);
  for (const auto& field : fields) EXPECT_EQ(std::string("the ") + field.element, wms.Service()->*field.field);
  EXPECT_STREQ(wms.Service()->szOnline, "h t");
  EXPECT_EQ(textsOf(wms.Service()->nKeyword, wms.Service()->pKeyword).entries, (std::vector<Record>{{"a"}, {"b"}}));
  EXPECT_EQ(wms.Service()->nKeyword, 2);

  EXPECT_EQ(read("<Service/>"), "");
  EXPECT_EQ(wms.Service(), nullptr);
  EXPECT_EQ(read("<Service><x/></Service>"), "");
  EXPECT_NE(wms.Service(), nullptr);
}

TEST_F(Wms, RootsAreChecked) {
  const std::string missing = "Error: The WMS Capabilities Version number attribute is missing.";
  const auto unsupported = [](const std::string& version) {
    return "Error: OGC WMS version number (" + version +
           ") is not supported. This WMS Client supports OGC WMS version 1.1.0, 1.1.1, and 1.3.0.";
  };
  const struct {
    std::string document;
    std::string failure;
    std::string update = "-";
  } cases[] = {
      {"<WMT_MS_Capabilities version='1.1.0'><Layer/></WMT_MS_Capabilities>", ""},
      {"<x:wms_capabilities xmlns:x='u' Version='1.3.0' updateSequence='7'><Layer/></x:wms_capabilities>", "", "7"},
      {"<WMS_Capabilities version='1.3.0'><WMT_MS_Capabilities version='9'/><Layer/></WMS_Capabilities>", ""},
      {"<WMS_Capabilities><Layer/></WMS_Capabilities>", missing},
      {"<WMS_Capabilities version=''/>", missing},
      {"<WMS_Capabilities version='1.0.0'><Layer/></WMS_Capabilities>", unsupported("1.0.0")},
      {"<ServiceExceptionReport><ServiceException code='c' locator='l'>no</ServiceException></ServiceExceptionReport>",
       "Error: Remote OGC server returned a service exception: ( Code= c  Locator= l Service Exception Text= no)"},
      {"<ExceptionReport><Exception exceptionCode='c'><ExceptionText>no</ExceptionText></Exception></ExceptionReport>",
       "Error: Remote OGC server returned a exception report: ( Code= c Exception Text= no)"},
  };
  for (const auto& c : cases) {
    fakeBridge() = {};
    EXPECT_EQ(readDocument(c.document), c.failure.empty() ? "" : c.failure + '.') << c.document;
    if (!c.failure.empty()) {
      EXPECT_EQ(std::ranges::count(fakeBridge().status, c.failure), 1) << c.document;
      EXPECT_EQ(wms.NumLayers(), 0) << c.document;
    } else {
      ASSERT_EQ(wms.NumLayers(), 1) << c.document;
      EXPECT_EQ(layersOf(wms)[0].values.at("update").text.value_or("-"), c.update);
      EXPECT_NE(c.document.find(wms.OgcWmsGetLayer(0)->szVersion), std::string::npos);
    }
  }
}

std::string repeat(const std::string& text, int times) {
  std::string all;
  while (times-- > 0) all += text;
  return all;
}

TEST_F(Wms, CacheGrowsBeforeItIsFull) {
  const struct {
    int layers;
    int capacity;
  } cases[] = {{1999, 2000}, {2000, 6000}, {5999, 6000}, {6000, 10000}};
  for (const auto& c : cases) {
    COgcWms client;
    EXPECT_EQ(client.OgcWmsInit(), 1);
    EXPECT_EQ(client.LayerCacheCapacity(), 2000);
    client.OgcWmsSetCapFN(path("cap").c_str());
    const std::string file =
        write("<WMS_Capabilities version='1.3.0'>" + repeat("<Layer/>", c.layers) + "</WMS_Capabilities>");
    client.OgcWmsGetCap(file.c_str(), nullptr, 0, 0, 0);
    EXPECT_EQ(client.NumLayers(), c.layers);
    EXPECT_EQ(client.LayerCacheCapacity(), c.capacity);
    for (int i = 0; i < c.layers; ++i) ASSERT_EQ(client.OgcWmsGetLayer(i)->iIndex, i);
    client.OgcWmsCleanupCap();
    EXPECT_EQ(client.NumLayers(), 0);
    EXPECT_EQ(client.LayerCacheCapacity(), c.capacity);
  }
}

/// Comparing lists name by name would take minutes here.
TEST_F(Wms, DeepAndWideDocumentsAreRead) {
  constexpr int depth = 1000;
  EXPECT_EQ(read(repeat("<Layer><SRS>A B</SRS><Style/><Dimension/><AuthorityURL/>", depth) + repeat("</Layer>", depth)),
            "");
  const xWmsLayer_t* last = wms.OgcWmsGetLayer(depth - 1);
  EXPECT_EQ(last->iParent, depth - 2);
  EXPECT_EQ(last->iLevel, depth);
  EXPECT_EQ(last->nSrs, 1);
  EXPECT_EQ(last->nStyle + last->nDimension + last->nAuthorityUrl, 3 * depth);
  EXPECT_NE(wms.OgcWmsGetLyrStyle(depth - 1, depth - 1), nullptr);
  EXPECT_EQ(wms.OgcWmsGetLyrStyle(depth - 1, depth), nullptr);

  constexpr int layers = 3000;
  constexpr int names = 2000;
  std::string body = "<Layer>";
  for (int i = 0; i < names; ++i) body += "<SRS>EPSG:" + std::to_string(i) + "</SRS>";
  body += repeat("<Layer><SRS>epsg:7</SRS><SRS>own</SRS></Layer>", layers) + "</Layer>";
  EXPECT_EQ(read(body), "");
  COgcWmsNames::Reader reader(wms.SrsNames());
  for (const int i : {1, layers}) {
    const xWmsLayer_t* layer = wms.OgcWmsGetLayer(i);
    EXPECT_EQ(layer->nSrs, names + 1);
    EXPECT_EQ(namesOf(0, reader, *layer).entries.size(), static_cast<std::size_t>(names + 1));
  }
}

} // namespace

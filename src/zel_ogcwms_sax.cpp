#include "zel_ogcwms_sax.h"

#include <strings.h>
#include <type_traits>

namespace ogc {

namespace {

using xml::Attribute;
using xml::Place;
using xml::VersionRule;

constexpr const char* supportedVersions[] = {"1.1.0", "1.1.1", "1.3.0"};
constexpr VersionRule wmsVersions{
    supportedVersions, "Error: The WMS Capabilities Version number attribute is missing.",
    "Error: OGC WMS version number (%s) is not supported. This WMS Client supports OGC WMS version 1.1.0, 1.1.1, and "
    "1.3.0."};

enum Section : int { ROOT = 1001, REQUEST, SERVICE, LAYER };

enum Group : int {
  NONE,
  GET_MAP,
  GET_FEATURE_INFO,
  LAYER_ITSELF,
  KEYWORDS,
  SRS,
  CRS,
  LAT_LON,
  EX_GEO,
  BBOX,
  EXTENT,
  DIMENSION,
  ATTRIBUTION,
  AUTHORITY_URL,
  IDENTIFIER,
  METADATA_URL,
  DATA_URL,
  FEATURE_URL,
  STYLE
};

enum Part : int { LOGO = 1, LEGEND, SHEET, STYLE_URL };

using H = COgcWmsSaxHelper;
using Attributes = xercesc::Attributes;
using Grammar = xml::Grammar<H>;
using Layer = xWmsLayer_t;
using Current = H::Current;

struct Flag {
  const char* name; ///< lower case
  int Layer::*flag;
  const char* Layer::*text;
};

constexpr Flag layerFlags[] = {{"queryable", &Layer::bQueryable, &Layer::szQueryable},
                               {"cascaded", &Layer::bCascaded, &Layer::szCascaded},
                               {"opaque", &Layer::bOpaque, &Layer::szOpaque},
                               {"nosubsets", &Layer::bNoSubsets, &Layer::szNoSubsets},
                               {"fixedwidth", &Layer::bFixedWidth, &Layer::szFixedWidth},
                               {"fixedheight", &Layer::bFixedHeight, &Layer::szFixedHeight}};
constexpr Flag scaleFlags[] = {{"min", &Layer::bMinScale, &Layer::szMinScale},
                               {"max", &Layer::bMaxScale, &Layer::szMaxScale}};
constexpr Attribute<xWmsGeoBox_t> latLonAttributes[] = {{"minx", &xWmsGeoBox_t::minX},
                                                        {"miny", &xWmsGeoBox_t::minY},
                                                        {"maxx", &xWmsGeoBox_t::maxX},
                                                        {"maxy", &xWmsGeoBox_t::maxY}};
constexpr Attribute<xWmsBBox_t> bboxAttributes[] = {
    {"crs", &xWmsBBox_t::crs},   {"srs", &xWmsBBox_t::srs},   {"minx", &xWmsBBox_t::minX}, {"miny", &xWmsBBox_t::minY},
    {"maxx", &xWmsBBox_t::maxX}, {"maxy", &xWmsBBox_t::maxY}, {"resx", &xWmsBBox_t::resX}, {"resy", &xWmsBBox_t::resY}};
constexpr Attribute<xWmsExtent_t> extentAttributes[] = {{"name", &xWmsExtent_t::name},
                                                        {"default", &xWmsExtent_t::defaultValue},
                                                        {"nearestvalue", &xWmsExtent_t::nearestValue}};
constexpr Attribute<xWmsDimension_t> dimensionAttributes[] = {{"name", &xWmsDimension_t::name},
                                                              {"units", &xWmsDimension_t::units},
                                                              {"unitsymbol", &xWmsDimension_t::unitSymbol},
                                                              {"default", &xWmsDimension_t::defaultValue},
                                                              {"multiplevalues", &xWmsDimension_t::multipleValues},
                                                              {"nearestvalue", &xWmsDimension_t::nearestValue},
                                                              {"current", &xWmsDimension_t::current}};
constexpr Attribute<xWmsAuthorityUrl_t> authorityAttributes[] = {{"name", &xWmsAuthorityUrl_t::name}};
constexpr Attribute<xWmsIdentifier_t> identifierAttributes[] = {{"authority", &xWmsIdentifier_t::authority}};
constexpr Attribute<xWmsMetadataUrl_t> metadataAttributes[] = {{"type", &xWmsMetadataUrl_t::type}};
constexpr Attribute<xWmsAttribution_t> logoAttributes[] = {{"width", &xWmsAttribution_t::logoWidth},
                                                           {"height", &xWmsAttribution_t::logoHeight}};
constexpr Attribute<xWmsStyle_t> legendAttributes[] = {{"width", &xWmsStyle_t::legendWidth},
                                                       {"height", &xWmsStyle_t::legendHeight}};

// Records of the current layer: the member of Current that points to the one being filled.
template <auto Record>
using Of = std::remove_pointer_t<std::remove_reference_t<decltype(std::declval<Current&>().*Record)>>;

void version(H& h, const Attributes& attrs) {
  if (h.sectionIsNew()) h.checkVersion(attrs);
}
template <auto Formats>
void openFormats(H& h, const Attributes&) {
  h.*Formats = {};
}
template <auto Formats>
void format(H& h, const Attributes&) {
  auto& list = h.*Formats;
  ++list.count;
  h.appendText(&list.head, &list.tail);
}
void openService(H& h, const Attributes&) { h.openService(); }
void openLayer(H& h, const Attributes& attrs) { h.openLayer(attrs); }
void closeLayer(H& h) { h.closeLayer(); }
void closeSection(H& h) { h.closeSection(); }

template <auto Field>
void service(H& h, const Attributes&) {
  h.openService();
  h.collect(&(h.service->*Field));
}
template <auto Field>
void layer(H& h, const Attributes&) {
  h.collect(&(h.layer->*Field));
}
template <auto Field, auto Flag>
void scale(H& h, const Attributes& attrs) {
  h.layer->*Flag = 1;
  layer<Field>(h, attrs);
}
/// The text is an entry of a list of texts of the layer.
template <auto Count, auto List, auto Tail>
void entry(H& h, const Attributes&) {
  ++(h.layer->*Count);
  h.appendText(&(h.layer->*List), &(h.current.*Tail));
}
/// The text names a reference system of the layer. Layers often list the same ones as the layer before.
template <auto Count, auto List, auto Tail>
void system(H& h, const Attributes& attrs) {
  entry<Count, List, Tail>(h, attrs);
  if (h.layer->*Count == 1) h.expectAsBefore(h.layer->*List);
}
template <auto Count, auto List, auto Tail>
void systems(H& h, const Attributes& attrs) {
  system<Count, List, Tail>(h, attrs);
  h.collectNames();
}
/// The record of the layer that exists once.
template <auto Count, auto Record, auto Which>
void count(H& h, const Attributes&) {
  h.countRecord(h.layer->*Count, h.layer->*Record);
  h.current.*Which = h.layer->*Record;
}
/// A record of a list of the layer, with its attributes.
template <auto Count, auto List, auto Which>
void add(H& h, const Attributes&) {
  h.append(&(h.layer->*List), &(h.current.*Which), &Of<Which>::next);
  ++(h.layer->*Count);
}
template <auto Which, auto Field>
void text(H& h, const Attributes&) {
  if (h.current.*Which != nullptr) h.collect(&((h.current.*Which)->*Field));
}
template <auto Which, const auto& Rows>
void attributes(H& h, const Attributes& attrs) {
  if (h.current.*Which != nullptr) h.store(Rows, *(h.current.*Which), attrs);
}
template <auto Which, auto Field>
void online(H& h, const Attributes& attrs) {
  static constexpr Attribute<Of<Which>> href[] = {{"href", Field}};
  attributes<Which, href>(h, attrs);
}
template <auto... acts>
constexpr Grammar::Act all = xml::Acts<H>::all<acts...>;

const Grammar& grammar() {
  static const Grammar table{
      {.name = "WMS_Capabilities", .in = {}, .act = version, .opens = {ROOT, 0, 0}, .end = closeSection},
      {.name = "WMT_MS_Capabilities", .in = {}, .act = version, .opens = {ROOT, 0, 0}, .end = closeSection},

      {.name = "GetMap",
       .in = {},
       .act = openFormats<&H::mapFormats>,
       .opens = {REQUEST, GET_MAP, 0},
       .end = closeSection},
      {"Format", {Place::any, GET_MAP}, format<&H::mapFormats>},
      {.name = "GetFeatureInfo",
       .in = {},
       .act = openFormats<&H::featureFormats>,
       .opens = {REQUEST, GET_FEATURE_INFO, 0},
       .end = closeSection},
      {"Format", {Place::any, GET_FEATURE_INFO}, format<&H::featureFormats>},

      {.name = "Layer", .in = {}, .act = openLayer, .opens = {LAYER, LAYER_ITSELF, 0}, .end = closeLayer},
      {"Name", {LAYER}, layer<&Layer::szName>},
      {"Title", {LAYER}, layer<&Layer::szTitle>},
      {"Abstract", {LAYER}, layer<&Layer::szAbstract>},
      {"MinScaleDenominator", {LAYER}, scale<&Layer::szMinScale, &Layer::bMinScale>},
      {"MaxScaleDenominator", {LAYER}, scale<&Layer::szMaxScale, &Layer::bMaxScale>},
      {"ScaleHint", {LAYER}, [](H& h, const Attributes& attrs) { h.store(scaleFlags, *h.layer, attrs); }},

      {"KeywordList", {LAYER}, nullptr, {0, KEYWORDS, 0}},
      {"Keyword", {Place::any, KEYWORDS}, entry<&Layer::nKeyword, &Layer::pKeyword, &Current::keyword>},
      {"CRS", {LAYER}, system<&Layer::nCrs, &Layer::pCrs, &Current::crs>, {0, CRS, 0}},
      {"SRS", {LAYER}, systems<&Layer::nSrs, &Layer::pSrs, &Current::srs>, {0, SRS, 0}, nullptr},

      // The box stays open for the attributes of other elements until another group begins.
      {"LatLonBoundingBox",
       {LAYER},
       count<&Layer::nLatLonBBox, &Layer::pLatLonBBox, &Current::latLon>,
       {0, LAT_LON, 0},
       "LatLongBoundingBox"},
      {"*", {Place::any, LAT_LON}, attributes<&Current::latLon, latLonAttributes>},
      {"EX_GeographicBoundingBox",
       {LAYER},
       count<&Layer::nExGeoBBox, &Layer::pExGeoBBox, &Current::geo>,
       {0, EX_GEO, 0}},
      {"westBoundLongitude", {Place::any, EX_GEO}, text<&Current::geo, &xWmsGeoBox_t::minX>},
      {"eastBoundLongitude", {Place::any, EX_GEO}, text<&Current::geo, &xWmsGeoBox_t::minY>},
      {"southBoundLatitude", {Place::any, EX_GEO}, text<&Current::geo, &xWmsGeoBox_t::maxX>},
      {"northBoundLatitude", {Place::any, EX_GEO}, text<&Current::geo, &xWmsGeoBox_t::maxY>},
      {"BoundingBox",
       {LAYER},
       all<add<&Layer::nBBox, &Layer::pBBox, &Current::bbox>, attributes<&Current::bbox, bboxAttributes>>,
       {0, BBOX, 0}},
      {"Extent",
       {LAYER},
       all<add<&Layer::nExtent, &Layer::pExtent, &Current::extent>, attributes<&Current::extent, extentAttributes>,
           text<&Current::extent, &xWmsExtent_t::value>>,
       {0, EXTENT, 0}},
      {"Dimension",
       {LAYER},
       all<add<&Layer::nDimension, &Layer::pDimension, &Current::dimension>,
           attributes<&Current::dimension, dimensionAttributes>, text<&Current::dimension, &xWmsDimension_t::value>>,
       {0, DIMENSION, 0}},

      {"Attribution",
       {LAYER},
       count<&Layer::nAttribution, &Layer::pAttribution, &Current::attribution>,
       {0, ATTRIBUTION, 0}},
      {"Title", {Place::any, ATTRIBUTION}, text<&Current::attribution, &xWmsAttribution_t::title>},
      {"OnlineResource",
       {Place::any, ATTRIBUTION, 0},
       online<&Current::attribution, &xWmsAttribution_t::onlineResource>},
      {"LogoURL", {Place::any, ATTRIBUTION}, attributes<&Current::attribution, logoAttributes>, {0, 0, LOGO}},
      {"Format", {Place::any, ATTRIBUTION, LOGO}, text<&Current::attribution, &xWmsAttribution_t::logoFormat>},
      {"OnlineResource",
       {Place::any, ATTRIBUTION, LOGO},
       online<&Current::attribution, &xWmsAttribution_t::logoOnlineResource>},

      {"AuthorityURL",
       {LAYER},
       all<add<&Layer::nAuthorityUrl, &Layer::pAuthorityUrl, &Current::authorityUrl>,
           attributes<&Current::authorityUrl, authorityAttributes>>,
       {0, AUTHORITY_URL, 0}},
      {"OnlineResource",
       {Place::any, AUTHORITY_URL},
       online<&Current::authorityUrl, &xWmsAuthorityUrl_t::onlineResource>},
      {"Identifier",
       {LAYER},
       all<add<&Layer::nIdentifier, &Layer::pIdentifier, &Current::identifier>,
           attributes<&Current::identifier, identifierAttributes>,
           text<&Current::identifier, &xWmsIdentifier_t::value>>,
       {0, IDENTIFIER, 0}},
      {"MetadataURL",
       {LAYER},
       all<add<&Layer::nMetadataUrl, &Layer::pMetadataUrl, &Current::metadataUrl>,
           attributes<&Current::metadataUrl, metadataAttributes>>,
       {0, METADATA_URL, 0}},
      {"Format", {Place::any, METADATA_URL}, text<&Current::metadataUrl, &xWmsMetadataUrl_t::format>},
      {"OnlineResource", {Place::any, METADATA_URL}, online<&Current::metadataUrl, &xWmsMetadataUrl_t::onlineResource>},
      {"DataURL", {LAYER}, add<&Layer::nDataUrl, &Layer::pDataUrl, &Current::dataUrl>, {0, DATA_URL, 0}},
      {"Format", {Place::any, DATA_URL}, text<&Current::dataUrl, &xWmsOnlineRes_t::format>},
      {"OnlineResource", {Place::any, DATA_URL}, online<&Current::dataUrl, &xWmsOnlineRes_t::onlineResource>},
      {"FeatureListURL",
       {LAYER},
       add<&Layer::nFeatureUrl, &Layer::pFeatureUrl, &Current::featureUrl>,
       {0, FEATURE_URL, 0}},
      {"Format", {Place::any, FEATURE_URL}, text<&Current::featureUrl, &xWmsOnlineRes_t::format>},
      {"OnlineResource", {Place::any, FEATURE_URL}, online<&Current::featureUrl, &xWmsOnlineRes_t::onlineResource>},

      {"Style", {LAYER}, add<&Layer::nStyle, &Layer::pStyle, &Current::style>, {0, STYLE, 0}},
      {"Name", {Place::any, STYLE}, text<&Current::style, &xWmsStyle_t::name>},
      {"Title", {Place::any, STYLE}, text<&Current::style, &xWmsStyle_t::title>},
      {"Abstract", {Place::any, STYLE}, text<&Current::style, &xWmsStyle_t::abstract>},
      {"LegendURL", {Place::any, STYLE}, attributes<&Current::style, legendAttributes>, {0, 0, LEGEND}},
      {"Format", {Place::any, STYLE, LEGEND}, text<&Current::style, &xWmsStyle_t::legendFormat>},
      {"OnlineResource", {Place::any, STYLE, LEGEND}, online<&Current::style, &xWmsStyle_t::legendOnlineResource>},
      {"StyleSheetURL", {Place::any, STYLE}, nullptr, {0, 0, SHEET}},
      {"Format", {Place::any, STYLE, SHEET}, text<&Current::style, &xWmsStyle_t::sheetFormat>},
      {"OnlineResource", {Place::any, STYLE, SHEET}, online<&Current::style, &xWmsStyle_t::sheetOnlineResource>},
      {"StyleURL", {Place::any, STYLE}, nullptr, {0, 0, STYLE_URL}},
      {"Format", {Place::any, STYLE, STYLE_URL}, text<&Current::style, &xWmsStyle_t::styleFormat>},
      {"OnlineResource", {Place::any, STYLE, STYLE_URL}, online<&Current::style, &xWmsStyle_t::styleOnlineResource>},

      {"Service", {}, nullptr, {SERVICE, 0, 0}},
      {"*", {SERVICE}, openService},
      {"Name", {SERVICE}, service<&xWmsService_t::name>},
      {"Title", {SERVICE}, service<&xWmsService_t::title>},
      {"Abstract", {SERVICE}, service<&xWmsService_t::abstract>},
      {"Keyword",
       {SERVICE},
       [](H& h, const Attributes&) {
         h.openService();
         ++h.service->keywordCount;
         h.appendText(&h.service->keywords, &h.serviceKeyword);
       }},
      {"OnlineResource",
       {SERVICE},
       [](H& h, const Attributes& attrs) {
         static constexpr Attribute<xWmsService_t> href[] = {{"href", &xWmsService_t::onlineResource}};
         service<&xWmsService_t::onlineResource>(h, attrs);
         h.store(href, *h.service, attrs);
       }},
      {"ContactPerson", {SERVICE}, service<&xWmsService_t::contactPerson>},
      {"ContactOrganization", {SERVICE}, service<&xWmsService_t::contactOrganization>},
      {"ContactPosition", {SERVICE}, service<&xWmsService_t::contactPosition>},
      {"AddressType", {SERVICE}, service<&xWmsService_t::addressType>},
      {"Address", {SERVICE}, service<&xWmsService_t::address>},
      {"City", {SERVICE}, service<&xWmsService_t::city>},
      {"StateOrProvince", {SERVICE}, service<&xWmsService_t::stateOrProvince>},
      {"PostCode", {SERVICE}, service<&xWmsService_t::postCode>},
      {"Country", {SERVICE}, service<&xWmsService_t::country>},
      {"ContactVoiceTelephone", {SERVICE}, service<&xWmsService_t::voiceTelephone>},
      {"ContactFacsimileTelephone", {SERVICE}, service<&xWmsService_t::facsimileTelephone>},
      {"ContactElectronicMailAddress", {SERVICE}, service<&xWmsService_t::electronicMailAddress>},
      {"Fees", {SERVICE}, service<&xWmsService_t::fees>},
      {"AccessConstraints", {SERVICE}, service<&xWmsService_t::accessConstraints>},
      {"LayerLimit", {SERVICE}, service<&xWmsService_t::layerLimit>},
      {"MaxWidth", {SERVICE}, service<&xWmsService_t::maxWidth>},
      {"MaxHeight", {SERVICE}, service<&xWmsService_t::maxHeight>},
  };
  return table;
}

} // namespace

} // namespace ogc

COgcWmsSaxHelper::COgcWmsSaxHelper(ogc::xml::Reporter& reporter, ogc::WmsCapabilities& document)
    : RuleHandler(reporter, document.arena, ogc::wmsVersions, ogc::grammar()), m_document(document) {}

int COgcWmsSaxHelper::CheckStringNode(const xNodeStr_t* list, const char* s) noexcept {
  if (s == nullptr) return 0;
  for (; list != nullptr; list = list->next) {
    if (list->str != nullptr && strcasecmp(list->str, s) == 0) return 1;
  }
  return 0;
}

int COgcWmsSaxHelper::FindParent(int level) const noexcept {
  return level > 0 && static_cast<std::size_t>(level) <= m_lastOfLevel.size()
             ? m_lastOfLevel[static_cast<std::size_t>(level) - 1]
             : -1;
}

void COgcWmsSaxHelper::openService() {
  if (service == nullptr) service = m_document.pService = m_arena.make<xWmsService_t>();
}

void COgcWmsSaxHelper::openLayer(const xercesc::Attributes& attrs) {
  collect(nullptr);
  current = {};
  const int parent = FindParent(m_layerDepth);
  layer = &m_document.addLayer(parent, ++m_layerDepth);
  m_lastOfLevel.resize(std::max(m_lastOfLevel.size(), static_cast<std::size_t>(m_layerDepth)), -1);
  m_lastOfLevel[static_cast<std::size_t>(m_layerDepth) - 1] = layer->iIndex;
  layer->szVersion = szVersion;
  layer->szUpdateSequence = szUpdateSequence;
  store(ogc::layerFlags, *layer, attrs);
  layer->nMapFormat = mapFormats.count;
  layer->pMapFormat = mapFormats.head;
  layer->nFeatureFormat = featureFormats.count;
  layer->pFeatureFormat = featureFormats.head;
}

void COgcWmsSaxHelper::closeLayer() noexcept {
  --m_layerDepth;
  closeGroup();
}

#include "zel_ogcwms_sax.h"

#include <strings.h>

using namespace ogc;

namespace {

using xml::Attribute;
using xml::VersionRule;

constexpr const char* supportedVersions[] = {"1.1.0", "1.1.1", "1.3.0"};
constexpr VersionRule wmsVersions{
    supportedVersions, "Error: The WMS Capabilities Version number attribute is missing.",
    "Error: OGC WMS version number (%s) is not supported. This WMS Client supports OGC WMS version 1.1.0, 1.1.1, and "
    "1.3.0."};

enum Section : int { inRoot = 1001, inRequest, inService, inLayer };

enum Group : int {
  inNoGroup,
  inGetMap,
  inGetFeatureInfo,
  inLayerItself,
  inKeywords,
  inSrs,
  inCrs,
  inLatLon,
  inExGeo,
  inBBox,
  inExtent,
  inDimension,
  inAttribution,
  inAuthorityUrl,
  inIdentifier,
  inMetadataUrl,
  inDataUrl,
  inFeatureUrl,
  inStyle
};

enum Part : int { inLogo = 1, inLegend, inSheet, inStyleUrl };

using H = COgcWmsSaxHelper;
using Attributes = xercesc::Attributes;
using Grammar = xml::Grammar<H>;
using Layer = xWmsLayer_t;
using Acts = xml::Acts<H>;
constexpr int any = xml::Place::any;

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

void version(H& h, const Attributes& attrs) {
  if (h.sectionIsNew()) h.HandleVersion(attrs);
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
constexpr Grammar::Act service = Acts::all<openService, Acts::text<&H::service, Field>>;
template <auto Field>
constexpr Grammar::Act layer = Acts::text<&H::layer, Field>;
template <auto Field, auto Flag>
void scale(H& h, const Attributes& attrs) {
  h.layer->*Flag = 1;
  layer<Field>(h, attrs);
}
/// The text is an entry of a list of texts of the layer.
template <auto Count, auto List, auto Tail>
void entry(H& h, const Attributes&) {
  ++(h.layer->*Count);
  h.appendText(&(h.layer->*List), &(h.*Tail));
}
/// The text names a reference system of the layer. Layers often list the same ones as the layer before.
template <auto Count, auto List, auto Tail>
void referenceSystem(H& h, const Attributes& attrs) {
  entry<Count, List, Tail>(h, attrs);
  if (h.layer->*Count == 1) h.expectAsBefore(h.layer->*List);
}
template <auto Count, auto List, auto Tail>
void referenceSystems(H& h, const Attributes& attrs) {
  referenceSystem<Count, List, Tail>(h, attrs);
  h.collectNames();
}
/// The record of the layer that exists once.
template <auto Count, auto Record, auto Which>
void count(H& h, const Attributes&) {
  h.addFirstRecord(h.layer->*Count, h.layer->*Record);
  h.*Which = h.layer->*Record;
}
/// A record of a list of the layer, with its attributes.
template <auto Count, auto List, auto Which>
void add(H& h, const Attributes&) {
  h.addRecord(&(h.layer->*List), &(h.*Which), &Acts::Of<Which>::next);
  ++(h.layer->*Count);
}
template <auto Which, auto Field>
void online(H& h, const Attributes& attrs) {
  static constexpr Attribute<Acts::Of<Which>> href[] = {{"href", Field}};
  Acts::attributes<Which, href>(h, attrs);
}

const Grammar& grammar() {
  static const Grammar table{
      {.name = "WMS_Capabilities", .in = {}, .act = version, .opens = {inRoot}, .end = closeSection},
      {.name = "WMT_MS_Capabilities", .in = {}, .act = version, .opens = {inRoot}, .end = closeSection},

      {.name = "GetMap",
       .in = {},
       .act = openFormats<&H::mapFormats>,
       .opens = {inRequest, inGetMap},
       .end = closeSection},
      {"Format", {any, inGetMap}, format<&H::mapFormats>},
      {.name = "GetFeatureInfo",
       .in = {},
       .act = openFormats<&H::featureFormats>,
       .opens = {inRequest, inGetFeatureInfo},
       .end = closeSection},
      {"Format", {any, inGetFeatureInfo}, format<&H::featureFormats>},

      {.name = "Layer", .in = {}, .act = openLayer, .opens = {inLayer, inLayerItself}, .end = closeLayer},
      {"Name", {inLayer}, layer<&Layer::szName>},
      {"Title", {inLayer}, layer<&Layer::szTitle>},
      {"Abstract", {inLayer}, layer<&Layer::szAbstract>},
      {"MinScaleDenominator", {inLayer}, scale<&Layer::szMinScale, &Layer::bMinScale>},
      {"MaxScaleDenominator", {inLayer}, scale<&Layer::szMaxScale, &Layer::bMaxScale>},
      {"ScaleHint", {inLayer}, [](H& h, const Attributes& attrs) { h.store(scaleFlags, *h.layer, attrs); }},

      {"KeywordList", {inLayer}, nullptr, {0, inKeywords}},
      {"Keyword", {any, inKeywords}, entry<&Layer::nKeyword, &Layer::pKeyword, &H::keyword>},
      {"CRS", {inLayer}, referenceSystem<&Layer::nCrs, &Layer::pCrs, &H::crs>, {0, inCrs}},
      {"SRS", {inLayer}, referenceSystems<&Layer::nSrs, &Layer::pSrs, &H::srs>, {0, inSrs}, nullptr},

      // The box stays open for the attributes of other elements until another group begins.
      {"LatLonBoundingBox",
       {inLayer},
       count<&Layer::nLatLonBBox, &Layer::pLatLonBBox, &H::latLon>,
       {0, inLatLon},
       "LatLongBoundingBox"},
      {"*", {any, inLatLon}, Acts::attributes<&H::latLon, latLonAttributes>},
      {"EX_GeographicBoundingBox", {inLayer}, count<&Layer::nExGeoBBox, &Layer::pExGeoBBox, &H::geo>, {0, inExGeo}},
      {"westBoundLongitude", {any, inExGeo}, Acts::text<&H::geo, &xWmsGeoBox_t::minX>},
      {"eastBoundLongitude", {any, inExGeo}, Acts::text<&H::geo, &xWmsGeoBox_t::minY>},
      {"southBoundLatitude", {any, inExGeo}, Acts::text<&H::geo, &xWmsGeoBox_t::maxX>},
      {"northBoundLatitude", {any, inExGeo}, Acts::text<&H::geo, &xWmsGeoBox_t::maxY>},
      {"BoundingBox",
       {inLayer},
       Acts::all<add<&Layer::nBBox, &Layer::pBBox, &H::bbox>, Acts::attributes<&H::bbox, bboxAttributes>>,
       {0, inBBox}},
      {"Extent",
       {inLayer},
       Acts::all<add<&Layer::nExtent, &Layer::pExtent, &H::extent>, Acts::attributes<&H::extent, extentAttributes>,
                 Acts::text<&H::extent, &xWmsExtent_t::value>>,
       {0, inExtent}},
      {"Dimension",
       {inLayer},
       Acts::all<add<&Layer::nDimension, &Layer::pDimension, &H::dimension>,
                 Acts::attributes<&H::dimension, dimensionAttributes>,
                 Acts::text<&H::dimension, &xWmsDimension_t::value>>,
       {0, inDimension}},

      {"Attribution",
       {inLayer},
       count<&Layer::nAttribution, &Layer::pAttribution, &H::attribution>,
       {0, inAttribution}},
      {"Title", {any, inAttribution}, Acts::text<&H::attribution, &xWmsAttribution_t::title>},
      {"OnlineResource", {any, inAttribution, 0}, online<&H::attribution, &xWmsAttribution_t::onlineResource>},
      {"LogoURL", {any, inAttribution}, Acts::attributes<&H::attribution, logoAttributes>, {0, 0, inLogo}},
      {"Format", {any, inAttribution, inLogo}, Acts::text<&H::attribution, &xWmsAttribution_t::logoFormat>},
      {"OnlineResource", {any, inAttribution, inLogo}, online<&H::attribution, &xWmsAttribution_t::logoOnlineResource>},

      {"AuthorityURL",
       {inLayer},
       Acts::all<add<&Layer::nAuthorityUrl, &Layer::pAuthorityUrl, &H::authorityUrl>,
                 Acts::attributes<&H::authorityUrl, authorityAttributes>>,
       {0, inAuthorityUrl}},
      {"OnlineResource", {any, inAuthorityUrl}, online<&H::authorityUrl, &xWmsAuthorityUrl_t::onlineResource>},
      {"Identifier",
       {inLayer},
       Acts::all<add<&Layer::nIdentifier, &Layer::pIdentifier, &H::identifier>,
                 Acts::attributes<&H::identifier, identifierAttributes>,
                 Acts::text<&H::identifier, &xWmsIdentifier_t::value>>,
       {0, inIdentifier}},
      {"MetadataURL",
       {inLayer},
       Acts::all<add<&Layer::nMetadataUrl, &Layer::pMetadataUrl, &H::metadataUrl>,
                 Acts::attributes<&H::metadataUrl, metadataAttributes>>,
       {0, inMetadataUrl}},
      {"Format", {any, inMetadataUrl}, Acts::text<&H::metadataUrl, &xWmsMetadataUrl_t::format>},
      {"OnlineResource", {any, inMetadataUrl}, online<&H::metadataUrl, &xWmsMetadataUrl_t::onlineResource>},
      {"DataURL", {inLayer}, add<&Layer::nDataUrl, &Layer::pDataUrl, &H::dataUrl>, {0, inDataUrl}},
      {"Format", {any, inDataUrl}, Acts::text<&H::dataUrl, &xWmsOnlineRes_t::format>},
      {"OnlineResource", {any, inDataUrl}, online<&H::dataUrl, &xWmsOnlineRes_t::onlineResource>},
      {"FeatureListURL", {inLayer}, add<&Layer::nFeatureUrl, &Layer::pFeatureUrl, &H::featureUrl>, {0, inFeatureUrl}},
      {"Format", {any, inFeatureUrl}, Acts::text<&H::featureUrl, &xWmsOnlineRes_t::format>},
      {"OnlineResource", {any, inFeatureUrl}, online<&H::featureUrl, &xWmsOnlineRes_t::onlineResource>},

      {"Style", {inLayer}, add<&Layer::nStyle, &Layer::pStyle, &H::style>, {0, inStyle}},
      {"Name", {any, inStyle}, Acts::text<&H::style, &xWmsStyle_t::name>},
      {"Title", {any, inStyle}, Acts::text<&H::style, &xWmsStyle_t::title>},
      {"Abstract", {any, inStyle}, Acts::text<&H::style, &xWmsStyle_t::abstract>},
      {"LegendURL", {any, inStyle}, Acts::attributes<&H::style, legendAttributes>, {0, 0, inLegend}},
      {"Format", {any, inStyle, inLegend}, Acts::text<&H::style, &xWmsStyle_t::legendFormat>},
      {"OnlineResource", {any, inStyle, inLegend}, online<&H::style, &xWmsStyle_t::legendOnlineResource>},
      {"StyleSheetURL", {any, inStyle}, nullptr, {0, 0, inSheet}},
      {"Format", {any, inStyle, inSheet}, Acts::text<&H::style, &xWmsStyle_t::sheetFormat>},
      {"OnlineResource", {any, inStyle, inSheet}, online<&H::style, &xWmsStyle_t::sheetOnlineResource>},
      {"StyleURL", {any, inStyle}, nullptr, {0, 0, inStyleUrl}},
      {"Format", {any, inStyle, inStyleUrl}, Acts::text<&H::style, &xWmsStyle_t::styleFormat>},
      {"OnlineResource", {any, inStyle, inStyleUrl}, online<&H::style, &xWmsStyle_t::styleOnlineResource>},

      {"Service", {}, nullptr, {inService}},
      {"*", {inService}, openService},
      {"Name", {inService}, service<&xWmsService_t::name>},
      {"Title", {inService}, service<&xWmsService_t::title>},
      {"Abstract", {inService}, service<&xWmsService_t::abstract>},
      {"Keyword",
       {inService},
       [](H& h, const Attributes&) {
         h.openService();
         ++h.service->keywordCount;
         h.appendText(&h.service->keywords, &h.serviceKeyword);
       }},
      {"OnlineResource",
       {inService},
       Acts::all<service<&xWmsService_t::onlineResource>, online<&H::service, &xWmsService_t::onlineResource>>},
      {"ContactPerson", {inService}, service<&xWmsService_t::contactPerson>},
      {"ContactOrganization", {inService}, service<&xWmsService_t::contactOrganization>},
      {"ContactPosition", {inService}, service<&xWmsService_t::contactPosition>},
      {"AddressType", {inService}, service<&xWmsService_t::addressType>},
      {"Address", {inService}, service<&xWmsService_t::address>},
      {"City", {inService}, service<&xWmsService_t::city>},
      {"StateOrProvince", {inService}, service<&xWmsService_t::stateOrProvince>},
      {"PostCode", {inService}, service<&xWmsService_t::postCode>},
      {"Country", {inService}, service<&xWmsService_t::country>},
      {"ContactVoiceTelephone", {inService}, service<&xWmsService_t::voiceTelephone>},
      {"ContactFacsimileTelephone", {inService}, service<&xWmsService_t::facsimileTelephone>},
      {"ContactElectronicMailAddress", {inService}, service<&xWmsService_t::electronicMailAddress>},
      {"Fees", {inService}, service<&xWmsService_t::fees>},
      {"AccessConstraints", {inService}, service<&xWmsService_t::accessConstraints>},
      {"LayerLimit", {inService}, service<&xWmsService_t::layerLimit>},
      {"MaxWidth", {inService}, service<&xWmsService_t::maxWidth>},
      {"MaxHeight", {inService}, service<&xWmsService_t::maxHeight>},
  };
  return table;
}

} // namespace

COgcWmsSaxHelper::COgcWmsSaxHelper(xml::Reporter& reporter, WmsCapabilities& document)
    : RuleHandler(reporter, document.arena, wmsVersions, grammar()), WmsRecords{}, m_document(document) {}

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
  static_cast<WmsRecords&>(*this) = {};
  const int parent = FindParent(m_layerDepth);
  layer = &m_document.addLayer(parent, ++m_layerDepth);
  m_lastOfLevel.resize(std::max(m_lastOfLevel.size(), static_cast<std::size_t>(m_layerDepth)), -1);
  m_lastOfLevel[static_cast<std::size_t>(m_layerDepth) - 1] = layer->iIndex;
  layer->szVersion = szVersion;
  layer->szUpdateSequence = szUpdateSequence;
  store(layerFlags, *layer, attrs);
  layer->nMapFormat = mapFormats.count;
  layer->pMapFormat = mapFormats.head;
  layer->nFeatureFormat = featureFormats.count;
  layer->pFeatureFormat = featureFormats.head;
}

void COgcWmsSaxHelper::closeLayer() noexcept {
  --m_layerDepth;
  closeGroup();
}

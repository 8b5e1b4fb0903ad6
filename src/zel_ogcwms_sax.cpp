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

using H = COgcWmsSaxHelper;
using Attributes = xercesc::Attributes;
using Grammar = xml::Grammar<H>;
using Layer = xWmsLayer_t;
using Acts = xml::Acts<H>;

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
      {.name = "WMS_Capabilities", .in = "", .act = version, .opens = "root", .end = closeSection},
      {.name = "WMT_MS_Capabilities", .in = "", .act = version, .opens = "root", .end = closeSection},

      {.name = "GetMap", .in = "", .act = openFormats<&H::mapFormats>, .opens = "Request/GetMap", .end = closeSection},
      {"Format", "/GetMap", format<&H::mapFormats>},
      {.name = "GetFeatureInfo",
       .in = "",
       .act = openFormats<&H::featureFormats>,
       .opens = "Request/GetFeatureInfo",
       .end = closeSection},
      {"Format", "/GetFeatureInfo", format<&H::featureFormats>},

      {.name = "Layer", .in = "", .act = openLayer, .opens = "Layer/itself", .end = closeLayer},
      {"Name", "Layer", layer<&Layer::szName>},
      {"Title", "Layer", layer<&Layer::szTitle>},
      {"Abstract", "Layer", layer<&Layer::szAbstract>},
      {"MinScaleDenominator", "Layer", scale<&Layer::szMinScale, &Layer::bMinScale>},
      {"MaxScaleDenominator", "Layer", scale<&Layer::szMaxScale, &Layer::bMaxScale>},
      {"ScaleHint", "Layer", [](H& h, const Attributes& attrs) { h.store(scaleFlags, *h.layer, attrs); }},

      {"KeywordList", "Layer", nullptr, "/KeywordList"},
      {"Keyword", "/KeywordList", entry<&Layer::nKeyword, &Layer::pKeyword, &H::keyword>},
      {"CRS", "Layer", referenceSystem<&Layer::nCrs, &Layer::pCrs, &H::crs>, "/CRS"},
      {"SRS", "Layer", referenceSystems<&Layer::nSrs, &Layer::pSrs, &H::srs>, "/SRS", nullptr},

      // The box stays open for the attributes of other elements until another group begins.
      {"LatLonBoundingBox", "Layer", count<&Layer::nLatLonBBox, &Layer::pLatLonBBox, &H::latLon>, "/LatLonBoundingBox",
       "LatLongBoundingBox"},
      {"*", "/LatLonBoundingBox", Acts::attributes<&H::latLon, latLonAttributes>},
      {"EX_GeographicBoundingBox", "Layer", count<&Layer::nExGeoBBox, &Layer::pExGeoBBox, &H::geo>,
       "/EX_GeographicBoundingBox"},
      {"westBoundLongitude", "/EX_GeographicBoundingBox", Acts::text<&H::geo, &xWmsGeoBox_t::minX>},
      {"eastBoundLongitude", "/EX_GeographicBoundingBox", Acts::text<&H::geo, &xWmsGeoBox_t::minY>},
      {"southBoundLatitude", "/EX_GeographicBoundingBox", Acts::text<&H::geo, &xWmsGeoBox_t::maxX>},
      {"northBoundLatitude", "/EX_GeographicBoundingBox", Acts::text<&H::geo, &xWmsGeoBox_t::maxY>},
      {"BoundingBox", "Layer",
       Acts::all<add<&Layer::nBBox, &Layer::pBBox, &H::bbox>, Acts::attributes<&H::bbox, bboxAttributes>>,
       "/BoundingBox"},
      {"Extent", "Layer",
       Acts::all<add<&Layer::nExtent, &Layer::pExtent, &H::extent>, Acts::attributes<&H::extent, extentAttributes>,
                 Acts::text<&H::extent, &xWmsExtent_t::value>>,
       "/Extent"},
      {"Dimension", "Layer",
       Acts::all<add<&Layer::nDimension, &Layer::pDimension, &H::dimension>,
                 Acts::attributes<&H::dimension, dimensionAttributes>,
                 Acts::text<&H::dimension, &xWmsDimension_t::value>>,
       "/Dimension"},

      {"Attribution", "Layer", count<&Layer::nAttribution, &Layer::pAttribution, &H::attribution>, "/Attribution"},
      {"Title", "/Attribution", Acts::text<&H::attribution, &xWmsAttribution_t::title>},
      {"OnlineResource", "/Attribution/-", online<&H::attribution, &xWmsAttribution_t::onlineResource>},
      {"LogoURL", "/Attribution", Acts::attributes<&H::attribution, logoAttributes>, "//LogoURL"},
      {"Format", "/Attribution/LogoURL", Acts::text<&H::attribution, &xWmsAttribution_t::logoFormat>},
      {"OnlineResource", "/Attribution/LogoURL", online<&H::attribution, &xWmsAttribution_t::logoOnlineResource>},

      {"AuthorityURL", "Layer",
       Acts::all<add<&Layer::nAuthorityUrl, &Layer::pAuthorityUrl, &H::authorityUrl>,
                 Acts::attributes<&H::authorityUrl, authorityAttributes>>,
       "/AuthorityURL"},
      {"OnlineResource", "/AuthorityURL", online<&H::authorityUrl, &xWmsAuthorityUrl_t::onlineResource>},
      {"Identifier", "Layer",
       Acts::all<add<&Layer::nIdentifier, &Layer::pIdentifier, &H::identifier>,
                 Acts::attributes<&H::identifier, identifierAttributes>,
                 Acts::text<&H::identifier, &xWmsIdentifier_t::value>>,
       "/Identifier"},
      {"MetadataURL", "Layer",
       Acts::all<add<&Layer::nMetadataUrl, &Layer::pMetadataUrl, &H::metadataUrl>,
                 Acts::attributes<&H::metadataUrl, metadataAttributes>>,
       "/MetadataURL"},
      {"Format", "/MetadataURL", Acts::text<&H::metadataUrl, &xWmsMetadataUrl_t::format>},
      {"OnlineResource", "/MetadataURL", online<&H::metadataUrl, &xWmsMetadataUrl_t::onlineResource>},
      {"DataURL", "Layer", add<&Layer::nDataUrl, &Layer::pDataUrl, &H::dataUrl>, "/DataURL"},
      {"Format", "/DataURL", Acts::text<&H::dataUrl, &xWmsOnlineRes_t::format>},
      {"OnlineResource", "/DataURL", online<&H::dataUrl, &xWmsOnlineRes_t::onlineResource>},
      {"FeatureListURL", "Layer", add<&Layer::nFeatureUrl, &Layer::pFeatureUrl, &H::featureUrl>, "/FeatureListURL"},
      {"Format", "/FeatureListURL", Acts::text<&H::featureUrl, &xWmsOnlineRes_t::format>},
      {"OnlineResource", "/FeatureListURL", online<&H::featureUrl, &xWmsOnlineRes_t::onlineResource>},

      {"Style", "Layer", add<&Layer::nStyle, &Layer::pStyle, &H::style>, "/Style"},
      {"Name", "/Style", Acts::text<&H::style, &xWmsStyle_t::name>},
      {"Title", "/Style", Acts::text<&H::style, &xWmsStyle_t::title>},
      {"Abstract", "/Style", Acts::text<&H::style, &xWmsStyle_t::abstract>},
      {"LegendURL", "/Style", Acts::attributes<&H::style, legendAttributes>, "//LegendURL"},
      {"Format", "/Style/LegendURL", Acts::text<&H::style, &xWmsStyle_t::legendFormat>},
      {"OnlineResource", "/Style/LegendURL", online<&H::style, &xWmsStyle_t::legendOnlineResource>},
      {"StyleSheetURL", "/Style", nullptr, "//StyleSheetURL"},
      {"Format", "/Style/StyleSheetURL", Acts::text<&H::style, &xWmsStyle_t::sheetFormat>},
      {"OnlineResource", "/Style/StyleSheetURL", online<&H::style, &xWmsStyle_t::sheetOnlineResource>},
      {"StyleURL", "/Style", nullptr, "//StyleURL"},
      {"Format", "/Style/StyleURL", Acts::text<&H::style, &xWmsStyle_t::styleFormat>},
      {"OnlineResource", "/Style/StyleURL", online<&H::style, &xWmsStyle_t::styleOnlineResource>},

      {"Service", "", nullptr, "Service"},
      {"*", "Service", openService},
      {"Name", "Service", service<&xWmsService_t::name>},
      {"Title", "Service", service<&xWmsService_t::title>},
      {"Abstract", "Service", service<&xWmsService_t::abstract>},
      {"Keyword", "Service",
       [](H& h, const Attributes&) {
         h.openService();
         ++h.service->keywordCount;
         h.appendText(&h.service->keywords, &h.serviceKeyword);
       }},
      {"OnlineResource", "Service",
       Acts::all<service<&xWmsService_t::onlineResource>, online<&H::service, &xWmsService_t::onlineResource>>},
      {"ContactPerson", "Service", service<&xWmsService_t::contactPerson>},
      {"ContactOrganization", "Service", service<&xWmsService_t::contactOrganization>},
      {"ContactPosition", "Service", service<&xWmsService_t::contactPosition>},
      {"AddressType", "Service", service<&xWmsService_t::addressType>},
      {"Address", "Service", service<&xWmsService_t::address>},
      {"City", "Service", service<&xWmsService_t::city>},
      {"StateOrProvince", "Service", service<&xWmsService_t::stateOrProvince>},
      {"PostCode", "Service", service<&xWmsService_t::postCode>},
      {"Country", "Service", service<&xWmsService_t::country>},
      {"ContactVoiceTelephone", "Service", service<&xWmsService_t::voiceTelephone>},
      {"ContactFacsimileTelephone", "Service", service<&xWmsService_t::facsimileTelephone>},
      {"ContactElectronicMailAddress", "Service", service<&xWmsService_t::electronicMailAddress>},
      {"Fees", "Service", service<&xWmsService_t::fees>},
      {"AccessConstraints", "Service", service<&xWmsService_t::accessConstraints>},
      {"LayerLimit", "Service", service<&xWmsService_t::layerLimit>},
      {"MaxWidth", "Service", service<&xWmsService_t::maxWidth>},
      {"MaxHeight", "Service", service<&xWmsService_t::maxHeight>},
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

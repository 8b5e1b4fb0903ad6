#include "zel_ogcwms_sax.h"

#include <algorithm>
#include <array>
#include <span>
#include <strings.h>

namespace {

constexpr const char* supportedVersions[] = {"1.1.0", "1.1.1", "1.3.0"};
constexpr OgcVersionRule wmsVersions{
    supportedVersions, "Error: The WMS Capabilities Version number attribute is missing.",
    "Error: OGC WMS version number (%s) is not supported. This WMS Client supports OGC WMS version 1.1.0, 1.1.1, and "
    "1.3.0."};

enum Section : int { ROOT = 1001, REQUEST, SERVICE_SECTION, LAYER_SECTION };

/// What iElement says of the text being collected.
enum Text : int { PLAIN = 1001, NAME_RUN };

/// Elements. The code of a grouping element is also the code of the sub-section it opens in a layer.
enum Name : int {
  N_UNKNOWN,
  N_KEYWORD_LIST,
  N_SRS,
  N_CRS,
  N_LAT_LON,
  N_EX_GEO,
  N_BBOX,
  N_EXTENT,
  N_DIMENSION,
  N_ATTRIBUTION,
  N_AUTHORITY_URL,
  N_IDENTIFIER,
  N_METADATA_URL,
  N_DATA_URL,
  N_FEATURE_URL,
  N_STYLE,
  LAST_GROUP = N_STYLE,
  N_ABSTRACT,
  N_ACCESS_CONSTRAINTS,
  N_ADDRESS,
  N_ADDRESS_TYPE,
  N_CAPABILITIES,
  N_CITY,
  N_CONTACT_ORGANIZATION,
  N_CONTACT_PERSON,
  N_CONTACT_POSITION,
  N_COUNTRY,
  N_EAST,
  N_EMAIL,
  N_FACSIMILE,
  N_FEES,
  N_FORMAT,
  N_GET_FEATURE_INFO,
  N_GET_MAP,
  N_KEYWORD,
  N_LAT_LONG_BOX,
  N_LAYER,
  N_LAYER_LIMIT,
  N_LEGEND_URL,
  N_LOGO_URL,
  N_MAX_HEIGHT,
  N_MAX_SCALE,
  N_MAX_WIDTH,
  N_MIN_SCALE,
  N_NAME,
  N_NORTH,
  N_ONLINE_RESOURCE,
  N_POST_CODE,
  N_REPORT,
  N_SCALE_HINT,
  N_SERVICE,
  N_SOUTH,
  N_STATE,
  N_STYLE_SHEET_URL,
  N_STYLE_URL,
  N_TITLE,
  N_VOICE,
  N_WEST,
  NAME_COUNT
};

const COgcNames& names() {
  static const COgcNames table{{"Abstract", N_ABSTRACT},
                               {"AccessConstraints", N_ACCESS_CONSTRAINTS},
                               {"Address", N_ADDRESS},
                               {"AddressType", N_ADDRESS_TYPE},
                               {"Attribution", N_ATTRIBUTION},
                               {"AuthorityURL", N_AUTHORITY_URL},
                               {"BoundingBox", N_BBOX},
                               {"City", N_CITY},
                               {"ContactElectronicMailAddress", N_EMAIL},
                               {"ContactFacsimileTelephone", N_FACSIMILE},
                               {"ContactOrganization", N_CONTACT_ORGANIZATION},
                               {"ContactPerson", N_CONTACT_PERSON},
                               {"ContactPosition", N_CONTACT_POSITION},
                               {"ContactVoiceTelephone", N_VOICE},
                               {"Country", N_COUNTRY},
                               {"CRS", N_CRS},
                               {"DataURL", N_DATA_URL},
                               {"Dimension", N_DIMENSION},
                               {"eastBoundLongitude", N_EAST},
                               {"Exception", N_REPORT},
                               {"ExceptionReport", N_REPORT},
                               {"ExceptionText", N_REPORT},
                               {"EX_GeographicBoundingBox", N_EX_GEO},
                               {"Extent", N_EXTENT},
                               {"FeatureListURL", N_FEATURE_URL},
                               {"Fees", N_FEES},
                               {"Format", N_FORMAT},
                               {"GetFeatureInfo", N_GET_FEATURE_INFO},
                               {"GetMap", N_GET_MAP},
                               {"Identifier", N_IDENTIFIER},
                               {"Keyword", N_KEYWORD},
                               {"KeywordList", N_KEYWORD_LIST},
                               {"LatLonBoundingBox", N_LAT_LON},
                               {"LatLongBoundingBox", N_LAT_LONG_BOX},
                               {"Layer", N_LAYER},
                               {"LayerLimit", N_LAYER_LIMIT},
                               {"LegendURL", N_LEGEND_URL},
                               {"LogoURL", N_LOGO_URL},
                               {"MaxHeight", N_MAX_HEIGHT},
                               {"MaxScaleDenominator", N_MAX_SCALE},
                               {"MaxWidth", N_MAX_WIDTH},
                               {"MetadataURL", N_METADATA_URL},
                               {"MinScaleDenominator", N_MIN_SCALE},
                               {"Name", N_NAME},
                               {"northBoundLatitude", N_NORTH},
                               {"OnlineResource", N_ONLINE_RESOURCE},
                               {"PostCode", N_POST_CODE},
                               {"ScaleHint", N_SCALE_HINT},
                               {"Service", N_SERVICE},
                               {"ServiceException", N_REPORT},
                               {"ServiceExceptionReport", N_REPORT},
                               {"southBoundLatitude", N_SOUTH},
                               {"SRS", N_SRS},
                               {"StateOrProvince", N_STATE},
                               {"Style", N_STYLE},
                               {"StyleSheetURL", N_STYLE_SHEET_URL},
                               {"StyleURL", N_STYLE_URL},
                               {"Title", N_TITLE},
                               {"westBoundLongitude", N_WEST},
                               {"WMS_Capabilities", N_CAPABILITIES},
                               {"WMT_MS_Capabilities", N_CAPABILITIES}};
  return table;
}

/// The end tag that closes the sub-section of a grouping element, N_UNKNOWN none: names and the lat-lon box stay open
/// until the next grouping element or the end of the layer.
constexpr int closingTag(int subSection) noexcept {
  switch (subSection) {
  case N_SRS:
    return N_UNKNOWN;
  case N_LAT_LON:
    return N_LAT_LONG_BOX;
  default:
    return subSection;
  }
}

/// Which text field of a record the character data of an element goes to.
template <typename T>
class TextTable {
public:
  struct Row {
    Name name;
    const char* T::*text;
  };

  constexpr TextTable(std::initializer_list<Row> rows) {
    for (const Row& row : rows) m_texts[row.name] = row.text;
  }
  /// Null when the element has no text field there.
  [[nodiscard]] constexpr const char** of(T& record, int code) const noexcept {
    return m_texts[static_cast<std::size_t>(code)] != nullptr ? &(record.*m_texts[static_cast<std::size_t>(code)])
                                                              : nullptr;
  }

private:
  std::array<const char * T::*, NAME_COUNT> m_texts{};
};

template <typename T>
struct AttributeRow {
  const char* name; ///< lower case
  const char* T::*text;
};

struct FlagRow {
  const char* name; ///< lower case
  int xWmsLayer_t::*flag;
  const char* xWmsLayer_t::*text;
};

/// The fields that a URL element with a format inside fills.
template <typename T>
struct UrlRow {
  Name element;
  const char* T::*format;
  const char* T::*online;
};

using Layer = xWmsLayer_t;

constexpr TextTable<Layer> layerTexts{{N_NAME, &Layer::szName},
                                      {N_TITLE, &Layer::szTitle},
                                      {N_ABSTRACT, &Layer::szAbstract},
                                      {N_MIN_SCALE, &Layer::szMinScale},
                                      {N_MAX_SCALE, &Layer::szMaxScale}};
constexpr TextTable<xWmsGeoBox_t> geoBoxTexts{{N_WEST, &xWmsGeoBox_t::szMinX},
                                              {N_EAST, &xWmsGeoBox_t::szMinY},
                                              {N_SOUTH, &xWmsGeoBox_t::szMaxX},
                                              {N_NORTH, &xWmsGeoBox_t::szMaxY}};
constexpr TextTable<xWmsStyle_t> styleTexts{
    {N_NAME, &xWmsStyle_t::szName}, {N_TITLE, &xWmsStyle_t::szTitle}, {N_ABSTRACT, &xWmsStyle_t::szAbstract}};
constexpr TextTable<xWmsService_t> serviceTexts{{N_NAME, &xWmsService_t::szName},
                                                {N_TITLE, &xWmsService_t::szTitle},
                                                {N_ABSTRACT, &xWmsService_t::szAbstract},
                                                {N_ONLINE_RESOURCE, &xWmsService_t::szOnline},
                                                {N_CONTACT_PERSON, &xWmsService_t::szContactPerson},
                                                {N_CONTACT_ORGANIZATION, &xWmsService_t::szContactOrganization},
                                                {N_CONTACT_POSITION, &xWmsService_t::szContactPosition},
                                                {N_ADDRESS_TYPE, &xWmsService_t::szAddressType},
                                                {N_ADDRESS, &xWmsService_t::szAddress},
                                                {N_CITY, &xWmsService_t::szCity},
                                                {N_STATE, &xWmsService_t::szStateOrProvince},
                                                {N_POST_CODE, &xWmsService_t::szPostCode},
                                                {N_COUNTRY, &xWmsService_t::szCountry},
                                                {N_VOICE, &xWmsService_t::szVoiceTelephone},
                                                {N_FACSIMILE, &xWmsService_t::szFacsimileTelephone},
                                                {N_EMAIL, &xWmsService_t::szElectronicMailAddress},
                                                {N_FEES, &xWmsService_t::szFees},
                                                {N_ACCESS_CONSTRAINTS, &xWmsService_t::szAccessConstraints},
                                                {N_LAYER_LIMIT, &xWmsService_t::szLayerLimit},
                                                {N_MAX_WIDTH, &xWmsService_t::szMaxWidth},
                                                {N_MAX_HEIGHT, &xWmsService_t::szMaxHeight}};

constexpr FlagRow layerFlags[] = {{"queryable", &Layer::bQueryable, &Layer::szQueryable},
                                  {"cascaded", &Layer::bCascaded, &Layer::szCascaded},
                                  {"opaque", &Layer::bOpaque, &Layer::szOpaque},
                                  {"nosubsets", &Layer::bNoSubsets, &Layer::szNoSubsets},
                                  {"fixedwidth", &Layer::bFixedWidth, &Layer::szFixedWidth},
                                  {"fixedheight", &Layer::bFixedHeight, &Layer::szFixedHeight}};
constexpr FlagRow scaleFlags[] = {{"min", &Layer::bMinScale, &Layer::szMinScale},
                                  {"max", &Layer::bMaxScale, &Layer::szMaxScale}};

constexpr AttributeRow<xWmsGeoBox_t> latLonAttributes[] = {{"minx", &xWmsGeoBox_t::szMinX},
                                                           {"miny", &xWmsGeoBox_t::szMinY},
                                                           {"maxx", &xWmsGeoBox_t::szMaxX},
                                                           {"maxy", &xWmsGeoBox_t::szMaxY}};
constexpr AttributeRow<xWmsBBox_t> bboxAttributes[] = {{"crs", &xWmsBBox_t::szCrs},   {"srs", &xWmsBBox_t::szSrs},
                                                       {"minx", &xWmsBBox_t::szMinX}, {"miny", &xWmsBBox_t::szMinY},
                                                       {"maxx", &xWmsBBox_t::szMaxX}, {"maxy", &xWmsBBox_t::szMaxY},
                                                       {"resx", &xWmsBBox_t::szResX}, {"resy", &xWmsBBox_t::szResY}};
constexpr AttributeRow<xWmsExtent_t> extentAttributes[] = {{"name", &xWmsExtent_t::szName},
                                                           {"default", &xWmsExtent_t::szDefault},
                                                           {"nearestvalue", &xWmsExtent_t::szNearestValue}};
constexpr AttributeRow<xWmsDimension_t> dimensionAttributes[] = {{"name", &xWmsDimension_t::szName},
                                                                 {"units", &xWmsDimension_t::szUnits},
                                                                 {"unitsymbol", &xWmsDimension_t::szUnitSymbol},
                                                                 {"default", &xWmsDimension_t::szDefault},
                                                                 {"multiplevalues", &xWmsDimension_t::szMultipleValues},
                                                                 {"nearestvalue", &xWmsDimension_t::szNearestValue},
                                                                 {"current", &xWmsDimension_t::szCurrent}};
constexpr AttributeRow<xWmsAuthorityUrl_t> authorityAttributes[] = {{"name", &xWmsAuthorityUrl_t::szName}};
constexpr AttributeRow<xWmsIdentifier_t> identifierAttributes[] = {{"authority", &xWmsIdentifier_t::szAuthority}};
constexpr AttributeRow<xWmsMetadataUrl_t> metadataAttributes[] = {{"type", &xWmsMetadataUrl_t::szType}};
constexpr AttributeRow<xWmsAttribution_t> logoAttributes[] = {{"width", &xWmsAttribution_t::szLogoWidth},
                                                              {"height", &xWmsAttribution_t::szLogoHeight}};
constexpr AttributeRow<xWmsStyle_t> legendAttributes[] = {{"width", &xWmsStyle_t::szLegendWidth},
                                                          {"height", &xWmsStyle_t::szLegendHeight}};

constexpr UrlRow<xWmsStyle_t> styleUrls[] = {
    {N_LEGEND_URL, &xWmsStyle_t::szLegendFormat, &xWmsStyle_t::szLegendOnline},
    {N_STYLE_SHEET_URL, &xWmsStyle_t::szSheetFormat, &xWmsStyle_t::szSheetOnline},
    {N_STYLE_URL, &xWmsStyle_t::szStyleFormat, &xWmsStyle_t::szStyleOnline}};

/// What a grouping element with a list of its own does: a record for each, its attributes, its text and the format and
/// online resource inside. Null: it has none.
template <typename T>
struct ListRule {
  T* Layer::*list;
  int Layer::*count;
  std::span<const AttributeRow<T>> attributes;
  const char* T::*text = nullptr;
  const char* T::*format = nullptr;
  const char* T::*online = nullptr;
};

constexpr ListRule<xWmsBBox_t> bboxRule{&Layer::pBBox, &Layer::nBBox, bboxAttributes};
constexpr ListRule<xWmsExtent_t> extentRule{&Layer::pExtent, &Layer::nExtent, extentAttributes, &xWmsExtent_t::szValue};
constexpr ListRule<xWmsDimension_t> dimensionRule{&Layer::pDimension, &Layer::nDimension, dimensionAttributes,
                                                  &xWmsDimension_t::szValue};
constexpr ListRule<xWmsAuthorityUrl_t> authorityRule{
    &Layer::pAuthorityUrl, &Layer::nAuthorityUrl, authorityAttributes, nullptr, nullptr, &xWmsAuthorityUrl_t::szOnline};
constexpr ListRule<xWmsIdentifier_t> identifierRule{&Layer::pIdentifier, &Layer::nIdentifier, identifierAttributes,
                                                    &xWmsIdentifier_t::szValue};
constexpr ListRule<xWmsMetadataUrl_t> metadataRule{&Layer::pMetadataUrl,         &Layer::nMetadataUrl,
                                                   metadataAttributes,           nullptr,
                                                   &xWmsMetadataUrl_t::szFormat, &xWmsMetadataUrl_t::szOnline};
constexpr ListRule<xWmsOnlineRes_t> dataRule{&Layer::pDataUrl, &Layer::nDataUrl,           {},
                                             nullptr,          &xWmsOnlineRes_t::szFormat, &xWmsOnlineRes_t::szOnline};
constexpr ListRule<xWmsOnlineRes_t> featureRule{&Layer::pFeatureUrl,        &Layer::nFeatureUrl,       {}, nullptr,
                                                &xWmsOnlineRes_t::szFormat, &xWmsOnlineRes_t::szOnline};
constexpr ListRule<xWmsStyle_t> styleRule{&Layer::pStyle, &Layer::nStyle, {}};

} // namespace

int COgcWmsSaxHelper::CheckStringNode(const xNodeStr_t* list, const char* s) noexcept {
  if (s == nullptr) return 0;
  for (; list != nullptr; list = list->next) {
    if (list->str != nullptr && strcasecmp(list->str, s) == 0) return 1;
  }
  return 0;
}

COgcWmsSaxHelper::COgcWmsSaxHelper(COgcBase& owner, COgcArena& arena) : COgcSaxHelper(owner, arena, wmsVersions) {}

COgcWmsSaxCapHandler::COgcWmsSaxCapHandler(COgcWms& owner) : COgcWmsSaxHelper(owner, owner.m_arena), m_wms(owner) {}

int COgcWmsSaxCapHandler::FindParent(int level) const noexcept {
  return level > 0 && static_cast<std::size_t>(level) <= m_lastOfLevel.size()
             ? m_lastOfLevel[static_cast<std::size_t>(level) - 1]
             : -1;
}

void COgcWmsSaxCapHandler::collect(const char** text) noexcept {
  m_text = text;
  iElement = text != nullptr ? PLAIN : 0;
}

void COgcWmsSaxCapHandler::addText(int& count, xNodeStr_t** head, xNodeStr_t** tail, int use) {
  ++count;
  pCurNode = AddStringNode(head, tail);
  m_text = &pCurNode->str;
  iElement = use;
}

template <typename Rows, typename T>
void COgcWmsSaxCapHandler::store(const Rows& rows, T& record, const xercesc::Attributes& attrs) {
  unsigned found = 0; // bit by row: of attributes with the same local name the first counts
  for (XMLSize_t i = 0; i < attrs.getLength(); ++i) {
    const XMLCh* name = attrs.getLocalName(i);
    for (std::size_t row = 0; row < std::size(rows); ++row) {
      if ((found >> row & 1U) != 0 || !ogcNameEquals(name, rows[row].name)) continue;
      found |= 1U << row;
      AppendStrings(&(record.*rows[row].text), m_utf8(attrs.getValue(i)), 0, 0);
      if constexpr (requires { rows[row].flag; }) record.*rows[row].flag = 1;
    }
  }
}

template <typename T>
void COgcWmsSaxCapHandler::countRecord(int& count, T*& record) {
  if (count++ == 0) record = m_arena.make<T>();
}

template <typename Rule, typename T>
void COgcWmsSaxCapHandler::listElement(const Rule& rule, T*& current, int code, const xercesc::Attributes& attrs) {
  if (code == iSubSection) {
    AddRecord(&(m_layer->*rule.list), &current, &T::pNext);
    ++(m_layer->*rule.count);
    store(rule.attributes, *current, attrs);
    if (rule.text != nullptr) collect(&(current->*rule.text));
  } else if (current == nullptr) {
    return;
  } else if (code == N_FORMAT && rule.format != nullptr) {
    collect(&(current->*rule.format));
  } else if (code == N_ONLINE_RESOURCE && rule.online != nullptr) {
    GetAttributes(attrs, "href", &(current->*rule.online));
  }
}

void COgcWmsSaxCapHandler::startElement(const XMLCh*, const XMLCh* localname, const XMLCh*,
                                        const xercesc::Attributes& attrs) {
  const int code = names().find(localname);
  m_openElements.push_back(code);
  if (code == N_REPORT && ExceptionStart(localname, attrs)) return;
  switch (code) {
  case N_CAPABILITIES:
    if (iSection == ROOT) break;
    iSection = ROOT;
    HandleVersion(attrs);
    break;
  case N_GET_MAP:
  case N_GET_FEATURE_INFO:
    iSection = REQUEST;
    iSubSection = code;
    formats() = {};
    pCurNode = nullptr;
    break;
  case N_FORMAT:
    if (iSubSection == N_GET_MAP || iSubSection == N_GET_FEATURE_INFO) {
      Formats& list = formats();
      addText(list.count, &list.head, &list.tail, PLAIN);
    }
    break;
  case N_SERVICE:
    iSection = SERVICE_SECTION;
    break;
  case N_LAYER:
    openLayer(attrs);
    break;
  default:
    break;
  }
  if (iSection == LAYER_SECTION) layerElement(code, attrs);
  if (m_layer != nullptr) groupElement(code, attrs);
  if (iSection == SERVICE_SECTION && code != N_SERVICE) serviceElement(code, attrs);
}

COgcWmsSaxCapHandler::Formats& COgcWmsSaxCapHandler::formats() noexcept {
  return iSubSection == N_GET_MAP ? m_mapFormats : m_featureFormats;
}

void COgcWmsSaxCapHandler::openLayer(const xercesc::Attributes& attrs) {
  iSection = LAYER_SECTION;
  iSubSection = N_LAYER;
  pCurNode = nullptr;
  collect(nullptr);
  m_current = {};
  const int parent = FindParent(iLayerDepth);
  m_layer = &m_wms.addLayer(parent, ++iLayerDepth);
  m_lastOfLevel.resize(std::max(m_lastOfLevel.size(), static_cast<std::size_t>(iLayerDepth)), -1);
  m_lastOfLevel[static_cast<std::size_t>(iLayerDepth) - 1] = m_layer->iIndex;
  m_layer->szVersion = szVersion;
  m_layer->szUpdateSequence = szUpdateSequence;
  store(layerFlags, *m_layer, attrs);
  m_layer->nMapFormat = m_mapFormats.count;
  m_layer->pMapFormat = m_mapFormats.head;
  m_layer->nFeatureFormat = m_featureFormats.count;
  m_layer->pFeatureFormat = m_featureFormats.head;
}

void COgcWmsSaxCapHandler::layerElement(int code, const xercesc::Attributes& attrs) {
  const bool url =
      (code == N_LOGO_URL && iSubSection == N_ATTRIBUTION) ||
      (iSubSection == N_STYLE && (code == N_LEGEND_URL || code == N_STYLE_SHEET_URL || code == N_STYLE_URL));
  if (code > N_UNKNOWN && code <= LAST_GROUP) iSubSection = code;
  if (url) iUrlState = code;
  if (url || iSubSection == code) pCurNode = nullptr;
  if (const char** text = layerTexts.of(*m_layer, code)) collect(text);
  switch (code) {
  case N_MIN_SCALE:
    m_layer->bMinScale = 1;
    break;
  case N_MAX_SCALE:
    m_layer->bMaxScale = 1;
    break;
  case N_SCALE_HINT:
    store(scaleFlags, *m_layer, attrs);
    break;
  default:
    break;
  }
}

void COgcWmsSaxCapHandler::groupElement(int code, const xercesc::Attributes& attrs) {
  switch (iSubSection) {
  case N_KEYWORD_LIST:
    if (code == N_KEYWORD) addText(m_layer->nKeyword, &m_layer->pKeyword, &m_current.keyword, PLAIN);
    break;
  case N_CRS:
    if (code == N_CRS) addText(m_layer->nCrs, &m_layer->pCrs, &m_current.crs, PLAIN);
    break;
  case N_SRS:
    if (code == N_SRS) addText(m_layer->nSrs, &m_layer->pSrs, &m_current.srs, NAME_RUN);
    break;
  case N_LAT_LON:
    if (code == N_LAT_LON) countRecord(m_layer->nLatLonBBox, m_layer->pLatLonBBox);
    store(latLonAttributes, *m_layer->pLatLonBBox, attrs);
    break;
  case N_EX_GEO:
    if (code == N_EX_GEO) countRecord(m_layer->nExGeoBBox, m_layer->pExGeoBBox);
    if (const char** text = geoBoxTexts.of(*m_layer->pExGeoBBox, code)) collect(text);
    break;
  case N_BBOX:
    listElement(bboxRule, m_current.bbox, code, attrs);
    break;
  case N_EXTENT:
    listElement(extentRule, m_current.extent, code, attrs);
    break;
  case N_DIMENSION:
    listElement(dimensionRule, m_current.dimension, code, attrs);
    break;
  case N_ATTRIBUTION:
    attributionElement(code, attrs);
    break;
  case N_AUTHORITY_URL:
    listElement(authorityRule, m_current.authorityUrl, code, attrs);
    break;
  case N_IDENTIFIER:
    listElement(identifierRule, m_current.identifier, code, attrs);
    break;
  case N_METADATA_URL:
    listElement(metadataRule, m_current.metadataUrl, code, attrs);
    break;
  case N_DATA_URL:
    listElement(dataRule, m_current.dataUrl, code, attrs);
    break;
  case N_FEATURE_URL:
    listElement(featureRule, m_current.featureUrl, code, attrs);
    break;
  case N_STYLE:
    styleElement(code, attrs);
    break;
  default:
    break;
  }
}

void COgcWmsSaxCapHandler::attributionElement(int code, const xercesc::Attributes& attrs) {
  if (code == N_ATTRIBUTION) countRecord(m_layer->nAttribution, m_layer->pAttribution);
  xWmsAttribution_t& attribution = *m_layer->pAttribution;
  const bool logo = iUrlState == N_LOGO_URL;
  switch (code) {
  case N_TITLE:
    collect(&attribution.szTitle);
    break;
  case N_ONLINE_RESOURCE:
    GetAttributes(attrs, "href", logo ? &attribution.szLogoOnline : &attribution.szOnline);
    break;
  case N_FORMAT:
    if (logo) collect(&attribution.szLogoFormat);
    break;
  case N_LOGO_URL:
    store(logoAttributes, attribution, attrs);
    break;
  default:
    break;
  }
}

void COgcWmsSaxCapHandler::styleElement(int code, const xercesc::Attributes& attrs) {
  listElement(styleRule, m_current.style, code, attrs);
  if (m_current.style == nullptr) return;
  xWmsStyle_t& style = *m_current.style;
  if (const char** text = styleTexts.of(style, code)) collect(text);
  for (const auto& url : styleUrls) {
    if (url.element != iUrlState) continue;
    if (code == N_FORMAT) collect(&(style.*url.format));
    if (code == N_ONLINE_RESOURCE) GetAttributes(attrs, "href", &(style.*url.online));
  }
  if (code == N_LEGEND_URL) store(legendAttributes, style, attrs);
}

void COgcWmsSaxCapHandler::serviceElement(int code, const xercesc::Attributes& attrs) {
  if (m_wms.pService == nullptr) m_wms.pService = m_arena.make<xWmsService_t>();
  xWmsService_t& service = *m_wms.pService;
  if (code == N_KEYWORD) addText(service.nKeyword, &service.pKeyword, &m_serviceKeyword, PLAIN);
  if (const char** text = serviceTexts.of(service, code)) collect(text);
  if (code == N_ONLINE_RESOURCE) GetAttributes(attrs, "href", &service.szOnline);
}

void COgcWmsSaxCapHandler::characters(const XMLCh* chars, XMLSize_t length) {
  if (iElement == 0 || ExceptionText(chars, length)) return;
  if (iElement == NAME_RUN) {
    ParseConcatenatedValues(m_utf8(chars, length), 1);
    m_current.srs = pCurNode != nullptr ? pCurNode : m_current.srs;
  } else {
    AppendStrings(m_text, m_utf8(chars, length), 0, 0);
  }
}

void COgcWmsSaxCapHandler::leave() noexcept {
  iSubSection = 0;
  iUrlState = 0;
  pCurNode = nullptr;
}

void COgcWmsSaxCapHandler::endElement(const XMLCh*, const XMLCh* localname, const XMLCh*) {
  const int code = m_openElements.back();
  m_openElements.pop_back();
  ExceptionEnd(localname);
  iElement = 0;
  switch (code) {
  case N_UNKNOWN:
    return;
  case N_LAYER:
    --iLayerDepth;
    leave();
    return;
  case N_CAPABILITIES:
  case N_GET_MAP:
  case N_GET_FEATURE_INFO:
    iSection = 0;
    leave();
    return;
  case N_SERVICE:
    if (iSection != SERVICE_SECTION) return;
    iSection = 0;
    leave();
    return;
  default:
    if (code == closingTag(iSubSection)) leave();
    if (code == iUrlState) iUrlState = 0;
  }
}

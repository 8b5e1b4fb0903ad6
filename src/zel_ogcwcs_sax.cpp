#include "zel_ogcwcs_sax.h"

#include <array>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>
#include <xercesc/util/XMLString.hpp>

namespace {

constexpr std::size_t indexTextLimit = 7;
constexpr const char* supportedVersions[] = {"1.0.0"};
constexpr OgcVersionRule wcsVersions{
    supportedVersions, "Error: The WCS_Capabilities Version number attribute is missing.",
    "Error: OGC WCS version number (%s) is not supported. This WCS Client supports OGC WCS version 1.0.0."};

enum Section : int {
  ROOT = 1001,
  SERVICE,
  CONTENT,
  OFFERING,
  LON_LAT,
  SPATIAL,
  TEMPORAL,
  RANGE_SET,
  CRS,
  FORMATS,
  INTERPOLATIONS
};

enum SubSection : int { ANY = -1, NONE, ENVELOPE, GRID, NULL_VALUES, AXIS };

enum Name : int {
  UNKNOWN,
  N_ACCESS_CONSTRAINTS,
  N_ADMINISTRATIVE_AREA,
  N_AXIS_DESCRIPTION,
  N_AXIS_NAME,
  N_BEGIN_POSITION,
  N_BRIEF,
  N_CAPABILITIES,
  N_CITY,
  N_CONTENT,
  N_COUNTRY,
  N_CRS,
  N_DEFAULT,
  N_DELIVERY_POINT,
  N_DESCRIPTION,
  N_DOCUMENT,
  N_EMAIL,
  N_END_POSITION,
  N_ENVELOPE,
  N_FACSIMILE,
  N_FEES,
  N_FORMAT,
  N_FORMATS,
  N_GRID,
  N_HIGH,
  N_INDIVIDUAL_NAME,
  N_INTERPOLATION,
  N_INTERPOLATIONS,
  N_INTERVAL,
  N_KEYWORD,
  N_LABEL,
  N_LON_LAT,
  N_LOW,
  N_MAX,
  N_MIN,
  N_NAME,
  N_NATIVE_CRS,
  N_NULL_VALUES,
  N_OFFERING,
  N_OFFSET_VECTOR,
  N_ONLINE_RESOURCE,
  N_ORGANISATION_NAME,
  N_POS,
  N_POSITION_NAME,
  N_POSTAL_CODE,
  N_RANGE_SET,
  N_RECTIFIED_GRID,
  N_REQUEST_CRS,
  N_REQUEST_RESPONSE_CRS,
  N_RES,
  N_RESPONSE_CRS,
  N_SERVICE,
  N_SINGLE_VALUE,
  N_SPATIAL,
  N_TEMPORAL,
  N_TIME_PERIOD,
  N_TIME_POSITION,
  N_TIME_RESOLUTION,
  N_VOICE,
  NAME_COUNT
};

/// Code of an element. Lower-case twins wrap two elements: these two count only as spelled.
Name nameOf(const XMLCh* localname) {
  static const COgcNames names{{"accessConstraints", N_ACCESS_CONSTRAINTS},
                               {"administrativeArea", N_ADMINISTRATIVE_AREA},
                               {"AxisDescription", N_AXIS_DESCRIPTION},
                               {"axisName", N_AXIS_NAME},
                               {"beginPosition", N_BEGIN_POSITION},
                               {"city", N_CITY},
                               {"ContentMetadata", N_CONTENT},
                               {"country", N_COUNTRY},
                               {"CoverageDescription", N_DOCUMENT},
                               {"CoverageOffering", N_OFFERING},
                               {"CoverageOfferingBrief", N_BRIEF},
                               {"default", N_DEFAULT},
                               {"deliveryPoint", N_DELIVERY_POINT},
                               {"description", N_DESCRIPTION},
                               {"electronicMailAddress", N_EMAIL},
                               {"endPosition", N_END_POSITION},
                               {"Envelope", N_ENVELOPE},
                               {"EnvelopeWithTimePeriod", N_ENVELOPE},
                               {"facsimile", N_FACSIMILE},
                               {"fees", N_FEES},
                               {"formats", N_FORMAT},
                               {"Grid", N_GRID},
                               {"high", N_HIGH},
                               {"individualName", N_INDIVIDUAL_NAME},
                               {"interpolationMethod", N_INTERPOLATION},
                               {"interval", N_INTERVAL},
                               {"keyword", N_KEYWORD},
                               {"label", N_LABEL},
                               {"lonLatEnvelope", N_LON_LAT},
                               {"low", N_LOW},
                               {"max", N_MAX},
                               {"min", N_MIN},
                               {"name", N_NAME},
                               {"nativeCRSs", N_NATIVE_CRS},
                               {"nullValues", N_NULL_VALUES},
                               {"offsetVector", N_OFFSET_VECTOR},
                               {"onlineResource", N_ONLINE_RESOURCE},
                               {"organisationName", N_ORGANISATION_NAME},
                               {"pos", N_POS},
                               {"positionName", N_POSITION_NAME},
                               {"postalCode", N_POSTAL_CODE},
                               {"RangeSet", N_RANGE_SET},
                               {"RectifiedGrid", N_RECTIFIED_GRID},
                               {"requestCRSs", N_REQUEST_CRS},
                               {"requestResponseCRSs", N_REQUEST_RESPONSE_CRS},
                               {"res", N_RES},
                               {"responseCRSs", N_RESPONSE_CRS},
                               {"Service", N_SERVICE},
                               {"singleValue", N_SINGLE_VALUE},
                               {"spatialDomain", N_SPATIAL},
                               {"supportedCRSs", N_CRS},
                               {"supportedFormats", N_FORMATS},
                               {"supportedInterpolations", N_INTERPOLATIONS},
                               {"temporalDomain", N_TEMPORAL},
                               {"timePeriod", N_TIME_PERIOD},
                               {"timePosition", N_TIME_POSITION},
                               {"timeResolution", N_TIME_RESOLUTION},
                               {"voice", N_VOICE},
                               {"WCS_Capabilities", N_CAPABILITIES}};
  const auto name = static_cast<Name>(names.find(localname));
  if ((name == N_RANGE_SET && !xercesc::XMLString::equals(localname, u"RangeSet")) ||
      (name == N_AXIS_DESCRIPTION && !xercesc::XMLString::equals(localname, u"AxisDescription"))) {
    return UNKNOWN;
  }
  return name;
}

/// Element that opens a section, or a sub-section within it.
struct Scope {
  Name name;
  int section; ///< NONE: opens nothing
  int subSection = NONE;
};

} // namespace

/// What an element within a section does.
struct COgcWcsSaxHelper::Rule {
  using Action = void (*)(COgcWcsSaxHelper&);
  using Place = const char** (*)(COgcWcsSaxHelper&); ///< null: no record to store into
  struct Attribute {
    const char* name = nullptr; ///< lower case
    Place place = nullptr;
    Place second = nullptr; ///< for an element whose runs of text are counted
  };

  Name name;
  int section;
  int subSection = ANY;
  Action open = nullptr;
  Place text = nullptr;
  int COgcWcsSaxHelper::*runs = nullptr; ///< counts runs of text: the first goes to `text`, the next to `second`
  Place second = nullptr;
  bool names = false; ///< the text holds names for the current list
  std::array<Attribute, 3> attributes{};

  [[nodiscard]] Place choose(const COgcWcsSaxHelper& handler, Place first, Place next) const noexcept {
    if (runs == nullptr || handler.*runs == 0) return first;
    return handler.*runs == 1 ? next : nullptr;
  }
};

/// The tables of one kind of document, ordered for look-up by element name.
struct COgcWcsSaxHelper::Grammar {
  Grammar(Name rootName, std::initializer_list<Scope> scopeTable, std::initializer_list<Rule> ruleTable)
      : root(rootName) {
    for (const Scope& scope : scopeTable) scopes[scope.name] = scope;
    for (const Rule& rule : ruleTable) rules[rule.name].push_back(rule);
  }

  Name root;
  std::array<Scope, NAME_COUNT> scopes{};
  std::array<std::vector<Rule>, NAME_COUNT> rules;
};

struct COgcWcsSaxHelper::Tables {
  using H = COgcWcsSaxHelper;
  template <auto Record>
  using Current = std::remove_pointer_t<std::remove_reference_t<decltype(std::declval<H&>().*Record)>>;

  template <auto Record, auto Text>
  static const char** placeOf(H& h) {
    auto* record = h.*Record;
    return record != nullptr ? &(record->*Text) : nullptr;
  }
  static const char** currentNode(H& h) { return h.pCurNode != nullptr ? &h.pCurNode->str : nullptr; }

  template <typename T>
  static void findTail(WcsList<T>& list) {
    while (list.tail != nullptr && list.tail->next != nullptr) list.tail = list.tail->next;
  }

  /// Adds a node to a list of texts of the current record.
  template <auto Record, auto List>
  static void addNode(H& h) {
    auto* record = h.*Record;
    h.pCurNode = nullptr;
    if (record == nullptr) return;
    WcsTexts& list = record->*List;
    findTail(list);
    h.pCurNode = h.AddStringNode(&list.head, &list.tail);
  }

  /// Adds a record to a list of the current record; it becomes the current one of its kind.
  template <auto Record, auto List, auto Current>
  static void add(H& h) {
    auto* record = h.*Record;
    h.*Current = nullptr;
    if (record == nullptr) return;
    auto& list = record->*List;
    using T = std::remove_reference_t<decltype(*list.head)>;
    h.*Current = h.AddRecord(&list.head, &list.tail, &T::next);
  }

  template <auto Text>
  static constexpr Rule::Place service = placeOf<&H::pCurService, Text>;
  template <auto Text>
  static constexpr Rule::Place brief = placeOf<&H::pCurBrief, Text>;
  template <auto Text>
  static constexpr Rule::Place offering = placeOf<&H::pCurOffering, Text>;
  template <auto Text>
  static constexpr Rule::Place grid = placeOf<&H::pCurGrid, Text>;
  template <auto Text>
  static constexpr Rule::Place position = placeOf<&H::pCurTimePosition, Text>;
  template <auto Text>
  static constexpr Rule::Place period = placeOf<&H::pCurTimePeriod, Text>;
  template <auto Text>
  static constexpr Rule::Place rangeSet = placeOf<&H::pCurRangeSet, Text>;
  template <auto Text>
  static constexpr Rule::Place axis = placeOf<&H::pCurAxis, Text>;
  template <auto Text>
  static constexpr Rule::Place interval = placeOf<&H::pCurInterval, Text>;

  /// The corners of an envelope, wherever its record keeps them.
  template <auto Record>
  static Rule corners(int section, int subSection) {
    using T = Current<Record>;
    return {.name = N_POS,
            .section = section,
            .subSection = subSection,
            .text = placeOf<Record, &T::pos1>,
            .runs = &H::iPosCount,
            .second = placeOf<Record, &T::pos2>,
            .attributes = {{{"dimension", placeOf<Record, &T::pos1Dimension>, placeOf<Record, &T::pos2Dimension>}}}};
  }
  template <auto Record>
  static Rule times(int section, int subSection) {
    using T = Current<Record>;
    return {.name = N_TIME_POSITION,
            .section = section,
            .subSection = subSection,
            .text = placeOf<Record, &T::timePosition1>,
            .runs = &H::iTimePosCount,
            .second = placeOf<Record, &T::timePosition2>};
  }
  template <auto Record, auto List>
  static Rule texts(Name name, int section, int subSection) {
    return {
        .name = name, .section = section, .subSection = subSection, .open = addNode<Record, List>, .text = currentNode};
  }
  template <auto List>
  static Rule crsNames(Name name) {
    return {.name = name, .section = CRS, .open = addNode<&H::pCurCrs, List>, .names = true};
  }

  static void openLonLat(H& h) { h.iPosCount = h.iTimePosCount = 0; }
  static void openEnvelope(H& h) {
    h.iPosCount = h.iTimePosCount = 0;
    add<&H::pCurOffering, &WcsOffering::envelopes, &H::pCurEnvelope>(h);
  }
  static void openGrid(H& h, const char* rectified) {
    add<&H::pCurOffering, &WcsOffering::grids, &H::pCurGrid>(h);
    if (h.pCurGrid != nullptr) h.pCurGrid->rectified = rectified;
  }
  static void openAxis(H& h) {
    add<&H::pCurOffering, &WcsOffering::axes, &H::pCurAxis>(h);
    h.pCurInterval = nullptr;
  }
  static void openNullValues(H& h) { h.pCurInterval = nullptr; }
  static void openBrief(H& h) { static_cast<COgcWcsSaxCapHandler&>(h).OpenBrief(); }
  static void openOffering(H& h) { static_cast<COgcWcsSaxDesCovHandler&>(h).OpenOffering(); }

  static Rule gridRule(Name name, Rule::Action open) {
    return {.name = name,
            .section = SPATIAL,
            .open = open,
            .attributes = {{{"dimension", grid<&WcsGrid::dimension>}, {"srsname", grid<&WcsGrid::srsName>}}}};
  }

  static const Grammar& capabilities();
  static const Grammar& description();
};

const COgcWcsSaxHelper::Grammar& COgcWcsSaxHelper::Tables::capabilities() {
  static const Grammar grammar{
      N_CAPABILITIES,
      {{N_CAPABILITIES, ROOT}, {N_SERVICE, SERVICE}, {N_CONTENT, CONTENT}},
      {
          {.name = N_NAME, .section = SERVICE, .text = service<&WcsService::name>},
          {.name = N_LABEL, .section = SERVICE, .text = service<&WcsService::label>},
          {.name = N_DESCRIPTION, .section = SERVICE, .text = service<&WcsService::description>},
          texts<&H::pCurService, &WcsService::keywords>(N_KEYWORD, SERVICE, ANY),
          {.name = N_INDIVIDUAL_NAME, .section = SERVICE, .text = service<&WcsService::individualName>},
          {.name = N_ORGANISATION_NAME, .section = SERVICE, .text = service<&WcsService::organisationName>},
          {.name = N_POSITION_NAME, .section = SERVICE, .text = service<&WcsService::positionName>},
          {.name = N_VOICE, .section = SERVICE, .text = service<&WcsService::voice>},
          {.name = N_FACSIMILE, .section = SERVICE, .text = service<&WcsService::facsimile>},
          {.name = N_DELIVERY_POINT, .section = SERVICE, .text = service<&WcsService::deliveryPoint>},
          {.name = N_CITY, .section = SERVICE, .text = service<&WcsService::city>},
          {.name = N_ADMINISTRATIVE_AREA, .section = SERVICE, .text = service<&WcsService::administrativeArea>},
          {.name = N_POSTAL_CODE, .section = SERVICE, .text = service<&WcsService::postalCode>},
          {.name = N_COUNTRY, .section = SERVICE, .text = service<&WcsService::country>},
          {.name = N_EMAIL, .section = SERVICE, .text = service<&WcsService::electronicMailAddress>},
          {.name = N_ONLINE_RESOURCE,
           .section = SERVICE,
           .text = service<&WcsService::onlineResource>,
           .attributes = {{{"href", service<&WcsService::onlineResource>}}}},
          {.name = N_FEES, .section = SERVICE, .text = service<&WcsService::fees>},
          {.name = N_ACCESS_CONSTRAINTS, .section = SERVICE, .text = service<&WcsService::accessConstraints>},

          {.name = N_BRIEF, .section = CONTENT, .open = openBrief},
          {.name = N_NAME, .section = CONTENT, .text = brief<&WcsBrief::name>},
          {.name = N_LABEL, .section = CONTENT, .text = brief<&WcsBrief::label>},
          {.name = N_DESCRIPTION, .section = CONTENT, .text = brief<&WcsBrief::description>},
          {.name = N_LON_LAT, .section = CONTENT, .attributes = {{{"srsname", brief<&WcsBrief::lonLatSrsName>}}}},
          corners<&H::pCurBrief>(CONTENT, ANY),
          times<&H::pCurBrief>(CONTENT, ANY),
          texts<&H::pCurBrief, &WcsBrief::keywords>(N_KEYWORD, CONTENT, ANY),
      }};
  return grammar;
}

const COgcWcsSaxHelper::Grammar& COgcWcsSaxHelper::Tables::description() {
  static const Grammar grammar{
      N_DOCUMENT,
      {{N_DOCUMENT, ROOT},
       {N_OFFERING, OFFERING},
       {N_LON_LAT, LON_LAT},
       {N_SPATIAL, SPATIAL},
       {N_ENVELOPE, SPATIAL, ENVELOPE},
       {N_GRID, SPATIAL, GRID},
       {N_RECTIFIED_GRID, SPATIAL, GRID},
       {N_TEMPORAL, TEMPORAL},
       {N_RANGE_SET, RANGE_SET},
       {N_NULL_VALUES, RANGE_SET, NULL_VALUES},
       {N_AXIS_DESCRIPTION, RANGE_SET, AXIS},
       {N_CRS, CRS},
       {N_FORMATS, FORMATS},
       {N_INTERPOLATIONS, INTERPOLATIONS}},
      {
          {.name = N_OFFERING, .section = OFFERING, .open = openOffering},
          {.name = N_DESCRIPTION, .section = OFFERING, .text = offering<&WcsOffering::description>},
          {.name = N_NAME, .section = OFFERING, .text = offering<&WcsOffering::name>},
          {.name = N_LABEL, .section = OFFERING, .text = offering<&WcsOffering::label>},

          {.name = N_LON_LAT,
           .section = LON_LAT,
           .open = openLonLat,
           .attributes = {{{"srsname", placeOf<&H::pCurLonLat, &WcsEnvelope::srsName>}}}},
          corners<&H::pCurLonLat>(LON_LAT, ANY),
          times<&H::pCurLonLat>(LON_LAT, ANY),

          {.name = N_ENVELOPE,
           .section = SPATIAL,
           .open = openEnvelope,
           .attributes = {{{"srsname", placeOf<&H::pCurEnvelope, &WcsEnvelope::srsName>}}}},
          corners<&H::pCurEnvelope>(SPATIAL, ENVELOPE),
          times<&H::pCurEnvelope>(SPATIAL, ENVELOPE),

          gridRule(N_GRID, [](H& h) { openGrid(h, "No"); }),
          gridRule(N_RECTIFIED_GRID, [](H& h) { openGrid(h, "Yes"); }),
          {.name = N_LOW, .section = SPATIAL, .subSection = GRID, .text = grid<&WcsGrid::low>},
          {.name = N_HIGH, .section = SPATIAL, .subSection = GRID, .text = grid<&WcsGrid::high>},
          texts<&H::pCurGrid, &WcsGrid::axisNames>(N_AXIS_NAME, SPATIAL, GRID),
          {.name = N_POS, .section = SPATIAL, .subSection = GRID, .text = grid<&WcsGrid::origin>},
          texts<&H::pCurGrid, &WcsGrid::offsetVectors>(N_OFFSET_VECTOR, SPATIAL, GRID),

          {.name = N_TIME_POSITION,
           .section = TEMPORAL,
           .open = add<&H::pCurOffering, &WcsOffering::timePositions, &H::pCurTimePosition>,
           .text = position<&WcsTimePosition::position>,
           .attributes = {{{"frame", position<&WcsTimePosition::frame>},
                           {"calendareraname", position<&WcsTimePosition::calendarEraName>},
                           {"indeterminateposition", position<&WcsTimePosition::indeterminatePosition>}}}},
          {.name = N_TIME_PERIOD,
           .section = TEMPORAL,
           .open = add<&H::pCurOffering, &WcsOffering::timePeriods, &H::pCurTimePeriod>},
          {.name = N_BEGIN_POSITION,
           .section = TEMPORAL,
           .text = period<&WcsTimePeriod::begin>,
           .attributes = {{{"frame", period<&WcsTimePeriod::frame>},
                           {"calendareraname", period<&WcsTimePeriod::calendarEraName>},
                           {"indeterminateposition", period<&WcsTimePeriod::indeterminatePosition>}}}},
          {.name = N_END_POSITION, .section = TEMPORAL, .text = period<&WcsTimePeriod::end>},
          {.name = N_TIME_RESOLUTION, .section = TEMPORAL, .text = period<&WcsTimePeriod::resolution>},

          {.name = N_DESCRIPTION,
           .section = RANGE_SET,
           .subSection = NONE,
           .text = rangeSet<&WcsRangeSet::description>},
          {.name = N_NAME, .section = RANGE_SET, .subSection = NONE, .text = rangeSet<&WcsRangeSet::name>},
          {.name = N_LABEL, .section = RANGE_SET, .subSection = NONE, .text = rangeSet<&WcsRangeSet::label>},

          {.name = N_NULL_VALUES, .section = RANGE_SET, .open = openNullValues},
          texts<&H::pCurRangeSet, &WcsRangeSet::nullSingleValues>(N_SINGLE_VALUE, RANGE_SET, NULL_VALUES),
          {.name = N_INTERVAL,
           .section = RANGE_SET,
           .subSection = NULL_VALUES,
           .open = add<&H::pCurRangeSet, &WcsRangeSet::nullIntervals, &H::pCurInterval>},

          {.name = N_AXIS_DESCRIPTION, .section = RANGE_SET, .open = openAxis},
          {.name = N_DESCRIPTION, .section = RANGE_SET, .subSection = AXIS, .text = axis<&WcsAxis::description>},
          {.name = N_NAME, .section = RANGE_SET, .subSection = AXIS, .text = axis<&WcsAxis::name>},
          {.name = N_LABEL, .section = RANGE_SET, .subSection = AXIS, .text = axis<&WcsAxis::label>},
          {.name = N_DEFAULT, .section = RANGE_SET, .subSection = AXIS, .text = axis<&WcsAxis::defaultValue>},
          texts<&H::pCurAxis, &WcsAxis::singleValues>(N_SINGLE_VALUE, RANGE_SET, AXIS),
          {.name = N_INTERVAL,
           .section = RANGE_SET,
           .subSection = AXIS,
           .open = add<&H::pCurAxis, &WcsAxis::intervals, &H::pCurInterval>},

          {.name = N_MIN, .section = RANGE_SET, .subSection = NULL_VALUES, .text = interval<&WcsInterval::min>},
          {.name = N_MAX, .section = RANGE_SET, .subSection = NULL_VALUES, .text = interval<&WcsInterval::max>},
          {.name = N_RES, .section = RANGE_SET, .subSection = NULL_VALUES, .text = interval<&WcsInterval::res>},
          {.name = N_MIN, .section = RANGE_SET, .subSection = AXIS, .text = interval<&WcsInterval::min>},
          {.name = N_MAX, .section = RANGE_SET, .subSection = AXIS, .text = interval<&WcsInterval::max>},
          {.name = N_RES, .section = RANGE_SET, .subSection = AXIS, .text = interval<&WcsInterval::res>},

          crsNames<&WcsCrs::requestResponseCRSs>(N_REQUEST_RESPONSE_CRS),
          crsNames<&WcsCrs::requestCRSs>(N_REQUEST_CRS),
          crsNames<&WcsCrs::responseCRSs>(N_RESPONSE_CRS),
          crsNames<&WcsCrs::nativeCRSs>(N_NATIVE_CRS),

          {.name = N_FORMATS,
           .section = FORMATS,
           .attributes = {{{"nativeformat", offering<&WcsOffering::nativeFormat>}}}},
          {.name = N_FORMAT,
           .section = FORMATS,
           .open = addNode<&H::pCurOffering, &WcsOffering::formats>,
           .names = true},

          {.name = N_INTERPOLATIONS,
           .section = INTERPOLATIONS,
           .attributes = {{{"default", offering<&WcsOffering::defaultInterpolation>}}}},
          texts<&H::pCurOffering, &WcsOffering::interpolationMethods>(N_INTERPOLATION, INTERPOLATIONS, ANY),
      }};
  return grammar;
}

COgcWcsSaxHelper::COgcWcsSaxHelper(COgcBase& owner, COgcArena& arena, const Grammar& grammar)
    : COgcSaxHelper(owner, arena, wcsVersions), m_grammar(grammar) {}

void COgcWcsSaxHelper::startElement(const XMLCh*, const XMLCh* localname, const XMLCh*,
                                    const xercesc::Attributes& attrs) {
  if (ExceptionStart(localname, attrs)) return;
  const Name name = nameOf(localname);
  const Scope& scope = m_grammar.scopes[name];
  if (scope.subSection != NONE) {
    if (iSection == scope.section) iSubSection = scope.subSection;
  } else if (scope.section != NONE && iSection != scope.section) {
    iSection = scope.section;
    pCurNode = nullptr;
  }
  if (iSection == ROOT && name == m_grammar.root) HandleVersion(attrs);
  if (iSection == SERVICE && name != N_SERVICE) OpenService();

  for (const Rule& rule : m_grammar.rules[name]) {
    if (rule.section != iSection || (rule.subSection != ANY && rule.subSection != iSubSection)) continue;
    if (rule.open != nullptr) rule.open(*this);
    for (const Rule::Attribute& attribute : rule.attributes) {
      const Rule::Place place = rule.choose(*this, attribute.place, attribute.second);
      const char** text = place != nullptr ? place(*this) : nullptr;
      if (text != nullptr) GetAttributes(attrs, attribute.name, text);
    }
    if (rule.text == nullptr && !rule.names) return;
    m_collecting = &rule;
    iElement = 0;
    return;
  }
}

void COgcWcsSaxHelper::characters(const XMLCh* chars, XMLSize_t length) {
  if (ExceptionText(chars, length) || m_collecting == nullptr) return;
  const Rule& rule = *m_collecting;
  if (rule.names) {
    if (pCurNode != nullptr) ParseConcatenatedValues(m_utf8(chars, length), 1);
    return;
  }
  const Rule::Place place = rule.choose(*this, rule.text, rule.second);
  if (rule.runs != nullptr) ++(this->*rule.runs);
  const char** text = place != nullptr ? place(*this) : nullptr;
  if (text != nullptr) AppendStrings(text, m_utf8(chars, length), 0, 0);
}

void COgcWcsSaxHelper::endElement(const XMLCh*, const XMLCh* localname, const XMLCh*) {
  m_collecting = nullptr;
  if (ExceptionEnd(localname)) return;
  const Scope& scope = m_grammar.scopes[nameOf(localname)];
  if (scope.section == NONE || iSection != scope.section) return;
  if (scope.subSection == NONE) iSection = NONE;
  iSubSection = NONE;
  pCurNode = nullptr;
}

template <typename T>
void COgcWcsSaxHelper::AddOffering(T** head, T** current, int* count) {
  AddRecord(head, current, &T::next);
  (*current)->index = m_arena.copy(std::to_string((*count)++).substr(0, indexTextLimit));
  (*current)->version = szVersion;
  (*current)->updateSequence = szUpdateSequence;
  pCurNode = nullptr;
  m_collecting = nullptr;
}

COgcWcsSaxCapHandler::COgcWcsSaxCapHandler(COgcBase& owner, WcsCapabilities& document)
    : COgcWcsSaxHelper(owner, document.arena, Tables::capabilities()), m_document(document) {}

void COgcWcsSaxCapHandler::OpenService() {
  if (pCurService == nullptr) pCurService = m_document.pService = m_arena.make<WcsService>();
}

void COgcWcsSaxCapHandler::OpenBrief() {
  AddOffering(&m_document.pBriefHead, &pCurBrief, &m_document.iBriefCount);
  iPosCount = 0;
}

COgcWcsSaxDesCovHandler::COgcWcsSaxDesCovHandler(COgcBase& owner, WcsDescription& document)
    : COgcWcsSaxHelper(owner, document.arena, Tables::description()), m_document(document) {}

void COgcWcsSaxDesCovHandler::OpenOffering() {
  AddOffering(&m_document.pCovOfferingHead, &pCurOffering, &m_document.iCovOfferingCount);
  pCurLonLat = &pCurOffering->lonLatEnvelope;
  pCurRangeSet = &pCurOffering->rangeSet;
  pCurCrs = &pCurOffering->crs;
  pCurEnvelope = nullptr;
  pCurGrid = nullptr;
  pCurTimePosition = nullptr;
  pCurTimePeriod = nullptr;
  pCurAxis = nullptr;
  pCurInterval = nullptr;
}

#include "zel_ogcwcs_sax.h"

#include <string>
#include <type_traits>

namespace ogc {

namespace {

using xml::Attribute;
using xml::VersionRule;

constexpr std::size_t indexTextLimit = 7;
constexpr const char* supportedVersions[] = {"1.0.0"};
constexpr VersionRule wcsVersions{
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

enum Group : int { NONE, ENVELOPE, GRID, NULL_VALUES, AXIS };

using H = COgcWcsSaxHelper;
using Attributes = xercesc::Attributes;
using Grammar = xml::Grammar<H>;
using Rule = Grammar::Rule;
using Acts = xml::Acts<H>;

template <auto Record>
using Of = std::remove_pointer_t<std::remove_reference_t<decltype(std::declval<H&>().*Record)>>;

constexpr Attribute<WcsService> onlineAttributes[] = {{"href", &WcsService::onlineResource}};
constexpr Attribute<WcsBrief> briefEnvelopeAttributes[] = {{"srsname", &WcsBrief::lonLatSrsName}};
constexpr Attribute<WcsEnvelope> envelopeAttributes[] = {{"srsname", &WcsEnvelope::srsName}};
constexpr Attribute<WcsGrid> gridAttributes[] = {{"dimension", &WcsGrid::dimension}, {"srsname", &WcsGrid::srsName}};
template <typename T>
constexpr Attribute<T> timeAttributes[] = {{"frame", &T::frame},
                                           {"calendareraname", &T::calendarEraName},
                                           {"indeterminateposition", &T::indeterminatePosition}};
constexpr Attribute<WcsOffering> formatsAttributes[] = {{"nativeformat", &WcsOffering::nativeFormat}};
constexpr Attribute<WcsOffering> interpolationAttributes[] = {{"default", &WcsOffering::defaultInterpolation}};

void version(H& h, const Attributes& attrs) { h.checkVersion(attrs); }
void openService(H& h, const Attributes&) { h.openService(); }
void openBrief(H& h, const Attributes&) { h.openBrief(); }
void openOffering(H& h, const Attributes&) { h.openOffering(); }
void resetCounts(H& h, const Attributes&) { h.posCount = h.timePosCount = 0; }

/// The text is an entry of a list of texts.
template <auto Record, auto List>
void entry(H& h, const Attributes&) {
  auto* record = h.*Record;
  if (record != nullptr) h.appendText(&(record->*List).head, &(record->*List).tail);
}
/// The text holds names for a list.
template <auto Record, auto List>
void names(H& h, const Attributes& attrs) {
  entry<Record, List>(h, attrs);
  if (h.*Record != nullptr) h.collectNames();
}
/// A record of a list; it becomes the current one of its kind.
template <auto Record, auto List, auto Current>
void add(H& h, const Attributes&) {
  auto* record = h.*Record;
  h.*Current = nullptr;
  if (record != nullptr) h.append(&(record->*List).head, &(record->*List).tail, &Of<Current>::next);
  if (record != nullptr) h.*Current = (record->*List).tail;
}
/// A corner of an envelope, wherever its record keeps them.
template <auto Record>
void corner(H& h, const Attributes& attrs) {
  using T = Of<Record>;
  auto* record = h.*Record;
  static constexpr Attribute<T> dimensions[] = {{"dimension", &T::pos1Dimension}, {"dimension", &T::pos2Dimension}};
  if (record != nullptr && h.posCount < 2) h.store(std::array{dimensions[h.posCount]}, *record, attrs);
  h.collectRuns(record != nullptr ? &record->pos1 : nullptr, record != nullptr ? &record->pos2 : nullptr, &h.posCount);
}
template <auto Record>
void time(H& h, const Attributes&) {
  auto* record = h.*Record;
  h.collectRuns(record != nullptr ? &record->timePosition1 : nullptr,
                record != nullptr ? &record->timePosition2 : nullptr, &h.timePosCount);
}
void openEnvelope(H& h, const Attributes& attrs) {
  resetCounts(h, attrs);
  add<&H::offering, &WcsOffering::envelopes, &H::envelope>(h, attrs);
  Acts::attributes<&H::envelope, envelopeAttributes>(h, attrs);
}
constexpr char no[] = "No", yes[] = "Yes";
template <const auto& Rectified>
void openGrid(H& h, const Attributes& attrs) {
  add<&H::offering, &WcsOffering::grids, &H::grid>(h, attrs);
  if (h.grid != nullptr) h.grid->rectified = Rectified;
  Acts::attributes<&H::grid, gridAttributes>(h, attrs);
}
template <auto Field>
constexpr Grammar::Act service = Acts::all<openService, Acts::text<&H::service, Field>>;
template <auto Field>
constexpr Grammar::Act brief = Acts::text<&H::brief, Field>;
template <auto Field>
constexpr Grammar::Act offering = Acts::text<&H::offering, Field>;
template <auto Field>
constexpr Grammar::Act grid = Acts::text<&H::grid, Field>;
template <auto Field>
constexpr Grammar::Act period = Acts::text<&H::timePeriod, Field>;
template <auto Field>
constexpr Grammar::Act range = Acts::text<&H::rangeSet, Field>;
template <auto Field>
constexpr Grammar::Act axis = Acts::text<&H::axis, Field>;
template <auto Field>
constexpr Grammar::Act interval = Acts::text<&H::interval, Field>;

const Grammar& capabilitiesGrammar() {
  static const Grammar grammar{
      {"WCS_Capabilities", {}, version, {ROOT, 0, 0}},

      {"Service", {}, nullptr, {SERVICE, 0, 0}},
      {"*", {SERVICE}, openService},
      {"name", {SERVICE}, service<&WcsService::name>},
      {"label", {SERVICE}, service<&WcsService::label>},
      {"description", {SERVICE}, service<&WcsService::description>},
      {"keyword", {SERVICE}, Acts::all<openService, entry<&H::service, &WcsService::keywords>>},
      {"individualName", {SERVICE}, service<&WcsService::individualName>},
      {"organisationName", {SERVICE}, service<&WcsService::organisationName>},
      {"positionName", {SERVICE}, service<&WcsService::positionName>},
      {"voice", {SERVICE}, service<&WcsService::voice>},
      {"facsimile", {SERVICE}, service<&WcsService::facsimile>},
      {"deliveryPoint", {SERVICE}, service<&WcsService::deliveryPoint>},
      {"city", {SERVICE}, service<&WcsService::city>},
      {"administrativeArea", {SERVICE}, service<&WcsService::administrativeArea>},
      {"postalCode", {SERVICE}, service<&WcsService::postalCode>},
      {"country", {SERVICE}, service<&WcsService::country>},
      {"electronicMailAddress", {SERVICE}, service<&WcsService::electronicMailAddress>},
      {"onlineResource",
       {SERVICE},
       Acts::all<service<&WcsService::onlineResource>, Acts::attributes<&H::service, onlineAttributes>>},
      {"fees", {SERVICE}, service<&WcsService::fees>},
      {"accessConstraints", {SERVICE}, service<&WcsService::accessConstraints>},

      {"ContentMetadata", {}, nullptr, {CONTENT, 0, 0}},
      {"CoverageOfferingBrief", {CONTENT}, openBrief},
      {"name", {CONTENT}, brief<&WcsBrief::name>},
      {"label", {CONTENT}, brief<&WcsBrief::label>},
      {"description", {CONTENT}, brief<&WcsBrief::description>},
      {"lonLatEnvelope", {CONTENT}, Acts::attributes<&H::brief, briefEnvelopeAttributes>},
      {"pos", {CONTENT}, corner<&H::brief>},
      {"timePosition", {CONTENT}, time<&H::brief>},
      {"keyword", {CONTENT}, entry<&H::brief, &WcsBrief::keywords>},
  };
  return grammar;
}

const Grammar& descriptionGrammar() {
  static const Grammar grammar{
      {"CoverageDescription", {}, version, {ROOT, 0, 0}},

      {"CoverageOffering", {}, openOffering, {OFFERING, 0, 0}},
      {"description", {OFFERING}, offering<&WcsOffering::description>},
      {"name", {OFFERING}, offering<&WcsOffering::name>},
      {"label", {OFFERING}, offering<&WcsOffering::label>},

      {"lonLatEnvelope", {}, Acts::all<resetCounts, Acts::attributes<&H::lonLat, envelopeAttributes>>, {LON_LAT, 0, 0}},
      {"pos", {LON_LAT}, corner<&H::lonLat>},
      {"timePosition", {LON_LAT}, time<&H::lonLat>},

      {"spatialDomain", {}, nullptr, {SPATIAL, 0, 0}},
      {"Envelope", {SPATIAL}, openEnvelope, {0, ENVELOPE, 0}},
      {"EnvelopeWithTimePeriod", {SPATIAL}, openEnvelope, {0, ENVELOPE, 0}},
      {"pos", {SPATIAL, ENVELOPE}, corner<&H::envelope>},
      {"timePosition", {SPATIAL, ENVELOPE}, time<&H::envelope>},
      {"Grid", {SPATIAL}, openGrid<no>, {0, GRID, 0}},
      {"RectifiedGrid", {SPATIAL}, openGrid<yes>, {0, GRID, 0}},
      {"low", {SPATIAL, GRID}, grid<&WcsGrid::low>},
      {"high", {SPATIAL, GRID}, grid<&WcsGrid::high>},
      {"axisName", {SPATIAL, GRID}, entry<&H::grid, &WcsGrid::axisNames>},
      {"pos", {SPATIAL, GRID}, grid<&WcsGrid::origin>},
      {"offsetVector", {SPATIAL, GRID}, entry<&H::grid, &WcsGrid::offsetVectors>},

      {"temporalDomain", {}, nullptr, {TEMPORAL, 0, 0}},
      {"timePosition",
       {TEMPORAL},
       Acts::all<add<&H::offering, &WcsOffering::timePositions, &H::timePosition>,
                 Acts::attributes<&H::timePosition, timeAttributes<WcsTimePosition>>,
                 Acts::text<&H::timePosition, &WcsTimePosition::position>>},
      {"timePeriod", {TEMPORAL}, add<&H::offering, &WcsOffering::timePeriods, &H::timePeriod>},
      {"beginPosition",
       {TEMPORAL},
       Acts::all<Acts::attributes<&H::timePeriod, timeAttributes<WcsTimePeriod>>, period<&WcsTimePeriod::begin>>},
      {"endPosition", {TEMPORAL}, period<&WcsTimePeriod::end>},
      {"timeResolution", {TEMPORAL}, period<&WcsTimePeriod::resolution>},

      {.name = "RangeSet", .in = {}, .opens = {RANGE_SET, 0, 0}, .exact = true},
      {"description", {RANGE_SET, NONE}, range<&WcsRangeSet::description>},
      {"name", {RANGE_SET, NONE}, range<&WcsRangeSet::name>},
      {"label", {RANGE_SET, NONE}, range<&WcsRangeSet::label>},
      {"nullValues", {RANGE_SET}, Acts::forget<&H::interval>, {0, NULL_VALUES, 0}},
      {"singleValue", {RANGE_SET, NULL_VALUES}, entry<&H::rangeSet, &WcsRangeSet::nullSingleValues>},
      {"interval", {RANGE_SET, NULL_VALUES}, add<&H::rangeSet, &WcsRangeSet::nullIntervals, &H::interval>},
      {"min", {RANGE_SET, NULL_VALUES}, interval<&WcsInterval::min>},
      {"max", {RANGE_SET, NULL_VALUES}, interval<&WcsInterval::max>},
      {"res", {RANGE_SET, NULL_VALUES}, interval<&WcsInterval::res>},
      {.name = "AxisDescription",
       .in = {RANGE_SET},
       .act = Acts::all<add<&H::offering, &WcsOffering::axes, &H::axis>, Acts::forget<&H::interval>>,
       .opens = {0, AXIS, 0},
       .exact = true},
      {"description", {RANGE_SET, AXIS}, axis<&WcsAxis::description>},
      {"name", {RANGE_SET, AXIS}, axis<&WcsAxis::name>},
      {"label", {RANGE_SET, AXIS}, axis<&WcsAxis::label>},
      {"default", {RANGE_SET, AXIS}, axis<&WcsAxis::defaultValue>},
      {"singleValue", {RANGE_SET, AXIS}, entry<&H::axis, &WcsAxis::singleValues>},
      {"interval", {RANGE_SET, AXIS}, add<&H::axis, &WcsAxis::intervals, &H::interval>},
      {"min", {RANGE_SET, AXIS}, interval<&WcsInterval::min>},
      {"max", {RANGE_SET, AXIS}, interval<&WcsInterval::max>},
      {"res", {RANGE_SET, AXIS}, interval<&WcsInterval::res>},

      {"supportedCRSs", {}, nullptr, {CRS, 0, 0}},
      {"requestResponseCRSs", {CRS}, names<&H::crs, &WcsCrs::requestResponseCRSs>},
      {"requestCRSs", {CRS}, names<&H::crs, &WcsCrs::requestCRSs>},
      {"responseCRSs", {CRS}, names<&H::crs, &WcsCrs::responseCRSs>},
      {"nativeCRSs", {CRS}, names<&H::crs, &WcsCrs::nativeCRSs>},

      {"supportedFormats", {}, Acts::attributes<&H::offering, formatsAttributes>, {FORMATS, 0, 0}},
      {"formats", {FORMATS}, names<&H::offering, &WcsOffering::formats>},

      {"supportedInterpolations", {}, Acts::attributes<&H::offering, interpolationAttributes>, {INTERPOLATIONS, 0, 0}},
      {"interpolationMethod", {INTERPOLATIONS}, entry<&H::offering, &WcsOffering::interpolationMethods>},
  };
  return grammar;
}

} // namespace

} // namespace ogc

COgcWcsSaxHelper::COgcWcsSaxHelper(ogc::xml::Reporter& reporter, ogc::WcsCapabilities& document)
    : RuleHandler(reporter, document.arena, ogc::wcsVersions, ogc::capabilitiesGrammar()),
      capabilities(&document),
      description(nullptr) {}

COgcWcsSaxHelper::COgcWcsSaxHelper(ogc::xml::Reporter& reporter, ogc::WcsDescription& document)
    : RuleHandler(reporter, document.arena, ogc::wcsVersions, ogc::descriptionGrammar()),
      capabilities(nullptr),
      description(&document) {}

template <typename T>
void COgcWcsSaxHelper::addOffering(T** head, T** current, std::int64_t* count) {
  addRecord(head, current, &T::next);
  (*current)->index = m_arena.copy(std::to_string((*count)++).substr(0, ogc::indexTextLimit));
  (*current)->version = szVersion;
  (*current)->updateSequence = szUpdateSequence;
  pCurNode = nullptr;
  collect(nullptr);
}

void COgcWcsSaxHelper::openService() {
  if (service == nullptr) service = capabilities->pService = m_arena.make<ogc::WcsService>();
}

void COgcWcsSaxHelper::openBrief() {
  addOffering(&capabilities->pBriefHead, &brief, &capabilities->iBriefCount);
  posCount = 0;
}

void COgcWcsSaxHelper::openOffering() {
  addOffering(&description->pCovOfferingHead, &offering, &description->iCovOfferingCount);
  lonLat = &offering->lonLatEnvelope;
  rangeSet = &offering->rangeSet;
  crs = &offering->crs;
  envelope = nullptr;
  grid = nullptr;
  timePosition = nullptr;
  timePeriod = nullptr;
  axis = nullptr;
  interval = nullptr;
}

#include "zel_ogcwcs_sax.h"

#include <string>

using namespace ogc;

namespace {

using xml::Attribute;
using xml::VersionRule;

constexpr std::size_t indexTextLimit = 7;
constexpr const char* supportedVersions[] = {"1.0.0"};
constexpr VersionRule wcsVersions{
    supportedVersions, "Error: The WCS_Capabilities Version number attribute is missing.",
    "Error: OGC WCS version number (%s) is not supported. This WCS Client supports OGC WCS version 1.0.0."};

enum Section : int {
  inRoot = 1001,
  inService,
  inContent,
  inOffering,
  inLonLat,
  inSpatial,
  inTemporal,
  inRangeSet,
  inCrs,
  inFormats,
  inInterpolations
};

enum Group : int { inNoGroup, inEnvelope, inGrid, inNullValues, inAxis };

using H = COgcWcsSaxHelper;
using Attributes = xercesc::Attributes;
using Grammar = xml::Grammar<H>;
using Rule = Grammar::Rule;
using Acts = xml::Acts<H>;

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

void version(H& h, const Attributes& attrs) { h.HandleVersion(attrs); }
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
  if (record != nullptr) h.addRecord(&(record->*List).head, &(record->*List).tail, &Acts::Of<Current>::next);
  if (record != nullptr) h.*Current = (record->*List).tail;
}
/// A corner of an envelope, wherever its record keeps them.
template <auto Record>
void corner(H& h, const Attributes& attrs) {
  using T = Acts::Of<Record>;
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
      {"WCS_Capabilities", {}, version, {inRoot}},

      {"Service", {}, nullptr, {inService}},
      {"*", {inService}, openService},
      {"name", {inService}, service<&WcsService::name>},
      {"label", {inService}, service<&WcsService::label>},
      {"description", {inService}, service<&WcsService::description>},
      {"keyword", {inService}, Acts::all<openService, entry<&H::service, &WcsService::keywords>>},
      {"individualName", {inService}, service<&WcsService::individualName>},
      {"organisationName", {inService}, service<&WcsService::organisationName>},
      {"positionName", {inService}, service<&WcsService::positionName>},
      {"voice", {inService}, service<&WcsService::voice>},
      {"facsimile", {inService}, service<&WcsService::facsimile>},
      {"deliveryPoint", {inService}, service<&WcsService::deliveryPoint>},
      {"city", {inService}, service<&WcsService::city>},
      {"administrativeArea", {inService}, service<&WcsService::administrativeArea>},
      {"postalCode", {inService}, service<&WcsService::postalCode>},
      {"country", {inService}, service<&WcsService::country>},
      {"electronicMailAddress", {inService}, service<&WcsService::electronicMailAddress>},
      {"onlineResource",
       {inService},
       Acts::all<service<&WcsService::onlineResource>, Acts::attributes<&H::service, onlineAttributes>>},
      {"fees", {inService}, service<&WcsService::fees>},
      {"accessConstraints", {inService}, service<&WcsService::accessConstraints>},

      {"ContentMetadata", {}, nullptr, {inContent}},
      {"CoverageOfferingBrief", {inContent}, openBrief},
      {"name", {inContent}, brief<&WcsBrief::name>},
      {"label", {inContent}, brief<&WcsBrief::label>},
      {"description", {inContent}, brief<&WcsBrief::description>},
      {"lonLatEnvelope", {inContent}, Acts::attributes<&H::brief, briefEnvelopeAttributes>},
      {"pos", {inContent}, corner<&H::brief>},
      {"timePosition", {inContent}, time<&H::brief>},
      {"keyword", {inContent}, entry<&H::brief, &WcsBrief::keywords>},
  };
  return grammar;
}

const Grammar& descriptionGrammar() {
  static const Grammar grammar{
      {"CoverageDescription", {}, version, {inRoot}},

      {"CoverageOffering", {}, openOffering, {inOffering}},
      {"description", {inOffering}, offering<&WcsOffering::description>},
      {"name", {inOffering}, offering<&WcsOffering::name>},
      {"label", {inOffering}, offering<&WcsOffering::label>},

      {"lonLatEnvelope", {}, Acts::all<resetCounts, Acts::attributes<&H::lonLat, envelopeAttributes>>, {inLonLat}},
      {"pos", {inLonLat}, corner<&H::lonLat>},
      {"timePosition", {inLonLat}, time<&H::lonLat>},

      {"spatialDomain", {}, nullptr, {inSpatial}},
      {"Envelope", {inSpatial}, openEnvelope, {0, inEnvelope}},
      {"EnvelopeWithTimePeriod", {inSpatial}, openEnvelope, {0, inEnvelope}},
      {"pos", {inSpatial, inEnvelope}, corner<&H::envelope>},
      {"timePosition", {inSpatial, inEnvelope}, time<&H::envelope>},
      {"Grid", {inSpatial}, openGrid<no>, {0, inGrid}},
      {"RectifiedGrid", {inSpatial}, openGrid<yes>, {0, inGrid}},
      {"low", {inSpatial, inGrid}, grid<&WcsGrid::low>},
      {"high", {inSpatial, inGrid}, grid<&WcsGrid::high>},
      {"axisName", {inSpatial, inGrid}, entry<&H::grid, &WcsGrid::axisNames>},
      {"pos", {inSpatial, inGrid}, grid<&WcsGrid::origin>},
      {"offsetVector", {inSpatial, inGrid}, entry<&H::grid, &WcsGrid::offsetVectors>},

      {"temporalDomain", {}, nullptr, {inTemporal}},
      {"timePosition",
       {inTemporal},
       Acts::all<add<&H::offering, &WcsOffering::timePositions, &H::timePosition>,
                 Acts::attributes<&H::timePosition, timeAttributes<WcsTimePosition>>,
                 Acts::text<&H::timePosition, &WcsTimePosition::position>>},
      {"timePeriod", {inTemporal}, add<&H::offering, &WcsOffering::timePeriods, &H::timePeriod>},
      {"beginPosition",
       {inTemporal},
       Acts::all<Acts::attributes<&H::timePeriod, timeAttributes<WcsTimePeriod>>, period<&WcsTimePeriod::begin>>},
      {"endPosition", {inTemporal}, period<&WcsTimePeriod::end>},
      {"timeResolution", {inTemporal}, period<&WcsTimePeriod::resolution>},

      {.name = "RangeSet", .in = {}, .opens = {inRangeSet}, .exact = true},
      {"description", {inRangeSet, inNoGroup}, range<&WcsRangeSet::description>},
      {"name", {inRangeSet, inNoGroup}, range<&WcsRangeSet::name>},
      {"label", {inRangeSet, inNoGroup}, range<&WcsRangeSet::label>},
      {"nullValues", {inRangeSet}, Acts::forget<&H::interval>, {0, inNullValues}},
      {"singleValue", {inRangeSet, inNullValues}, entry<&H::rangeSet, &WcsRangeSet::nullSingleValues>},
      {"interval", {inRangeSet, inNullValues}, add<&H::rangeSet, &WcsRangeSet::nullIntervals, &H::interval>},
      {"min", {inRangeSet, inNullValues}, interval<&WcsInterval::min>},
      {"max", {inRangeSet, inNullValues}, interval<&WcsInterval::max>},
      {"res", {inRangeSet, inNullValues}, interval<&WcsInterval::res>},
      {.name = "AxisDescription",
       .in = {inRangeSet},
       .act = Acts::all<add<&H::offering, &WcsOffering::axes, &H::axis>, Acts::forget<&H::interval>>,
       .opens = {0, inAxis},
       .exact = true},
      {"description", {inRangeSet, inAxis}, axis<&WcsAxis::description>},
      {"name", {inRangeSet, inAxis}, axis<&WcsAxis::name>},
      {"label", {inRangeSet, inAxis}, axis<&WcsAxis::label>},
      {"default", {inRangeSet, inAxis}, axis<&WcsAxis::defaultValue>},
      {"singleValue", {inRangeSet, inAxis}, entry<&H::axis, &WcsAxis::singleValues>},
      {"interval", {inRangeSet, inAxis}, add<&H::axis, &WcsAxis::intervals, &H::interval>},
      {"min", {inRangeSet, inAxis}, interval<&WcsInterval::min>},
      {"max", {inRangeSet, inAxis}, interval<&WcsInterval::max>},
      {"res", {inRangeSet, inAxis}, interval<&WcsInterval::res>},

      {"supportedCRSs", {}, nullptr, {inCrs}},
      {"requestResponseCRSs", {inCrs}, names<&H::crs, &WcsCrs::requestResponseCRSs>},
      {"requestCRSs", {inCrs}, names<&H::crs, &WcsCrs::requestCRSs>},
      {"responseCRSs", {inCrs}, names<&H::crs, &WcsCrs::responseCRSs>},
      {"nativeCRSs", {inCrs}, names<&H::crs, &WcsCrs::nativeCRSs>},

      {"supportedFormats", {}, Acts::attributes<&H::offering, formatsAttributes>, {inFormats}},
      {"formats", {inFormats}, names<&H::offering, &WcsOffering::formats>},

      {"supportedInterpolations", {}, Acts::attributes<&H::offering, interpolationAttributes>, {inInterpolations}},
      {"interpolationMethod", {inInterpolations}, entry<&H::offering, &WcsOffering::interpolationMethods>},
  };
  return grammar;
}

} // namespace

COgcWcsSaxHelper::COgcWcsSaxHelper(xml::Reporter& reporter, WcsCapabilities& document)
    : RuleHandler(reporter, document.arena, wcsVersions, capabilitiesGrammar()),
      capabilities(&document),
      description(nullptr) {}

COgcWcsSaxHelper::COgcWcsSaxHelper(xml::Reporter& reporter, WcsDescription& document)
    : RuleHandler(reporter, document.arena, wcsVersions, descriptionGrammar()),
      capabilities(nullptr),
      description(&document) {}

template <typename T>
void COgcWcsSaxHelper::addOffering(T** head, T** current, std::int64_t* count) {
  addRecord(head, current, &T::next);
  (*current)->index = m_arena.copy(std::to_string((*count)++).substr(0, indexTextLimit));
  (*current)->version = szVersion;
  (*current)->updateSequence = szUpdateSequence;
  pCurNode = nullptr;
  collect(nullptr);
}

void COgcWcsSaxHelper::openService() {
  if (service == nullptr) service = capabilities->pService = m_arena.make<WcsService>();
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

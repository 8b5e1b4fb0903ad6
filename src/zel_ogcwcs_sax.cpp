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
      {"WCS_Capabilities", "", version, "root"},

      {"Service", "", nullptr, "Service"},
      {"*", "Service", openService},
      {"name", "Service", service<&WcsService::name>},
      {"label", "Service", service<&WcsService::label>},
      {"description", "Service", service<&WcsService::description>},
      {"keyword", "Service", Acts::all<openService, entry<&H::service, &WcsService::keywords>>},
      {"individualName", "Service", service<&WcsService::individualName>},
      {"organisationName", "Service", service<&WcsService::organisationName>},
      {"positionName", "Service", service<&WcsService::positionName>},
      {"voice", "Service", service<&WcsService::voice>},
      {"facsimile", "Service", service<&WcsService::facsimile>},
      {"deliveryPoint", "Service", service<&WcsService::deliveryPoint>},
      {"city", "Service", service<&WcsService::city>},
      {"administrativeArea", "Service", service<&WcsService::administrativeArea>},
      {"postalCode", "Service", service<&WcsService::postalCode>},
      {"country", "Service", service<&WcsService::country>},
      {"electronicMailAddress", "Service", service<&WcsService::electronicMailAddress>},
      {"onlineResource", "Service",
       Acts::all<service<&WcsService::onlineResource>, Acts::attributes<&H::service, onlineAttributes>>},
      {"fees", "Service", service<&WcsService::fees>},
      {"accessConstraints", "Service", service<&WcsService::accessConstraints>},

      {"ContentMetadata", "", nullptr, "ContentMetadata"},
      {"CoverageOfferingBrief", "ContentMetadata", openBrief},
      {"name", "ContentMetadata", brief<&WcsBrief::name>},
      {"label", "ContentMetadata", brief<&WcsBrief::label>},
      {"description", "ContentMetadata", brief<&WcsBrief::description>},
      {"lonLatEnvelope", "ContentMetadata", Acts::attributes<&H::brief, briefEnvelopeAttributes>},
      {"pos", "ContentMetadata", corner<&H::brief>},
      {"timePosition", "ContentMetadata", time<&H::brief>},
      {"keyword", "ContentMetadata", entry<&H::brief, &WcsBrief::keywords>},
  };
  return grammar;
}

const Grammar& descriptionGrammar() {
  static const Grammar grammar{
      {"CoverageDescription", "", version, "root"},

      {"CoverageOffering", "", openOffering, "CoverageOffering"},
      {"description", "CoverageOffering", offering<&WcsOffering::description>},
      {"name", "CoverageOffering", offering<&WcsOffering::name>},
      {"label", "CoverageOffering", offering<&WcsOffering::label>},

      {"lonLatEnvelope", "", Acts::all<resetCounts, Acts::attributes<&H::lonLat, envelopeAttributes>>,
       "lonLatEnvelope"},
      {"pos", "lonLatEnvelope", corner<&H::lonLat>},
      {"timePosition", "lonLatEnvelope", time<&H::lonLat>},

      {"spatialDomain", "", nullptr, "spatialDomain"},
      {"Envelope", "spatialDomain", openEnvelope, "/Envelope"},
      {"EnvelopeWithTimePeriod", "spatialDomain", openEnvelope, "/Envelope"},
      {"pos", "spatialDomain/Envelope", corner<&H::envelope>},
      {"timePosition", "spatialDomain/Envelope", time<&H::envelope>},
      {"Grid", "spatialDomain", openGrid<no>, "/Grid"},
      {"RectifiedGrid", "spatialDomain", openGrid<yes>, "/Grid"},
      {"low", "spatialDomain/Grid", grid<&WcsGrid::low>},
      {"high", "spatialDomain/Grid", grid<&WcsGrid::high>},
      {"axisName", "spatialDomain/Grid", entry<&H::grid, &WcsGrid::axisNames>},
      {"pos", "spatialDomain/Grid", grid<&WcsGrid::origin>},
      {"offsetVector", "spatialDomain/Grid", entry<&H::grid, &WcsGrid::offsetVectors>},

      {"temporalDomain", "", nullptr, "temporalDomain"},
      {"timePosition", "temporalDomain",
       Acts::all<add<&H::offering, &WcsOffering::timePositions, &H::timePosition>,
                 Acts::attributes<&H::timePosition, timeAttributes<WcsTimePosition>>,
                 Acts::text<&H::timePosition, &WcsTimePosition::position>>},
      {"timePeriod", "temporalDomain", add<&H::offering, &WcsOffering::timePeriods, &H::timePeriod>},
      {"beginPosition", "temporalDomain",
       Acts::all<Acts::attributes<&H::timePeriod, timeAttributes<WcsTimePeriod>>, period<&WcsTimePeriod::begin>>},
      {"endPosition", "temporalDomain", period<&WcsTimePeriod::end>},
      {"timeResolution", "temporalDomain", period<&WcsTimePeriod::resolution>},

      {.name = "RangeSet", .in = "", .opens = "RangeSet", .exact = true},
      {"description", "RangeSet/-", range<&WcsRangeSet::description>},
      {"name", "RangeSet/-", range<&WcsRangeSet::name>},
      {"label", "RangeSet/-", range<&WcsRangeSet::label>},
      {"nullValues", "RangeSet", Acts::forget<&H::interval>, "/nullValues"},
      {"singleValue", "RangeSet/nullValues", entry<&H::rangeSet, &WcsRangeSet::nullSingleValues>},
      {"interval", "RangeSet/nullValues", add<&H::rangeSet, &WcsRangeSet::nullIntervals, &H::interval>},
      {"min", "RangeSet/nullValues", interval<&WcsInterval::min>},
      {"max", "RangeSet/nullValues", interval<&WcsInterval::max>},
      {"res", "RangeSet/nullValues", interval<&WcsInterval::res>},
      {.name = "AxisDescription",
       .in = "RangeSet",
       .act = Acts::all<add<&H::offering, &WcsOffering::axes, &H::axis>, Acts::forget<&H::interval>>,
       .opens = "/AxisDescription",
       .exact = true},
      {"description", "RangeSet/AxisDescription", axis<&WcsAxis::description>},
      {"name", "RangeSet/AxisDescription", axis<&WcsAxis::name>},
      {"label", "RangeSet/AxisDescription", axis<&WcsAxis::label>},
      {"default", "RangeSet/AxisDescription", axis<&WcsAxis::defaultValue>},
      {"singleValue", "RangeSet/AxisDescription", entry<&H::axis, &WcsAxis::singleValues>},
      {"interval", "RangeSet/AxisDescription", add<&H::axis, &WcsAxis::intervals, &H::interval>},
      {"min", "RangeSet/AxisDescription", interval<&WcsInterval::min>},
      {"max", "RangeSet/AxisDescription", interval<&WcsInterval::max>},
      {"res", "RangeSet/AxisDescription", interval<&WcsInterval::res>},

      {"supportedCRSs", "", nullptr, "supportedCRSs"},
      {"requestResponseCRSs", "supportedCRSs", names<&H::crs, &WcsCrs::requestResponseCRSs>},
      {"requestCRSs", "supportedCRSs", names<&H::crs, &WcsCrs::requestCRSs>},
      {"responseCRSs", "supportedCRSs", names<&H::crs, &WcsCrs::responseCRSs>},
      {"nativeCRSs", "supportedCRSs", names<&H::crs, &WcsCrs::nativeCRSs>},

      {"supportedFormats", "", Acts::attributes<&H::offering, formatsAttributes>, "supportedFormats"},
      {"formats", "supportedFormats", names<&H::offering, &WcsOffering::formats>},

      {"supportedInterpolations", "", Acts::attributes<&H::offering, interpolationAttributes>,
       "supportedInterpolations"},
      {"interpolationMethod", "supportedInterpolations", entry<&H::offering, &WcsOffering::interpolationMethods>},
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
  static_cast<WcsParts&>(*this) = {&offering->lonLatEnvelope, &offering->rangeSet, &offering->crs};
}

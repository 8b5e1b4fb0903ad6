#include "zel_ogcwcs.h"

#include "routines/lifecycle.h"
#include "routines/properties.h"
#include "routines/requests.h"
#include "zel_ogcwcs_obj.h"

#include <algorithm>
#include <vector>

using namespace ogc;

namespace {

constexpr Tag serviceTags[] = {
    text<&WcsService::name>("NAME"),
    text<&WcsService::label>("LABEL"),
    text<&WcsService::description>("DESCRIPTION"),
    list<&WcsService::keywords>("KEYWORDS"),
    text<&WcsService::individualName>("INDIVIDUAL"),
    text<&WcsService::organisationName>("ORGANIZATION"),
    text<&WcsService::positionName>("POSITION"),
    text<&WcsService::voice>("VOICE"),
    text<&WcsService::facsimile>("FAX"),
    text<&WcsService::deliveryPoint>("DELIVERY"),
    text<&WcsService::city>("CITY"),
    text<&WcsService::administrativeArea>("ADMINISTRATIVE"),
    text<&WcsService::postalCode>("POSTAL"),
    text<&WcsService::country>("COUNTRY"),
    text<&WcsService::electronicMailAddress>("EMAIL"),
    text<&WcsService::onlineResource>("ONLINE"),
    text<&WcsService::fees>("FEES"),
    text<&WcsService::accessConstraints>("ACCESS"),
};

constexpr Tag briefTags[] = {
    text<&WcsBrief::index>("INDEX"),
    text<&WcsBrief::name>("NAME"),
    text<&WcsBrief::label>("LABEL"),
    text<&WcsBrief::lonLatSrsName>("SRS_NAME"),
    text<&WcsBrief::pos1>("POS1"),
    text<&WcsBrief::pos1Dimension>("DIMS1"),
    text<&WcsBrief::pos2>("POS2"),
    text<&WcsBrief::pos2Dimension>("DIMS2"),
    text<&WcsBrief::timePosition1>("TM_POS1"),
    text<&WcsBrief::timePosition2>("TM_POS2"),
    list<&WcsBrief::keywords>("KEYWORDS"),
    text<&WcsBrief::description>("DESCRIPTION"),
    text<&WcsBrief::version>("VERSION"),
    text<&WcsBrief::updateSequence>("UPDATE_SEQ"),
};

constexpr Tag envelopeTags[] = {
    text<&WcsEnvelope::srsName>("SRS_NAME"),        text<&WcsEnvelope::pos1>("POS1"),
    text<&WcsEnvelope::pos1Dimension>("DIMS1"),     text<&WcsEnvelope::pos2>("POS2"),
    text<&WcsEnvelope::pos2Dimension>("DIMS2"),     text<&WcsEnvelope::timePosition1>("TIME_POS1"),
    text<&WcsEnvelope::timePosition2>("TIME_POS2"),
};

constexpr Tag gridTags[] = {
    text<&WcsGrid::rectified>("RECTIFIED"),  text<&WcsGrid::dimension>("DIMS"),
    text<&WcsGrid::srsName>("SRS_NAME"),     text<&WcsGrid::low>("LIMITS_ENV_LOW"),
    text<&WcsGrid::high>("LIMITS_ENV_HIGH"), list<&WcsGrid::axisNames>("AXIS_NAMES"),
    text<&WcsGrid::origin>("ORIGIN_POS"),    list<&WcsGrid::offsetVectors>("OFFSET_VECTORS"),
};

constexpr Tag timePositionTags[] = {
    text<&WcsTimePosition::position>("POSITION"),
    text<&WcsTimePosition::frame>("FRAME"),
    text<&WcsTimePosition::calendarEraName>("CALENDAR"),
    text<&WcsTimePosition::indeterminatePosition>("INDETERMINATE"),
};

constexpr Tag timePeriodTags[] = {
    text<&WcsTimePeriod::begin>("_BEGIN"),
    text<&WcsTimePeriod::end>("_END"),
    text<&WcsTimePeriod::resolution>("RESOLUTION"),
    text<&WcsTimePeriod::frame>("FRAME"),
    text<&WcsTimePeriod::calendarEraName>("CALENDAR"),
    text<&WcsTimePeriod::indeterminatePosition>("INDETERMINATE"),
};

constexpr Tag intervalTags[] = {
    text<&WcsInterval::min>("MIN"),
    text<&WcsInterval::max>("MAX"),
    text<&WcsInterval::res>("RES"),
};

constexpr Tag rangeTags[] = {
    text<&WcsRangeSet::name>("NAME"),
    text<&WcsRangeSet::label>("LABEL"),
    text<&WcsRangeSet::description>("DESC"),
    list<&WcsRangeSet::nullSingleValues>("NULL_SINGLE_VALUES"),
    number<&WcsRangeSet::nullIntervals>("NUM_NULL_INTERVALS"),
    list<&WcsRangeSet::nullIntervals>("NULL_INTERVAL", intervalTags),
};

constexpr Tag axisTags[] = {
    text<&WcsAxis::name>("NAME"),
    text<&WcsAxis::label>("LABEL"),
    text<&WcsAxis::description>("DESC"),
    list<&WcsAxis::singleValues>("SINGLE_VALUE"),
    number<&WcsAxis::intervals>("NUM_INTERVALS"),
    list<&WcsAxis::intervals>("INTERVAL", intervalTags),
    text<&WcsAxis::defaultValue>("DEFAULT"),
};

constexpr Tag crsTags[] = {
    list<&WcsCrs::requestResponseCRSs>("REQUEST_RESPONSE"),
    list<&WcsCrs::requestCRSs>("REQUEST"),
    list<&WcsCrs::responseCRSs>("RESPONSE"),
    list<&WcsCrs::nativeCRSs>("NATIVE"),
};

constexpr Tag offeringTags[] = {
    text<&WcsOffering::index>("INDEX"),
    text<&WcsOffering::version>("VERSION"),
    text<&WcsOffering::updateSequence>("UPDATE_SEQ"),
    text<&WcsOffering::name>("CO_NAME"),
    text<&WcsOffering::label>("CO_LABEL"),
    text<&WcsOffering::description>("CO_DESC"),
    nested<&WcsOffering::lonLatEnvelope>("LONLATENV", envelopeTags),
    number<&WcsOffering::envelopes>("NUM_SPAT_DOM_LLES"),
    list<&WcsOffering::envelopes>("SPAT_DOM_LONLATENV", envelopeTags),
    number<&WcsOffering::grids>("NUM_SPAT_DOM_GRIDS"),
    list<&WcsOffering::grids>("SPAT_DOM_GRID", gridTags),
    number<&WcsOffering::timePositions>("NUM_TEMP_TM_POSITIONS"),
    list<&WcsOffering::timePositions>("TEMP_TM_POSITION", timePositionTags),
    number<&WcsOffering::timePeriods>("NUM_TEMP_TM_PERIODS"),
    list<&WcsOffering::timePeriods>("TEMP_TM_PERIOD", timePeriodTags),
    nested<&WcsOffering::rangeSet>("RANGE", rangeTags),
    number<&WcsOffering::axes>("NUM_RANGE_AXES"),
    list<&WcsOffering::axes>("RANGE_AXIS", axisTags),
    nested<&WcsOffering::crs>("CRS", crsTags),
    list<&WcsOffering::formats>("FORMATS"),
    text<&WcsOffering::nativeFormat>("NATIVE_FORMAT"),
    list<&WcsOffering::interpolationMethods>("INTERPOLATION_METHOD"),
    text<&WcsOffering::defaultInterpolation>("NATIVE_INTERPOLATION"),
};

COgcWcs& clientOf(ZEL_Variable* object) { return ogc::clientOf<COgcWcs>(wcsService, object); }

} // namespace

ZEL_Variable* ZEL_OgcWcsGetCapabilities(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  static constexpr auto table = keywordTable({{"FROM_FILE"}, {"FROM_URL"}, {"SCHEMA_CHECKING"}, {"VALIDATION_MODE"}});
  return runFunction([&] {
    const Keywords keywords(table, argc, argv, argk);
    COgcWcs& client = clientOf(argv[0]);
    const RecordsReport report(argv[0], client);
    const auto fromFile = fileOf(keywords[table.slot("FROM_FILE")]);
    const auto fromUrl = urlOf(keywords[table.slot("FROM_URL")]);
    const int validationMode = validationModeOf(keywords[table.slot("VALIDATION_MODE")]);
    const int schemaChecking = schemaCheckingOf(keywords[table.slot("SCHEMA_CHECKING")]);
    client.OgcWcsGetCap(fromFile.get(), fromUrl.get(), schemaChecking, validationMode);
    return zel::Temp(ZEL_GettmpInt(static_cast<std::int16_t>(client.briefCount())));
  });
}

ZEL_Variable* ZEL_OgcWcsDescribeCoverage(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  static constexpr auto table =
      keywordTable({{"COUNT", ZEL_KW_OUT}, {"FROM_FILE"}, {"NAMES"}, {"SCHEMA_CHECKING"}, {"VALIDATION_MODE"}});
  return runFunction([&] {
    const Keywords keywords(table, argc, argv, argk);
    COgcWcs& client = clientOf(argv[0]);
    const RecordsReport report(argv[0], client);
    ZEL_Variable* given = keywords[table.slot("NAMES")];
    if (given == nullptr && keywords[table.slot("FROM_FILE")] == nullptr) fail("Error: The NAMES keyword must be set.");
    if (given != nullptr && keywords[table.slot("FROM_FILE")] != nullptr)
      fail("Error: NAMES and FROM_FILE keywords are mutally exclusive..");
    const auto fromFile = fileOf(keywords[table.slot("FROM_FILE")]);
    const int validationMode = validationModeOf(keywords[table.slot("VALIDATION_MODE")]);
    const int schemaChecking = schemaCheckingOf(keywords[table.slot("SCHEMA_CHECKING")]);
    const std::vector<std::string> texts = given != nullptr ? textsOf(given) : std::vector<std::string>{};
    std::vector<const char*> names(texts.size());
    std::transform(texts.begin(), texts.end(), names.begin(), [](const std::string& text) { return text.c_str(); });
    client.OgcWcsDescribeCoverage(given != nullptr ? names.data() : nullptr, static_cast<int>(names.size()),
                                  fromFile.get(), schemaChecking, validationMode);
    const auto n = static_cast<int>(client.offeringCount());
    store(keywords[table.slot("COUNT")], n);
    if (n == 0) return zel::Temp(ZEL_StrToSTRING(""));
    char* data = nullptr;
    zel::Temp found(ZEL_MakeTempVector(ZEL_TYP_STRING, n, &data));
    auto* name = reinterpret_cast<ZEL_STRING*>(data);
    for (const WcsOffering* offering = client.OgcWcsGetCO(0); offering != nullptr; offering = offering->next)
      ZEL_StrStore(name++, offering->name);
    return found;
  });
}

ZEL_Variable* ZEL_OgcWcsGetCoverage(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return fetch<COgcWcs, &COgcWcs::OgcWcsGetCoverage>(wcsService, argc, argv, argk,
                                                     "Error: Passed in coverage argument is empty.");
}

ZEL_Variable* ZEL_OgcWcsGetCoverageOfferingBriefs(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return runFunction([&] {
    const Keywords keywords(listKeywords, argc, argv, argk);
    COgcWcs& client = clientOf(argv[0]);
    const Selection part =
        select(keywords, client.briefCount(),
               "Error: Invalid Index keyword value. Index is greater than the total available briefs.");
    if (part.number == 0) return nothing();
    client.OgcWcsGetNextCOBSkip(part.start);
    std::vector<const void*> briefs(static_cast<std::size_t>(part.number));
    for (const void*& brief : briefs) brief = client.OgcWcsGetNextCOB();
    return structsOf(briefTags, briefs);
  });
}

ZEL_Variable* ZEL_OgcWcsGetCoverageOffering(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  static constexpr auto table = keywordTable({{"INDEX"}});
  return runFunction([&] {
    const Keywords keywords(table, argc, argv, argk);
    ZEL_Variable* index = keywords[table.slot("INDEX")];
    const void* offering = clientOf(argv[0]).OgcWcsGetCO(index != nullptr ? fixOf(index) : 0);
    return structsOf(offeringTags, {&offering, 1});
  });
}

ZEL_Variable* ZEL_OgcWcsGetServiceSection(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return serviceSection<COgcWcs>(wcsService, argc, argv, argk, serviceTags);
}

ZEL_Variable* ZEL_OgcWcsInit(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return init<COgcWcs, &COgcWcs::OgcWcsCleanup, OGCWCSProcessSetProperties>(wcsService, argc, argv, argk);
}

void ZEL_OgcWcsCleanup(int, ZEL_Variable** argv) { cleanup<COgcWcs, &COgcWcs::OgcWcsCleanup>(wcsService, argv); }

void ZEL_OgcWcsGetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  runProcedure([&] { OGCWCSProcessGetProperties(argc, argv, argk, _ZEL_OGCWCSGetInstanceData(argv[0])); });
}

void ZEL_OgcWcsParseURL(int, ZEL_Variable** argv) {
  runProcedure([&] { clientOf(argv[0]).OgcBaseParseURL(textOf(argv[1]).c_str()); });
}

void ZEL_OgcWcsSetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  runProcedure([&] { OGCWCSProcessSetProperties(argc, argv, argk, 0, _ZEL_OGCWCSGetInstanceData(argv[0])); });
}

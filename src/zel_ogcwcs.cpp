#include "zel_ogcwcs.h"

#include "routines/properties.h"
#include "routines/requests.h"
#include "zel_ogcwcs_obj.h"

#include <algorithm>
#include <vector>

const OgcService ogcWcsService{
    .className = "ZELnetOGCWCS",
    .pointerTag = "COGCWCSPTR",
    .wrongObject = "Unable to acquire OGC WCS object",
    .noMemory = "Error: new memory allocation on COgcWcs failed",
    .noClient = "Error: The object has no OGC WCS client. Call INIT first.",
    .userDir = "ogc_user_files_wcs",
    .make = ogcMakeClient<COgcWcs>,
    .init = [](COgcBase&) { static_cast<void>(COgcWcs::OgcWcsInit()); },
    .destroy = ogcDestroyClient<COgcWcs, &COgcWcs::OgcWcsCleanup>,
    .setProperties = OGCWCSProcessSetProperties,
    .getProperties = OGCWCSProcessGetProperties,
};

namespace {

constexpr OgcTag serviceTags[] = {
    ogcText<&WcsService::name>("NAME"),
    ogcText<&WcsService::label>("LABEL"),
    ogcText<&WcsService::description>("DESCRIPTION"),
    ogcTexts<&WcsService::keywords>("KEYWORDS"),
    ogcText<&WcsService::individualName>("INDIVIDUAL"),
    ogcText<&WcsService::organisationName>("ORGANIZATION"),
    ogcText<&WcsService::positionName>("POSITION"),
    ogcText<&WcsService::voice>("VOICE"),
    ogcText<&WcsService::facsimile>("FAX"),
    ogcText<&WcsService::deliveryPoint>("DELIVERY"),
    ogcText<&WcsService::city>("CITY"),
    ogcText<&WcsService::administrativeArea>("ADMINISTRATIVE"),
    ogcText<&WcsService::postalCode>("POSTAL"),
    ogcText<&WcsService::country>("COUNTRY"),
    ogcText<&WcsService::electronicMailAddress>("EMAIL"),
    ogcText<&WcsService::onlineResource>("ONLINE"),
    ogcText<&WcsService::fees>("FEES"),
    ogcText<&WcsService::accessConstraints>("ACCESS"),
};

constexpr OgcTag briefTags[] = {
    ogcText<&WcsBrief::index>("INDEX"),
    ogcText<&WcsBrief::name>("NAME"),
    ogcText<&WcsBrief::label>("LABEL"),
    ogcText<&WcsBrief::lonLatSrsName>("SRS_NAME"),
    ogcText<&WcsBrief::pos1>("POS1"),
    ogcText<&WcsBrief::pos1Dimension>("DIMS1"),
    ogcText<&WcsBrief::pos2>("POS2"),
    ogcText<&WcsBrief::pos2Dimension>("DIMS2"),
    ogcText<&WcsBrief::timePosition1>("TM_POS1"),
    ogcText<&WcsBrief::timePosition2>("TM_POS2"),
    ogcTexts<&WcsBrief::keywords>("KEYWORDS"),
    ogcText<&WcsBrief::description>("DESCRIPTION"),
    ogcText<&WcsBrief::version>("VERSION"),
    ogcText<&WcsBrief::updateSequence>("UPDATE_SEQ"),
};

constexpr OgcTag envelopeTags[] = {
    ogcText<&WcsEnvelope::srsName>("SRS_NAME"),        ogcText<&WcsEnvelope::pos1>("POS1"),
    ogcText<&WcsEnvelope::pos1Dimension>("DIMS1"),     ogcText<&WcsEnvelope::pos2>("POS2"),
    ogcText<&WcsEnvelope::pos2Dimension>("DIMS2"),     ogcText<&WcsEnvelope::timePosition1>("TIME_POS1"),
    ogcText<&WcsEnvelope::timePosition2>("TIME_POS2"),
};

constexpr OgcTag gridTags[] = {
    ogcText<&WcsGrid::rectified>("RECTIFIED"),  ogcText<&WcsGrid::dimension>("DIMS"),
    ogcText<&WcsGrid::srsName>("SRS_NAME"),     ogcText<&WcsGrid::low>("LIMITS_ENV_LOW"),
    ogcText<&WcsGrid::high>("LIMITS_ENV_HIGH"), ogcTexts<&WcsGrid::axisNames>("AXIS_NAMES"),
    ogcText<&WcsGrid::origin>("ORIGIN_POS"),    ogcTexts<&WcsGrid::offsetVectors>("OFFSET_VECTORS"),
};

constexpr OgcTag timePositionTags[] = {
    ogcText<&WcsTimePosition::position>("POSITION"),
    ogcText<&WcsTimePosition::frame>("FRAME"),
    ogcText<&WcsTimePosition::calendarEraName>("CALENDAR"),
    ogcText<&WcsTimePosition::indeterminatePosition>("INDETERMINATE"),
};

constexpr OgcTag timePeriodTags[] = {
    ogcText<&WcsTimePeriod::begin>("_BEGIN"),
    ogcText<&WcsTimePeriod::end>("_END"),
    ogcText<&WcsTimePeriod::resolution>("RESOLUTION"),
    ogcText<&WcsTimePeriod::frame>("FRAME"),
    ogcText<&WcsTimePeriod::calendarEraName>("CALENDAR"),
    ogcText<&WcsTimePeriod::indeterminatePosition>("INDETERMINATE"),
};

constexpr OgcTag intervalTags[] = {
    ogcText<&WcsInterval::min>("MIN"),
    ogcText<&WcsInterval::max>("MAX"),
    ogcText<&WcsInterval::res>("RES"),
};

constexpr OgcTag rangeTags[] = {
    ogcText<&WcsRangeSet::name>("NAME"),
    ogcText<&WcsRangeSet::label>("LABEL"),
    ogcText<&WcsRangeSet::description>("DESC"),
    ogcTexts<&WcsRangeSet::nullSingleValues>("NULL_SINGLE_VALUES"),
    ogcNumber<&WcsRangeSet::nullIntervals>("NUM_NULL_INTERVALS"),
    ogcRecords<&WcsRangeSet::nullIntervals>("NULL_INTERVAL", intervalTags),
};

constexpr OgcTag axisTags[] = {
    ogcText<&WcsAxis::name>("NAME"),
    ogcText<&WcsAxis::label>("LABEL"),
    ogcText<&WcsAxis::description>("DESC"),
    ogcTexts<&WcsAxis::singleValues>("SINGLE_VALUE"),
    ogcNumber<&WcsAxis::intervals>("NUM_INTERVALS"),
    ogcRecords<&WcsAxis::intervals>("INTERVAL", intervalTags),
    ogcText<&WcsAxis::defaultValue>("DEFAULT"),
};

constexpr OgcTag crsTags[] = {
    ogcTexts<&WcsCrs::requestResponseCRSs>("REQUEST_RESPONSE"),
    ogcTexts<&WcsCrs::requestCRSs>("REQUEST"),
    ogcTexts<&WcsCrs::responseCRSs>("RESPONSE"),
    ogcTexts<&WcsCrs::nativeCRSs>("NATIVE"),
};

constexpr OgcTag offeringTags[] = {
    ogcText<&WcsOffering::index>("INDEX"),
    ogcText<&WcsOffering::version>("VERSION"),
    ogcText<&WcsOffering::updateSequence>("UPDATE_SEQ"),
    ogcText<&WcsOffering::name>("CO_NAME"),
    ogcText<&WcsOffering::label>("CO_LABEL"),
    ogcText<&WcsOffering::description>("CO_DESC"),
    ogcNested<&WcsOffering::lonLatEnvelope>("LONLATENV", envelopeTags),
    ogcNumber<&WcsOffering::envelopes>("NUM_SPAT_DOM_LLES"),
    ogcRecords<&WcsOffering::envelopes>("SPAT_DOM_LONLATENV", envelopeTags),
    ogcNumber<&WcsOffering::grids>("NUM_SPAT_DOM_GRIDS"),
    ogcRecords<&WcsOffering::grids>("SPAT_DOM_GRID", gridTags),
    ogcNumber<&WcsOffering::timePositions>("NUM_TEMP_TM_POSITIONS"),
    ogcRecords<&WcsOffering::timePositions>("TEMP_TM_POSITION", timePositionTags),
    ogcNumber<&WcsOffering::timePeriods>("NUM_TEMP_TM_PERIODS"),
    ogcRecords<&WcsOffering::timePeriods>("TEMP_TM_PERIOD", timePeriodTags),
    ogcNested<&WcsOffering::rangeSet>("RANGE", rangeTags),
    ogcNumber<&WcsOffering::axes>("NUM_RANGE_AXES"),
    ogcRecords<&WcsOffering::axes>("RANGE_AXIS", axisTags),
    ogcNested<&WcsOffering::crs>("CRS", crsTags),
    ogcTexts<&WcsOffering::formats>("FORMATS"),
    ogcText<&WcsOffering::nativeFormat>("NATIVE_FORMAT"),
    ogcTexts<&WcsOffering::interpolationMethods>("INTERPOLATION_METHOD"),
    ogcText<&WcsOffering::defaultInterpolation>("NATIVE_INTERPOLATION"),
};

COgcWcs& clientOf(ZEL_Variable* object) { return ogcClient<COgcWcs>(ogcWcsService, object); }

} // namespace

ZEL_Variable* ZEL_OgcWcsGetCapabilities(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  static constexpr auto table =
      ogc::keywordTable({{"FROM_FILE"}, {"FROM_URL"}, {"SCHEMA_CHECKING"}, {"VALIDATION_MODE"}});
  return ogcFunction([&] {
    const ogc::Keywords keywords(table, argc, argv, argk);
    COgcWcs& client = clientOf(argv[0]);
    const ogc::RecordsReport report(argv[0], client);
    const auto fromFile = ogcFromFile(keywords[table.slot("FROM_FILE")]);
    const auto fromUrl = ogcFromUrl(keywords[table.slot("FROM_URL")]);
    const int validationMode = ogcValidationMode(keywords[table.slot("VALIDATION_MODE")]);
    const int schemaChecking = ogcSchemaChecking(keywords[table.slot("SCHEMA_CHECKING")]);
    client.OgcWcsGetCap(ogcOrNull(fromFile), ogcOrNull(fromUrl), schemaChecking, validationMode);
    return zel::Temp(ZEL_GettmpInt(static_cast<std::int16_t>(client.BriefCount())));
  });
}

ZEL_Variable* ZEL_OgcWcsDescribeCoverage(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  static constexpr auto table =
      ogc::keywordTable({{"COUNT", ZEL_KW_OUT}, {"FROM_FILE"}, {"NAMES"}, {"SCHEMA_CHECKING"}, {"VALIDATION_MODE"}});
  return ogcFunction([&] {
    const ogc::Keywords keywords(table, argc, argv, argk);
    COgcWcs& client = clientOf(argv[0]);
    const ogc::RecordsReport report(argv[0], client);
    ZEL_Variable* given = keywords[table.slot("NAMES")];
    if (given == nullptr && keywords[table.slot("FROM_FILE")] == nullptr)
      ogcError("Error: The NAMES keyword must be set.");
    if (given != nullptr && keywords[table.slot("FROM_FILE")] != nullptr)
      ogcError("Error: NAMES and FROM_FILE keywords are mutally exclusive..");
    const auto fromFile = ogcFromFile(keywords[table.slot("FROM_FILE")]);
    const int validationMode = ogcValidationMode(keywords[table.slot("VALIDATION_MODE")]);
    const int schemaChecking = ogcSchemaChecking(keywords[table.slot("SCHEMA_CHECKING")]);
    const std::vector<std::string> texts = given != nullptr ? ogc::textsOf(given) : std::vector<std::string>{};
    std::vector<const char*> names(texts.size());
    std::transform(texts.begin(), texts.end(), names.begin(), [](const std::string& text) { return text.c_str(); });
    client.OgcWcsDescribeCoverage(given != nullptr ? names.data() : nullptr, static_cast<int>(names.size()),
                                  ogcOrNull(fromFile), schemaChecking, validationMode);
    const int n = client.OfferingCount();
    ogc::store(keywords[table.slot("COUNT")], n);
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
  return ogcFetch<COgcWcs, &COgcWcs::OgcWcsGetCoverage>(ogcWcsService, argc, argv, argk,
                                                        "Error: Passed in coverage argument is empty.");
}

ZEL_Variable* ZEL_OgcWcsGetCoverageOfferingBriefs(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return ogcFunction([&] {
    const ogc::Keywords keywords(ogcListKeywords, argc, argv, argk);
    COgcWcs& client = clientOf(argv[0]);
    const OgcSelection part =
        ogcSelect(keywords, client.BriefCount(),
                  "Error: Invalid Index keyword value. Index is greater than the total available briefs.");
    if (part.number == 0) return ogcNothing();
    client.OgcWcsGetNextCOBSkip(part.start);
    std::vector<const void*> briefs(static_cast<std::size_t>(part.number));
    for (const void*& brief : briefs) brief = client.OgcWcsGetNextCOB();
    return ogcStructs(briefTags, briefs);
  });
}

ZEL_Variable* ZEL_OgcWcsGetCoverageOffering(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  static constexpr auto table = ogc::keywordTable({{"INDEX"}});
  return ogcFunction([&] {
    const ogc::Keywords keywords(table, argc, argv, argk);
    ZEL_Variable* index = keywords[table.slot("INDEX")];
    const void* offering = clientOf(argv[0]).OgcWcsGetCO(index != nullptr ? ogc::fixOf(index) : 0);
    return ogcStructs(offeringTags, {&offering, 1});
  });
}

ZEL_Variable* ZEL_OgcWcsGetServiceSection(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return ogcServiceSection<COgcWcs>(ogcWcsService, argc, argv, argk, serviceTags);
}

ZEL_Variable* ZEL_OgcWcsInit(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return ogcInit(ogcWcsService, argc, argv, argk);
}
void ZEL_OgcWcsCleanup(int, ZEL_Variable** argv) { ogcCleanup(ogcWcsService, argv); }
void ZEL_OgcWcsGetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  ogcGetProperty(ogcWcsService, argc, argv, argk);
}
void ZEL_OgcWcsParseURL(int, ZEL_Variable** argv) { ogcParseUrl(ogcWcsService, argv); }
void ZEL_OgcWcsSetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  ogcSetProperty(ogcWcsService, argc, argv, argk);
}

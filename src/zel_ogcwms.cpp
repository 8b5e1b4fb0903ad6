#include "zel_ogcwms.h"

#include "routines/properties.h"
#include "routines/requests.h"
#include "zel_ogcwms_obj.h"

#include <vector>

const OgcService ogcWmsService{
    .className = "ZELnetOGCWMS",
    .pointerTag = "COGCWMSPTR",
    .wrongObject = "Unable to acquire OGC WMS object",
    .noMemory = "Error: new memory allocation on COgcWms failed",
    .noClient = "Error: The object has no OGC WMS client. Call INIT first.",
    .userDir = "ogc_user_files_wms",
    .make = ogcMakeClient<COgcWms>,
    .init = [](COgcBase& client) { static_cast<COgcWms&>(client).OgcWmsInit(); },
    .destroy = ogcDestroyClient<COgcWms, &COgcWms::OgcWmsCleanup>,
    .setProperties = OGCWMSProcessSetProperties,
    .getProperties = OGCWMSProcessGetProperties,
};

namespace {

/// Reads the reference system names of one layer after the other.
struct LayerNames {
  COgcWmsNames::Reader srs;
  COgcWmsNames::Reader crs;
};

template <auto Reader>
const void* firstName(const void* layer, void* names) noexcept {
  auto& reader = static_cast<LayerNames*>(names)->*Reader;
  reader.open(*static_cast<const xWmsLayer_t*>(layer));
  return reader.next();
}

template <auto Reader>
const void* nextName(const void*, void* names) noexcept {
  return (static_cast<LayerNames*>(names)->*Reader).next();
}

/// A list of names that continues in the layers around a layer.
template <auto Reader, auto Count>
constexpr OgcTag layerNames(const char* name) {
  return {.name = name,
          .text = ogc_tag::textOf<&xNodeStr_t::str>,
          .count = ogc_tag::countOf<Count>,
          .first = firstName<Reader>,
          .next = nextName<Reader>};
}

constexpr OgcTag latLonTags[] = {
    ogcText<&xWmsGeoBox_t::szMinX>("MINX"),
    ogcText<&xWmsGeoBox_t::szMinY>("MINY"),
    ogcText<&xWmsGeoBox_t::szMaxX>("MAXX"),
    ogcText<&xWmsGeoBox_t::szMaxY>("MAXY"),
};

constexpr OgcTag geoBoxTags[] = {
    ogcText<&xWmsGeoBox_t::szMinX>("WEST"),
    ogcText<&xWmsGeoBox_t::szMinY>("EAST"),
    ogcText<&xWmsGeoBox_t::szMaxX>("SOUTH"),
    ogcText<&xWmsGeoBox_t::szMaxY>("NORTH"),
};

constexpr OgcTag boundingBoxTags[] = {
    ogcText<&xWmsBBox_t::szSrs>("SRS"),   ogcText<&xWmsBBox_t::szCrs>("CRS"),   ogcText<&xWmsBBox_t::szMinX>("MINX"),
    ogcText<&xWmsBBox_t::szMinY>("MINY"), ogcText<&xWmsBBox_t::szMaxX>("MAXX"), ogcText<&xWmsBBox_t::szMaxY>("MAXY"),
    ogcText<&xWmsBBox_t::szResX>("RESX"), ogcText<&xWmsBBox_t::szResY>("RESY"),
};

constexpr OgcTag extentTags[] = {
    ogcText<&xWmsExtent_t::szName>("NAME"),
    ogcText<&xWmsExtent_t::szDefault>("DEFAULT"),
    ogcText<&xWmsExtent_t::szNearestValue>("NEAREST_VALUE"),
    ogcText<&xWmsExtent_t::szValue>("EXTENT"),
};

constexpr OgcTag dimensionTags[] = {
    ogcText<&xWmsDimension_t::szName>("NAME"),
    ogcText<&xWmsDimension_t::szUnits>("UNITS"),
    ogcText<&xWmsDimension_t::szUnitSymbol>("UNIT_SYMBOL"),
    ogcText<&xWmsDimension_t::szDefault>("DEFAULT"),
    ogcText<&xWmsDimension_t::szMultipleValues>("MULTIPLE_VALUES"),
    ogcText<&xWmsDimension_t::szNearestValue>("NEAREST_VALUE"),
    ogcText<&xWmsDimension_t::szCurrent>("CURRENT"),
    ogcText<&xWmsDimension_t::szValue>("EXTENT"),
};

constexpr OgcTag attributionTags[] = {
    ogcText<&xWmsAttribution_t::szTitle>("TITLE"),
    ogcText<&xWmsAttribution_t::szOnline>("ONLINE"),
    ogcText<&xWmsAttribution_t::szLogoFormat>("LOGO_FORMAT"),
    ogcText<&xWmsAttribution_t::szLogoOnline>("LOGO_ONLINE"),
    ogcText<&xWmsAttribution_t::szLogoWidth>("LOGO_WIDTH"),
    ogcText<&xWmsAttribution_t::szLogoHeight>("LOGO_HEIGHT"),
};

constexpr OgcTag authorityTags[] = {
    ogcText<&xWmsAuthorityUrl_t::szName>("NAME"),
    ogcText<&xWmsAuthorityUrl_t::szOnline>("ONLINE"),
};

constexpr OgcTag identifierTags[] = {
    ogcText<&xWmsIdentifier_t::szValue>("ID"),
    ogcText<&xWmsIdentifier_t::szAuthority>("AUTHORITY"),
};

constexpr OgcTag metadataTags[] = {
    ogcText<&xWmsMetadataUrl_t::szType>("TYPE"),
    ogcText<&xWmsMetadataUrl_t::szFormat>("FORMAT"),
    ogcText<&xWmsMetadataUrl_t::szOnline>("ONLINE"),
};

constexpr OgcTag onlineTags[] = {
    ogcText<&xWmsOnlineRes_t::szFormat>("FORMAT"),
    ogcText<&xWmsOnlineRes_t::szOnline>("ONLINE"),
};

constexpr OgcTag styleTags[] = {
    ogcText<&xWmsStyle_t::szName>("NAME"),
    ogcText<&xWmsStyle_t::szTitle>("TITLE"),
    ogcText<&xWmsStyle_t::szAbstract>("ABSTRACT"),
    ogcText<&xWmsStyle_t::szLegendFormat>("LEGEND_FORMAT"),
    ogcText<&xWmsStyle_t::szLegendOnline>("LEGEND_ONLINE"),
    ogcText<&xWmsStyle_t::szLegendWidth>("LEGEND_WIDTH"),
    ogcText<&xWmsStyle_t::szLegendHeight>("LEGEND_HEIGHT"),
    ogcText<&xWmsStyle_t::szSheetFormat>("SHEET_FORMAT"),
    ogcText<&xWmsStyle_t::szSheetOnline>("SHEET_ONLINE"),
    ogcText<&xWmsStyle_t::szStyleFormat>("STYLE_FORMAT"),
    ogcText<&xWmsStyle_t::szStyleOnline>("STYLE_ONLINE"),
};

using Layer = xWmsLayer_t;
constexpr OgcTag layerTags[] = {
    ogcNumber<&Layer::iIndex>("LAYER"),
    ogcNumber<&Layer::iParent>("PARENT"),
    ogcNumber<&Layer::iLevel>("LEVEL"),
    ogcText<&Layer::szVersion>("VERSION"),
    ogcText<&Layer::szUpdateSequence>("UPDATE_SEQ"),
    ogcText<&Layer::szName>("NAME"),
    ogcText<&Layer::szTitle>("TITLE"),
    ogcText<&Layer::szAbstract>("ABSTRACT"),
    ogcNumber<&Layer::nMapFormat>("NUM_MAP_FORMAT"),
    ogcTexts<&Layer::pMapFormat, &Layer::nMapFormat>("MAP_FORMAT"),
    ogcNumber<&Layer::nFeatureFormat>("NUM_FEATURE_FORMAT"),
    ogcTexts<&Layer::pFeatureFormat, &Layer::nFeatureFormat>("FEATURE_FORMAT"),
    ogcNumber<&Layer::nKeyword>("NUM_KEYWORD"),
    ogcTexts<&Layer::pKeyword, &Layer::nKeyword>("KEYWORD"),
    ogcNumber<&Layer::nSrs>("NUM_SRS"),
    layerNames<&LayerNames::srs, &Layer::nSrs>("SRS"),
    ogcNumber<&Layer::nCrs>("NUM_CRS"),
    layerNames<&LayerNames::crs, &Layer::nCrs>("CRS"),
    ogcNested<&Layer::pLatLonBBox>("LAT_LON_BBOX", latLonTags),
    ogcNested<&Layer::pExGeoBBox>("EX_GEOBBOX", geoBoxTags),
    ogcNumber<&Layer::nBBox>("NUM_BOUNDING_BOX"),
    ogcRecords<&Layer::pBBox, &Layer::nBBox>("BOUNDING_BOX", boundingBoxTags),
    ogcNumber<&Layer::nExtent>("NUM_EXTENT"),
    ogcRecords<&Layer::pExtent, &Layer::nExtent>("EXTENT", extentTags),
    ogcNumber<&Layer::nDimension>("NUM_DIMENSION"),
    ogcRecords<&Layer::pDimension, &Layer::nDimension>("DIMENSION", dimensionTags),
    ogcNested<&Layer::pAttribution>("ATTRIBUTION", attributionTags),
    ogcNumber<&Layer::nAuthorityUrl>("NUM_AUTHORITY"),
    ogcRecords<&Layer::pAuthorityUrl, &Layer::nAuthorityUrl>("AUTHORITY", authorityTags),
    ogcNumber<&Layer::nIdentifier>("NUM_IDENTIFIER"),
    ogcRecords<&Layer::pIdentifier, &Layer::nIdentifier>("IDENTIFIER", identifierTags),
    ogcNumber<&Layer::nMetadataUrl>("NUM_METADATA_URL"),
    ogcRecords<&Layer::pMetadataUrl, &Layer::nMetadataUrl>("METADATA_URL", metadataTags),
    ogcNumber<&Layer::nDataUrl>("NUM_DATA_URL"),
    ogcRecords<&Layer::pDataUrl, &Layer::nDataUrl>("DATA_URL", onlineTags),
    ogcNumber<&Layer::nFeatureUrl>("NUM_FEATURE_URL"),
    ogcRecords<&Layer::pFeatureUrl, &Layer::nFeatureUrl>("FEATURE_URL", onlineTags),
    ogcNumber<&Layer::nStyle>("NUM_STYLE"),
    ogcRecords<&Layer::pStyle, &Layer::nStyle>("STYLE", styleTags),
    ogcText<&Layer::szMinScale>("MIN_SCALE"),
    ogcText<&Layer::szMaxScale>("MAX_SCALE"),
    ogcText<&Layer::szQueryable>("QUERYABLE"),
    ogcText<&Layer::szCascaded>("CASCADED"),
    ogcText<&Layer::szOpaque>("OPAQUE"),
    ogcText<&Layer::szNoSubsets>("NO_SUBSETS"),
    ogcText<&Layer::szFixedWidth>("FIXED_WIDTH"),
    ogcText<&Layer::szFixedHeight>("FIXED_HEIGHT"),
};

using Service = xWmsService_t;
constexpr OgcTag serviceTags[] = {
    ogcText<&Service::szName>("NAME"),
    ogcText<&Service::szTitle>("TITLE"),
    ogcText<&Service::szAbstract>("ABSTRACT"),
    ogcNumber<&Service::nKeyword>("NUM_KEYWORD"),
    ogcTexts<&Service::pKeyword>("KEYWORD"),
    ogcText<&Service::szOnline>("ONLINE"),
    ogcText<&Service::szContactPerson>("PERSON"),
    ogcText<&Service::szContactOrganization>("ORGANIZATION"),
    ogcText<&Service::szContactPosition>("POSITION"),
    ogcText<&Service::szAddressType>("ADDRESS_TYPE"),
    ogcText<&Service::szAddress>("ADDRESS"),
    ogcText<&Service::szCity>("CITY"),
    ogcText<&Service::szStateOrProvince>("STATE"),
    ogcText<&Service::szPostCode>("POSTAL_CODE"),
    ogcText<&Service::szCountry>("COUNTRY"),
    ogcText<&Service::szVoiceTelephone>("VOICE"),
    ogcText<&Service::szFacsimileTelephone>("FAX"),
    ogcText<&Service::szElectronicMailAddress>("EMAIL"),
    ogcText<&Service::szFees>("FEES"),
    ogcText<&Service::szAccessConstraints>("ACCESS"),
    ogcText<&Service::szLayerLimit>("LAYER_LIMIT"),
    ogcText<&Service::szMaxWidth>("MAX_WIDTH"),
    ogcText<&Service::szMaxHeight>("MAX_HEIGHT"),
};

COgcWms& clientOf(ZEL_Variable* object) { return ogcClient<COgcWms>(ogcWmsService, object); }

} // namespace

ZEL_Variable* ZEL_OgcWmsGetCapabilities(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  static constexpr auto table = ogc::keywordTable(
      {{"DISABLE_INHERITANCE"}, {"FROM_FILE"}, {"FROM_URL"}, {"SCHEMA_CHECKING"}, {"VALIDATION_MODE"}});
  return ogcFunction([&] {
    COgcWms& client = clientOf(argv[0]);
    const ogc::RecordsReport report(argv[0], client);
    const ogc::Keywords keywords(table, argc, argv, argk);
    const auto fromFile = ogcFromFile(keywords[table.slot("FROM_FILE")]);
    const auto fromUrl = ogcFromUrl(keywords[table.slot("FROM_URL")]);
    const int schemaChecking = ogcSchemaChecking(keywords[table.slot("SCHEMA_CHECKING")]);
    const int validationMode = ogcValidationMode(keywords[table.slot("VALIDATION_MODE")]);
    ZEL_Variable* disable = keywords[table.slot("DISABLE_INHERITANCE")];
    client.OgcWmsGetCap(ogcOrNull(fromFile), ogcOrNull(fromUrl), schemaChecking, validationMode,
                        disable != nullptr ? ogc::fixOf(disable) : 0);
    return zel::Temp(ZEL_GettmpInt(static_cast<std::int16_t>(client.NumLayers())));
  });
}

ZEL_Variable* ZEL_OgcWmsGetMap(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return ogcFetch<COgcWms, &COgcWms::OgcWmsGetMap>(ogcWmsService, argc, argv, argk,
                                                   "Error: Passed in Map argument is empty.");
}

ZEL_Variable* ZEL_OgcWmsGetFeatureInfo(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return ogcFetch<COgcWms, &COgcWms::OgcWmsGetFeature>(ogcWmsService, argc, argv, argk,
                                                       "Error: Passed in Feature argument is empty.");
}

ZEL_Variable* ZEL_OgcWmsGetLayers(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return ogcFunction([&] {
    COgcWms& client = clientOf(argv[0]);
    const ogc::Keywords keywords(ogcListKeywords, argc, argv, argk);
    const OgcSelection part =
        ogcSelect(keywords, client.NumLayers(), "Error: Invalid Index keyword value. It is too large.");
    if (part.number == 0) return ogcNothing();
    client.OgcWmsGetNextLayerSkip(part.start);
    std::vector<const void*> layers(static_cast<std::size_t>(part.number));
    for (const void*& layer : layers) layer = client.OgcWmsGetNextLayer();
    LayerNames names{COgcWmsNames::Reader(client.SrsNames()), COgcWmsNames::Reader(client.CrsNames())};
    return ogcStructs(layerTags, layers, &names);
  });
}

ZEL_Variable* ZEL_OgcWmsGetServiceSection(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return ogcServiceSection<COgcWms>(ogcWmsService, argc, argv, argk, serviceTags);
}

ZEL_Variable* ZEL_OgcWmsInit(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return ogcInit(ogcWmsService, argc, argv, argk);
}
void ZEL_OgcWmsCleanup(int, ZEL_Variable** argv) { ogcCleanup(ogcWmsService, argv); }
void ZEL_OgcWmsGetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  ogcGetProperty(ogcWmsService, argc, argv, argk);
}
void ZEL_OgcWmsParseURL(int, ZEL_Variable** argv) { ogcParseUrl(ogcWmsService, argv); }
void ZEL_OgcWmsSetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  ogcSetProperty(ogcWmsService, argc, argv, argk);
}

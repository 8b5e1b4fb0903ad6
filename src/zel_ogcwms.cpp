#include "zel_ogcwms.h"

#include "routines/lifecycle.h"
#include "routines/properties.h"
#include "routines/requests.h"
#include "zel_ogcwms_obj.h"

#include <vector>

using namespace ogc;

namespace {

/// Reads the reference system names of one layer after the other.
struct LayerNames {
  ogc::ReferenceSystems::Reader srs;
  ogc::ReferenceSystems::Reader crs;
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
constexpr Tag layerNames(const char* name) {
  return {.name = name,
          .text = detail::textOf<&xNodeStr_t::str>,
          .count = detail::countOf<Count>,
          .first = firstName<Reader>,
          .next = nextName<Reader>};
}

constexpr Tag latLonTags[] = {
    text<&xWmsGeoBox_t::minX>("MINX"),
    text<&xWmsGeoBox_t::minY>("MINY"),
    text<&xWmsGeoBox_t::maxX>("MAXX"),
    text<&xWmsGeoBox_t::maxY>("MAXY"),
};

constexpr Tag geoBoxTags[] = {
    text<&xWmsGeoBox_t::minX>("WEST"),
    text<&xWmsGeoBox_t::minY>("EAST"),
    text<&xWmsGeoBox_t::maxX>("SOUTH"),
    text<&xWmsGeoBox_t::maxY>("NORTH"),
};

constexpr Tag boundingBoxTags[] = {
    text<&xWmsBBox_t::srs>("SRS"),   text<&xWmsBBox_t::crs>("CRS"),   text<&xWmsBBox_t::minX>("MINX"),
    text<&xWmsBBox_t::minY>("MINY"), text<&xWmsBBox_t::maxX>("MAXX"), text<&xWmsBBox_t::maxY>("MAXY"),
    text<&xWmsBBox_t::resX>("RESX"), text<&xWmsBBox_t::resY>("RESY"),
};

constexpr Tag extentTags[] = {
    text<&xWmsExtent_t::name>("NAME"),
    text<&xWmsExtent_t::defaultValue>("DEFAULT"),
    text<&xWmsExtent_t::nearestValue>("NEAREST_VALUE"),
    text<&xWmsExtent_t::value>("EXTENT"),
};

constexpr Tag dimensionTags[] = {
    text<&xWmsDimension_t::name>("NAME"),
    text<&xWmsDimension_t::units>("UNITS"),
    text<&xWmsDimension_t::unitSymbol>("UNIT_SYMBOL"),
    text<&xWmsDimension_t::defaultValue>("DEFAULT"),
    text<&xWmsDimension_t::multipleValues>("MULTIPLE_VALUES"),
    text<&xWmsDimension_t::nearestValue>("NEAREST_VALUE"),
    text<&xWmsDimension_t::current>("CURRENT"),
    text<&xWmsDimension_t::value>("EXTENT"),
};

constexpr Tag attributionTags[] = {
    text<&xWmsAttribution_t::title>("TITLE"),
    text<&xWmsAttribution_t::onlineResource>("ONLINE"),
    text<&xWmsAttribution_t::logoFormat>("LOGO_FORMAT"),
    text<&xWmsAttribution_t::logoOnlineResource>("LOGO_ONLINE"),
    text<&xWmsAttribution_t::logoWidth>("LOGO_WIDTH"),
    text<&xWmsAttribution_t::logoHeight>("LOGO_HEIGHT"),
};

constexpr Tag authorityTags[] = {
    text<&xWmsAuthorityUrl_t::name>("NAME"),
    text<&xWmsAuthorityUrl_t::onlineResource>("ONLINE"),
};

constexpr Tag identifierTags[] = {
    text<&xWmsIdentifier_t::value>("ID"),
    text<&xWmsIdentifier_t::authority>("AUTHORITY"),
};

constexpr Tag metadataTags[] = {
    text<&xWmsMetadataUrl_t::type>("TYPE"),
    text<&xWmsMetadataUrl_t::format>("FORMAT"),
    text<&xWmsMetadataUrl_t::onlineResource>("ONLINE"),
};

constexpr Tag onlineTags[] = {
    text<&xWmsOnlineRes_t::format>("FORMAT"),
    text<&xWmsOnlineRes_t::onlineResource>("ONLINE"),
};

constexpr Tag styleTags[] = {
    text<&xWmsStyle_t::name>("NAME"),
    text<&xWmsStyle_t::title>("TITLE"),
    text<&xWmsStyle_t::abstract>("ABSTRACT"),
    text<&xWmsStyle_t::legendFormat>("LEGEND_FORMAT"),
    text<&xWmsStyle_t::legendOnlineResource>("LEGEND_ONLINE"),
    text<&xWmsStyle_t::legendWidth>("LEGEND_WIDTH"),
    text<&xWmsStyle_t::legendHeight>("LEGEND_HEIGHT"),
    text<&xWmsStyle_t::sheetFormat>("SHEET_FORMAT"),
    text<&xWmsStyle_t::sheetOnlineResource>("SHEET_ONLINE"),
    text<&xWmsStyle_t::styleFormat>("STYLE_FORMAT"),
    text<&xWmsStyle_t::styleOnlineResource>("STYLE_ONLINE"),
};

using Layer = xWmsLayer_t;
constexpr Tag layerTags[] = {
    number<&Layer::iIndex>("LAYER"),
    number<&Layer::iParent>("PARENT"),
    number<&Layer::iLevel>("LEVEL"),
    text<&Layer::szVersion>("VERSION"),
    text<&Layer::szUpdateSequence>("UPDATE_SEQ"),
    text<&Layer::szName>("NAME"),
    text<&Layer::szTitle>("TITLE"),
    text<&Layer::szAbstract>("ABSTRACT"),
    number<&Layer::nMapFormat>("NUM_MAP_FORMAT"),
    list<&Layer::pMapFormat, &Layer::nMapFormat>("MAP_FORMAT"),
    number<&Layer::nFeatureFormat>("NUM_FEATURE_FORMAT"),
    list<&Layer::pFeatureFormat, &Layer::nFeatureFormat>("FEATURE_FORMAT"),
    number<&Layer::nKeyword>("NUM_KEYWORD"),
    list<&Layer::pKeyword, &Layer::nKeyword>("KEYWORD"),
    number<&Layer::nSrs>("NUM_SRS"),
    layerNames<&LayerNames::srs, &Layer::nSrs>("SRS"),
    number<&Layer::nCrs>("NUM_CRS"),
    layerNames<&LayerNames::crs, &Layer::nCrs>("CRS"),
    nested<&Layer::pLatLonBBox>("LAT_LON_BBOX", latLonTags),
    nested<&Layer::pExGeoBBox>("EX_GEOBBOX", geoBoxTags),
    number<&Layer::nBBox>("NUM_BOUNDING_BOX"),
    list<&Layer::pBBox, &Layer::nBBox>("BOUNDING_BOX", boundingBoxTags),
    number<&Layer::nExtent>("NUM_EXTENT"),
    list<&Layer::pExtent, &Layer::nExtent>("EXTENT", extentTags),
    number<&Layer::nDimension>("NUM_DIMENSION"),
    list<&Layer::pDimension, &Layer::nDimension>("DIMENSION", dimensionTags),
    nested<&Layer::pAttribution>("ATTRIBUTION", attributionTags),
    number<&Layer::nAuthorityUrl>("NUM_AUTHORITY"),
    list<&Layer::pAuthorityUrl, &Layer::nAuthorityUrl>("AUTHORITY", authorityTags),
    number<&Layer::nIdentifier>("NUM_IDENTIFIER"),
    list<&Layer::pIdentifier, &Layer::nIdentifier>("IDENTIFIER", identifierTags),
    number<&Layer::nMetadataUrl>("NUM_METADATA_URL"),
    list<&Layer::pMetadataUrl, &Layer::nMetadataUrl>("METADATA_URL", metadataTags),
    number<&Layer::nDataUrl>("NUM_DATA_URL"),
    list<&Layer::pDataUrl, &Layer::nDataUrl>("DATA_URL", onlineTags),
    number<&Layer::nFeatureUrl>("NUM_FEATURE_URL"),
    list<&Layer::pFeatureUrl, &Layer::nFeatureUrl>("FEATURE_URL", onlineTags),
    number<&Layer::nStyle>("NUM_STYLE"),
    list<&Layer::pStyle, &Layer::nStyle>("STYLE", styleTags),
    text<&Layer::szMinScale>("MIN_SCALE"),
    text<&Layer::szMaxScale>("MAX_SCALE"),
    text<&Layer::szQueryable>("QUERYABLE"),
    text<&Layer::szCascaded>("CASCADED"),
    text<&Layer::szOpaque>("OPAQUE"),
    text<&Layer::szNoSubsets>("NO_SUBSETS"),
    text<&Layer::szFixedWidth>("FIXED_WIDTH"),
    text<&Layer::szFixedHeight>("FIXED_HEIGHT"),
};

using Service = xWmsService_t;
constexpr Tag serviceTags[] = {
    text<&Service::name>("NAME"),
    text<&Service::title>("TITLE"),
    text<&Service::abstract>("ABSTRACT"),
    number<&Service::keywordCount>("NUM_KEYWORD"),
    list<&Service::keywords>("KEYWORD"),
    text<&Service::onlineResource>("ONLINE"),
    text<&Service::contactPerson>("PERSON"),
    text<&Service::contactOrganization>("ORGANIZATION"),
    text<&Service::contactPosition>("POSITION"),
    text<&Service::addressType>("ADDRESS_TYPE"),
    text<&Service::address>("ADDRESS"),
    text<&Service::city>("CITY"),
    text<&Service::stateOrProvince>("STATE"),
    text<&Service::postCode>("POSTAL_CODE"),
    text<&Service::country>("COUNTRY"),
    text<&Service::voiceTelephone>("VOICE"),
    text<&Service::facsimileTelephone>("FAX"),
    text<&Service::electronicMailAddress>("EMAIL"),
    text<&Service::fees>("FEES"),
    text<&Service::accessConstraints>("ACCESS"),
    text<&Service::layerLimit>("LAYER_LIMIT"),
    text<&Service::maxWidth>("MAX_WIDTH"),
    text<&Service::maxHeight>("MAX_HEIGHT"),
};

COgcWms& clientOf(ZEL_Variable* object) { return ogc::clientOf<COgcWms>(wmsService, object); }

} // namespace

ZEL_Variable* ZEL_OgcWmsGetCapabilities(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  static constexpr auto table =
      keywordTable({{"DISABLE_INHERITANCE"}, {"FROM_FILE"}, {"FROM_URL"}, {"SCHEMA_CHECKING"}, {"VALIDATION_MODE"}});
  return runFunction([&] {
    COgcWms& client = clientOf(argv[0]);
    const RecordsReport report(argv[0], client);
    const Keywords keywords(table, argc, argv, argk);
    const auto fromFile = fileOf(keywords[table.slot("FROM_FILE")]);
    const auto fromUrl = urlOf(keywords[table.slot("FROM_URL")]);
    const int schemaChecking = schemaCheckingOf(keywords[table.slot("SCHEMA_CHECKING")]);
    const int validationMode = validationModeOf(keywords[table.slot("VALIDATION_MODE")]);
    ZEL_Variable* disable = keywords[table.slot("DISABLE_INHERITANCE")];
    client.OgcWmsGetCap(fromFile.get(), fromUrl.get(), schemaChecking, validationMode,
                        disable != nullptr ? fixOf(disable) : 0);
    return zel::Temp(ZEL_GettmpInt(static_cast<std::int16_t>(client.layerCount())));
  });
}

ZEL_Variable* ZEL_OgcWmsGetMap(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return fetch<COgcWms, &COgcWms::OgcWmsGetMap>(wmsService, argc, argv, argk,
                                                "Error: Passed in Map argument is empty.");
}

ZEL_Variable* ZEL_OgcWmsGetFeatureInfo(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return fetch<COgcWms, &COgcWms::OgcWmsGetFeature>(wmsService, argc, argv, argk,
                                                    "Error: Passed in Feature argument is empty.");
}

ZEL_Variable* ZEL_OgcWmsGetLayers(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return runFunction([&] {
    COgcWms& client = clientOf(argv[0]);
    const Keywords keywords(listKeywords, argc, argv, argk);
    const Selection part =
        select(keywords, client.layerCount(), "Error: Invalid Index keyword value. It is too large.");
    if (part.number == 0) return nothing();
    client.OgcWmsGetNextLayerSkip(part.start);
    std::vector<const void*> layers(static_cast<std::size_t>(part.number));
    for (const void*& layer : layers) layer = client.OgcWmsGetNextLayer();
    LayerNames names{ogc::ReferenceSystems::Reader(client.srsNames()),
                     ogc::ReferenceSystems::Reader(client.crsNames())};
    return structsOf(layerTags, layers, &names);
  });
}

ZEL_Variable* ZEL_OgcWmsGetServiceSection(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return serviceSection<COgcWms>(wmsService, argc, argv, argk, serviceTags);
}

ZEL_Variable* ZEL_OgcWmsInit(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  return init<COgcWms, &COgcWms::OgcWmsCleanup, OGCWMSProcessSetProperties>(wmsService, argc, argv, argk);
}

void ZEL_OgcWmsCleanup(int, ZEL_Variable** argv) { cleanup<COgcWms, &COgcWms::OgcWmsCleanup>(wmsService, argv); }

void ZEL_OgcWmsGetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  runProcedure([&] { OGCWMSProcessGetProperties(argc, argv, argk, _ZEL_OGCWMSGetInstanceData(argv[0])); });
}

void ZEL_OgcWmsParseURL(int, ZEL_Variable** argv) {
  runProcedure([&] { clientOf(argv[0]).OgcBaseParseURL(textOf(argv[1]).c_str()); });
}

void ZEL_OgcWmsSetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  runProcedure([&] { OGCWMSProcessSetProperties(argc, argv, argk, 0, _ZEL_OGCWMSGetInstanceData(argv[0])); });
}

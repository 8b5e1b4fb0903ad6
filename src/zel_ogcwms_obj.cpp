#include "zel_ogcwms_obj.h"

#include "zel_ogcwms_sax.h"

#include <algorithm>
#include <string>

using ogc::WmsCapabilities;

namespace {

constexpr long firstCacheCapacity = 2000;
constexpr long cacheGrowth = 4000;

} // namespace

int COgcWms::OgcWmsInit() {
  OgcWmsAllocateLayerPtrCache(firstCacheCapacity, 0);
  return 1;
}

void WmsCapabilities::allocateCache(long capacity, int keep) {
  if (keep == 0) ppLayerCache.clear();
  ppLayerCache.resize(static_cast<std::size_t>(std::max<std::int64_t>(capacity, nLayers)), nullptr);
}

void WmsCapabilities::clear() noexcept {
  std::ranges::fill(ppLayerCache, nullptr);
  pService = nullptr;
  pLayers = nullptr;
  nLayers = 0;
  arena.release();
}

void COgcWms::forgetCapabilities() noexcept {
  m_srsNames.clear();
  m_crsNames.clear();
  m_layerCursor = nullptr;
  m_inherited = false;
  m_document.clear();
}

void COgcWms::OgcWmsCleanupCap() {
  requireIdle("The clean-up of the capabilities");
  forgetCapabilities();
  clearExceptions();
}

int COgcWms::OgcWmsCleanup() {
  OgcWmsCleanupCap();
  for (transfer::Text* text : {&m_capFile, &m_mapFile, &m_featFile, &m_version}) OgcBaseCleanUpCharArray(text);
  m_document.ppLayerCache = {};
  CurlCleanup();
  return 1;
}

void COgcWms::OgcWmsSetCapFN(const char* name) {
  setFileName(m_capFile, name, "Error: Capabilities Filename can not be null.");
}

void COgcWms::OgcWmsSetMapFN(const char* name) { setFileName(m_mapFile, name, "Error: Map Filename can not be null."); }

void COgcWms::OgcWmsSetFeatFN(const char* name) {
  setFileName(m_featFile, name, "Error: Feature Info Filename can not be null.");
}

void COgcWms::OgcWmsGetCap(const char* fromFile, const char* fromUrl, int schemaChecking, int validationMode,
                           int disableInheritance) {
  const auto read = [&] {
    COgcWmsSaxCapHandler handler(*this, m_document);
    readCapabilities(handler, "WMS", {fromFile, fromUrl, {schemaChecking, validationMode}}, m_capFile);
    if (fromUrl != nullptr) return;
    m_layerCursor = m_document.pLayers;
    if (disableInheritance == 0) OgcWmsApplyInheritance();
    reportCount("Number of layers found: ", layerCount());
    reportStatus("Get Capabilites request completed.");
  };
  refill([this] { forgetCapabilities(); }, read);
}

void COgcWms::OgcWmsGetMap(const char* query) {
  const Request request(*this);
  const std::string file = fetch("GetMap", query, m_mapFile,
                                 {"Error: failed to get a Map.",
                                  "Error: Get Map request failed to retrieve a data file.", "Map file written to: "});
  if (answerIsXml()) refuseXml(file);
  throwIfHtml();
  reportStatus("Get Map request completed.");
}

void COgcWms::OgcWmsGetFeature(const char* query) {
  const Request request(*this);
  fetch("GetFeatureInfo", query, m_featFile,
        {"Error: failed to get a Feature Info.", "Error: GetFeatureInfo request failed to retrieve a data file.",
         "Feature Info file written to: "});
  reportStatus("Get Feature Info request completed.");
}

std::string COgcWms::fetch(const char* request, const char* query, const transfer::Text& file,
                           const RequestTexts& texts) {
  setQuery("WMS", request, std::string("&").append(query != nullptr ? query : ""));
  return fetchFile(file.c_str(), texts);
}

void COgcWms::refuseXml(const std::string& file) {
  ogc::xml::Arena texts;
  ogc::xml::ExceptionHandler handler(*this, texts);
  try {
    parseAnswer(handler, file.c_str());
  } catch (const CCurlException&) {
    if (!handler.complete()) throw; // the server's own words have reached the status routine, a parser's are the reason
  }
  throw CCurlException("Error: Recieved an XML file instead of a Map.", response().contentTypeText.c_str());
}

void COgcWms::OgcWmsGetNextLayerSkip(int n) {
  m_layerCursor = m_document.pLayers;
  for (; n > 0; --n) {
    if (m_layerCursor == nullptr) throw CCurlException("Error: unable to skip over the desired number of layers.");
    m_layerCursor = m_layerCursor->pNext;
  }
}

const xWmsLayer_t* COgcWms::OgcWmsGetNextLayer() noexcept {
  const xWmsLayer_t* layer = m_layerCursor;
  if (layer != nullptr) m_layerCursor = layer->pNext;
  return layer;
}

xWmsLayer_t& COgcWms::layerAt(int i) const {
  xWmsLayer_t* layer = i >= 0 && i < layerCount() ? m_document.ppLayerCache[static_cast<std::size_t>(i)] : nullptr;
  if (layer == nullptr) throw CCurlException("Error: Invalid index in OgcWcsGetLayer call.");
  return *layer;
}

xWmsLayer_t& WmsCapabilities::addLayer(int parent, int level) {
  if (ppLayerCache.empty()) allocateCache(firstCacheCapacity, 0);
  if (nLayers == 0) {
    m_newLayer = {};
    makeRecords(m_newLayer.pLatLonBBox, m_newLayer.pExGeoBBox, m_newLayer.pBBox, m_newLayer.pExtent,
                m_newLayer.pDimension, m_newLayer.pAttribution, m_newLayer.pAuthorityUrl, m_newLayer.pIdentifier,
                m_newLayer.pMetadataUrl, m_newLayer.pDataUrl, m_newLayer.pFeatureUrl, m_newLayer.pStyle);
  }
  xWmsLayer_t& layer = *arena.make<xWmsLayer_t>();
  layer = m_newLayer;
  layer.iIndex = static_cast<int>(nLayers);
  layer.iParent = parent;
  layer.iLevel = level;
  const auto slot = static_cast<std::size_t>(nLayers);
  (slot == 0 ? pLayers : ppLayerCache[slot - 1]->pNext) = &layer;
  ppLayerCache[slot] = &layer;
  ++nLayers;
  const auto capacity = static_cast<std::int64_t>(ppLayerCache.size());
  if (capacity <= nLayers) allocateCache(static_cast<long>(capacity) + cacheGrowth, 1);
  return layer;
}

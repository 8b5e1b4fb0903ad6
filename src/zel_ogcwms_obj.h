/// \file
/// COgcWms, the WMS client: the records of a capabilities document, its requests and access to its layers.
/// Documents: OGC Web Map Service 1.1.0, 1.1.1 and 1.3.0, https://www.ogc.org/standard/wms/.
#pragma once

#include "client/base.h"
#include "xml/arena.h"
#include "zel_ogcwms_reference_systems.h"

#include <cstdint>
#include <string>
#include <vector>

/// \name Records of a capabilities document
/// Every value is the text of the document, null when absent. Counts say how many entries of a list are
/// valid; entry k is k links from the head. Lists of a layer may continue in a list of the layer it inherits from.
/// @{

/// A lat-lon box, or the west, east, south and north bounds of a geographic box, in degrees.
struct xWmsGeoBox_t {
  const char* minX; ///< or west
  const char* minY; ///< or east
  const char* maxX; ///< or south
  const char* maxY; ///< or north
};

struct xWmsBBox_t {
  const char *crs, *srs;
  const char *minX, *minY, *maxX, *maxY; ///< in units of the reference system
  const char *resX, *resY;
  xWmsBBox_t* next;
};

struct xWmsExtent_t {
  const char *name, *defaultValue, *nearestValue, *value;
  xWmsExtent_t* next;
};

struct xWmsDimension_t {
  const char *name, *units, *unitSymbol, *defaultValue, *multipleValues, *nearestValue, *current, *value;
  xWmsDimension_t* next;
};

struct xWmsAttribution_t {
  const char *title, *onlineResource, *logoFormat, *logoOnlineResource, *logoWidth, *logoHeight;
};

struct xWmsAuthorityUrl_t {
  const char *name, *onlineResource;
  xWmsAuthorityUrl_t* next;
};

struct xWmsIdentifier_t {
  const char *value, *authority;
  xWmsIdentifier_t* next;
};

struct xWmsMetadataUrl_t {
  const char *type, *format, *onlineResource;
  xWmsMetadataUrl_t* next;
};

struct xWmsOnlineRes_t {
  const char *format, *onlineResource;
  xWmsOnlineRes_t* next;
};

struct xWmsStyle_t {
  const char *name, *title, *abstract;
  const char *legendFormat, *legendOnlineResource, *legendWidth, *legendHeight;
  const char *sheetFormat, *sheetOnlineResource;
  const char *styleFormat, *styleOnlineResource;
  xWmsStyle_t* next;
};

/// Content of the `Service` element.
struct xWmsService_t {
  const char *name, *title, *abstract;
  int keywordCount;
  xNodeStr_t* keywords;
  const char* onlineResource;
  const char *contactPerson, *contactOrganization, *contactPosition;
  const char *addressType, *address, *city, *stateOrProvince, *postCode, *country;
  const char *voiceTelephone, *facsimileTelephone, *electronicMailAddress;
  const char *fees, *accessConstraints;
  const char *layerLimit, *maxWidth, *maxHeight;
};

/// One `Layer` element. A flag is 1 when the attribute or element was there, also with an empty text.
struct xWmsLayer_t {
  int iIndex;                               ///< position in document order, from 0
  int iParent;                              ///< index of the enclosing layer, -1 none
  int iLevel;                               ///< 1 outermost
  const char *szVersion, *szUpdateSequence; ///< of the document
  const char *szName, *szTitle, *szAbstract;
  int nMapFormat;
  xNodeStr_t* pMapFormat; ///< one list for all layers of a document
  int nFeatureFormat;
  xNodeStr_t* pFeatureFormat; ///< one list for all layers of a document
  int nKeyword;
  xNodeStr_t* pKeyword;
  int nSrs;         ///< `SRS` elements, not names, and inherited names
  xNodeStr_t* pSrs; ///< own names; all of them: COgcWms::srsNames
  int nCrs;
  xNodeStr_t* pCrs; ///< own names; all of them: COgcWms::crsNames
  int nLatLonBBox;
  xWmsGeoBox_t* pLatLonBBox;
  int nExGeoBBox;
  xWmsGeoBox_t* pExGeoBBox;
  int nBBox;
  xWmsBBox_t* pBBox;
  int nExtent;
  xWmsExtent_t* pExtent;
  int nDimension;
  xWmsDimension_t* pDimension;
  int nAttribution; ///< 0 for an attribution that is inherited
  xWmsAttribution_t* pAttribution;
  int nAuthorityUrl;
  xWmsAuthorityUrl_t* pAuthorityUrl;
  int nIdentifier;
  xWmsIdentifier_t* pIdentifier;
  int nMetadataUrl;
  xWmsMetadataUrl_t* pMetadataUrl;
  int nDataUrl;
  xWmsOnlineRes_t* pDataUrl;
  int nFeatureUrl;
  xWmsOnlineRes_t* pFeatureUrl;
  int nStyle;
  xWmsStyle_t* pStyle;
  int bMinScale; ///< flags stay 0 for values that are inherited
  const char* szMinScale;
  int bMaxScale;
  const char* szMaxScale;
  int bQueryable;
  const char* szQueryable;
  int bCascaded;
  const char* szCascaded;
  int bOpaque;
  const char* szOpaque;
  int bNoSubsets;
  const char* szNoSubsets;
  int bFixedWidth;
  const char* szFixedWidth;
  int bFixedHeight;
  const char* szFixedHeight;
  xWmsLayer_t* pNext;
};
/// @}

namespace ogc {

/// What a capabilities document holds.
class WmsCapabilities {
public:
  /// New last layer, its lists at the empty first records.
  xWmsLayer_t& addLayer(int parent, int level);
  /// Makes the cache `capacity` null entries long; the old entries stay in front when `keep` is not 0.
  void allocateCache(long capacity, int keep);
  /// Forgets everything; the cache keeps its capacity.
  void clear() noexcept;

  ogc::xml::Arena arena;             ///< owns the records
  xWmsService_t* pService = nullptr; ///< null until a child of `Service` was seen
  xWmsLayer_t* pLayers = nullptr;
  std::int64_t nLayers = 0;
  std::vector<xWmsLayer_t*> ppLayerCache; ///< the layers by their index

private:
  template <typename... Record>
  void makeRecords(Record*&... records) {
    ((records = arena.make<Record>()), ...);
  }

  /// As layers are before anything was read into them. Lists without entries have their first records, which are
  /// empty, in common: nothing is written to them, the first entry takes the place of the empty record.
  xWmsLayer_t m_newLayer{};
};

} // namespace ogc

class COgcWms final : public COgcBase {
public:
  COgcWms() : COgcBase("1.1.1") {}

  /// Gives the layer pointer cache its first capacity. \return 1.
  int OgcWmsInit();
  /// Makes the cache `capacity` null entries long; the old entries stay in front when `keep` is not 0.
  void OgcWmsAllocateLayerPtrCache(long capacity, int keep) { m_document.allocateCache(capacity, keep); }
  /// Releases the capabilities and the exception texts; the cache keeps its capacity.
  /// \throws CCurlException while a request runs.
  void OgcWmsCleanupCap();
  /// Releases everything, settings included. \return 1. \throws CCurlException while a request runs.
  int OgcWmsCleanup();

  /// \name Settings
  /// @{
  /// Base names of the files that answers are written to. \throws CCurlException for an empty name.
  void OgcWmsSetCapFN(const char* name);
  void OgcWmsSetMapFN(const char* name);
  void OgcWmsSetFeatFN(const char* name);
  /// WMS version sent in requests; not checked.
  void OgcWmsSetVer(const char* version) { OgcBaseStringHandler(&m_version, version); }
  [[nodiscard]] const transfer::Text& capFile() const noexcept { return m_capFile; }
  [[nodiscard]] const transfer::Text& mapFile() const noexcept { return m_mapFile; }
  [[nodiscard]] const transfer::Text& featFile() const noexcept { return m_featFile; }
  /// @}

  /// \name Requests
  /// One runs at a time. \throws CCurlException for every failure. A capabilities request that fails leaves no layers
  /// and no service section.
  /// @{
  /// Gets and parses the capabilities: from the server, from an existing file (`fromFile`), or, with `fromUrl`, writes
  /// the answer to that URL to the capabilities file, unparsed, to be read later with `fromFile`. Null: not given.
  /// \param schemaChecking,validationMode see COgcBase::OgcBaseParse
  void OgcWmsGetCap(const char* fromFile, const char* fromUrl, int schemaChecking, int validationMode,
                    int disableInheritance);
  /// Gets a map. \param query parameters joined with "&". The file written is responseFile().
  void OgcWmsGetMap(const char* query);
  /// Gets feature information; whatever the server answers is the result.
  void OgcWmsGetFeature(const char* query);
  /// @}

  /// Completes the layers from the ones around them. A second time nothing changes.
  void OgcWmsApplyInheritance();

  /// \name Access to the capabilities
  /// @{
  /// Service section, null when none was read.
  [[nodiscard]] const xWmsService_t* service() const noexcept { return m_document.pService; }
  /// Bytes of all records.
  [[nodiscard]] std::size_t recordSize() const noexcept { return m_document.arena.size(); }
  [[nodiscard]] std::int64_t layerCount() const noexcept { return m_document.nLayers; }
  [[nodiscard]] std::int64_t layerCacheCapacity() const noexcept {
    return static_cast<std::int64_t>(m_document.ppLayerCache.size());
  }
  /// All SRS or CRS names of layers, the inherited included: `ogc::ReferenceSystems::Reader names(client.srsNames());`.
  [[nodiscard]] const ogc::ReferenceSystems& srsNames() const noexcept { return m_srsNames; }
  [[nodiscard]] const ogc::ReferenceSystems& crsNames() const noexcept { return m_crsNames; }

  /// Moves the cursor to layer `n`. \throws CCurlException when there are fewer than `n` layers.
  void OgcWmsGetNextLayerSkip(int n);
  /// The layer at the cursor, which moves on; null at the end.
  const xWmsLayer_t* OgcWmsGetNextLayer() noexcept;
  /// Layer `i`. \throws CCurlException for an index out of range, and for a layer that has left the cache.
  [[nodiscard]] const xWmsLayer_t* OgcWmsGetLayer(int i) const { return &layerAt(i); }
  /// For native code that takes a layer apart; the routines return whole records.
  /// Entry `k` of a list of layer `i`, null when the list is shorter; the first for a `k` below 1.
  /// \throws CCurlException for a layer index out of range.
  const xWmsStyle_t* OgcWmsGetLyrStyle(int i, int k) const { return item(&Layer::pStyle, i, k); }
  const xWmsDimension_t* OgcWmsGetLyrDim(int i, int k) const { return item(&Layer::pDimension, i, k); }
  const xWmsAuthorityUrl_t* OgcWmsGetLyrAuth(int i, int k) const { return item(&Layer::pAuthorityUrl, i, k); }
  const xWmsBBox_t* OgcWmsGetLyrBBox(int i, int k) const { return item(&Layer::pBBox, i, k); }
  const xWmsExtent_t* OgcWmsGetLyrExt(int i, int k) const { return item(&Layer::pExtent, i, k); }
  const xWmsIdentifier_t* OgcWmsGetLyrId(int i, int k) const { return item(&Layer::pIdentifier, i, k); }
  const xWmsMetadataUrl_t* OgcWmsGetLyrMeta(int i, int k) const { return item(&Layer::pMetadataUrl, i, k); }
  const xWmsOnlineRes_t* OgcWmsGetLyrData(int i, int k) const { return item(&Layer::pDataUrl, i, k); }
  const xWmsOnlineRes_t* OgcWmsGetLyrFeat(int i, int k) const { return item(&Layer::pFeatureUrl, i, k); }
  /// @}

private:
  using Layer = xWmsLayer_t;
  void forgetCapabilities() noexcept;
  /// Gets what `query` asks for into `file`. \return the name of the file written.
  std::string fetch(const char* request, const char* query, const transfer::Text& file, const RequestTexts& texts);
  /// Refuses an XML answer after its exception texts were collected.
  [[noreturn]] void refuseXml(const std::string& file);
  [[nodiscard]] xWmsLayer_t& layerAt(int i) const;
  template <typename T>
  [[nodiscard]] T* item(T* Layer::*list, int i, int k) const {
    return transfer::itemAt(layerAt(i).*list, k);
  }
  transfer::Text m_capFile{"cap"};
  transfer::Text m_mapFile{"map"};
  transfer::Text m_featFile{"map"};
  ogc::WmsCapabilities m_document;
  const xWmsLayer_t* m_layerCursor = nullptr;
  bool m_inherited = false;
  ogc::ReferenceSystems m_srsNames{&xWmsLayer_t::pSrs, &xWmsLayer_t::nSrs};
  ogc::ReferenceSystems m_crsNames{&xWmsLayer_t::pCrs, &xWmsLayer_t::nCrs};
};

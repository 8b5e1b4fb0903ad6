/// \file
/// The SAX2 handler that reads a WMS capabilities document into records.
#pragma once

#include "xml/rules.h"
#include "zel_ogcwms_obj.h"

#include <utility>
#include <vector>

namespace ogc {

/// The records of a layer that attributes and texts go to.
struct WmsRecords {
  xNodeStr_t *keyword, *srs, *crs;
  xWmsGeoBox_t *latLon, *geo;
  xWmsBBox_t* bbox;
  xWmsExtent_t* extent;
  xWmsDimension_t* dimension;
  xWmsAttribution_t* attribution;
  xWmsAuthorityUrl_t* authorityUrl;
  xWmsIdentifier_t* identifier;
  xWmsMetadataUrl_t* metadataUrl;
  xWmsOnlineRes_t *dataUrl, *featureUrl;
  xWmsStyle_t* style;
};

} // namespace ogc

/// Elements are recognised by local name in any letter case, and by the section and group that they are in. One that is
/// out of place is ignored, or stored by the rule it matches: all below a `Layer` goes to the layer that was opened
/// last.
class COgcWmsSaxHelper : public ogc::xml::RuleHandler<COgcWmsSaxHelper>, public ogc::WmsRecords {
public:
  /// 1 when some node of `list` holds `s`, in any letter case; 0 for a null `s`. For handlers that collect names once.
  [[nodiscard]] static int CheckStringNode(const xNodeStr_t* list, const char* s) noexcept;

  /// Index of the last layer so far with that level, -1 when there is none.
  [[nodiscard]] int FindParent(int level) const noexcept;

  /// \name For rules
  /// @{
  struct Formats {
    int count = 0;
    xNodeStr_t* head = nullptr;
    xNodeStr_t* tail = nullptr;
  };
  void openLayer(const xercesc::Attributes& attrs);
  void closeLayer() noexcept;
  void openService();
  /// Gives the layer a record of its own in place of the empty one, for its first element.
  template <typename T>
  void addFirstRecord(int& count, T*& record) {
    if (count++ == 0) record = m_arena.make<T>();
  }

  /// A list of reference systems begins: it may be that of the layer before.
  void expectAsBefore(const xNodeStr_t* systems) noexcept { m_expected = std::exchange(m_systems, systems); }

  xWmsLayer_t* layer = nullptr; ///< opened last
  xWmsService_t* service = nullptr;
  xNodeStr_t* serviceKeyword = nullptr;
  Formats mapFormats;
  Formats featureFormats;
  /// @}

protected:
  COgcWmsSaxHelper(ogc::xml::Reporter& reporter, ogc::WmsCapabilities& document);
  ~COgcWmsSaxHelper() override = default;

private:
  ogc::WmsCapabilities& m_document;
  int m_layerDepth = 0;
  const xNodeStr_t* m_systems = nullptr; ///< of the last layer that has any
  std::vector<int> m_lastOfLevel;        ///< by level: index of the last layer
};

/// Reads a capabilities document.
class COgcWmsSaxCapHandler final : public COgcWmsSaxHelper {
public:
  COgcWmsSaxCapHandler(ogc::xml::Reporter& reporter, ogc::WmsCapabilities& document)
      : COgcWmsSaxHelper(reporter, document) {}
};

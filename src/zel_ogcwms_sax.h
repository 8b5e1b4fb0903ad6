/// \file
/// The SAX2 handler that reads a WMS capabilities document into the records of COgcWms.
#pragma once

#include "xml/handler.h"
#include "zel_ogcwms_obj.h"

#include <vector>

/// What the handlers of WMS documents share.
class COgcWmsSaxHelper : public COgcSaxHelper {
public:
  /// 1 when some node of `list` holds `s`, in any letter case; 0 for a null `s`.
  [[nodiscard]] static int CheckStringNode(const xNodeStr_t* list, const char* s) noexcept;

protected:
  COgcWmsSaxHelper(COgcBase& owner, COgcArena& arena);
  ~COgcWmsSaxHelper() override = default;

  int iUrlState = 0; ///< URL element open inside an attribution or a style
};

/// Elements are recognised by local name in any letter case, and by the section and grouping element they stand in. One
/// that is out of place is ignored, or stored by the rule it matches: all below a `Layer` goes to the layer that was
/// opened last. The records are those of the client given.
class COgcWmsSaxCapHandler final : public COgcWmsSaxHelper {
public:
  explicit COgcWmsSaxCapHandler(COgcWms& owner);

  void startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname,
                    const xercesc::Attributes& attrs) override;
  void endElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname) override;
  void characters(const XMLCh* chars, XMLSize_t length) override;

  /// Index of the last layer so far with that level, -1 when there is none.
  [[nodiscard]] int FindParent(int level) const noexcept;

private:
  struct Formats {
    int count = 0;
    xNodeStr_t* head = nullptr;
    xNodeStr_t* tail = nullptr;
  };

  /// The records that the next attributes and texts go to.
  struct Current {
    xNodeStr_t *keyword, *srs, *crs;
    xWmsBBox_t* bbox;
    xWmsExtent_t* extent;
    xWmsDimension_t* dimension;
    xWmsAuthorityUrl_t* authorityUrl;
    xWmsIdentifier_t* identifier;
    xWmsMetadataUrl_t* metadataUrl;
    xWmsOnlineRes_t *dataUrl, *featureUrl;
    xWmsStyle_t* style;
  };

  [[nodiscard]] Formats& formats() noexcept;
  void openLayer(const xercesc::Attributes& attrs);
  void layerElement(int code, const xercesc::Attributes& attrs);
  void groupElement(int code, const xercesc::Attributes& attrs);
  void attributionElement(int code, const xercesc::Attributes& attrs);
  void styleElement(int code, const xercesc::Attributes& attrs);
  void serviceElement(int code, const xercesc::Attributes& attrs);
  template <typename Rule, typename T>
  void listElement(const Rule& rule, T*& current, int code, const xercesc::Attributes& attrs);
  template <typename T>
  void countRecord(int& count, T*& record);
  template <typename Rows, typename T>
  void store(const Rows& rows, T& record, const xercesc::Attributes& attrs);
  void addText(int& count, xNodeStr_t** head, xNodeStr_t** tail, int use);
  void collect(const char** text) noexcept;
  void leave() noexcept;

  COgcWms& m_wms;
  xWmsLayer_t* m_layer = nullptr; ///< opened last
  int iLayerDepth = 0;
  Formats m_mapFormats;
  Formats m_featureFormats;
  Current m_current{};
  xNodeStr_t* m_serviceKeyword = nullptr;
  const char** m_text = nullptr;   ///< where the text of the current element goes
  std::vector<int> m_openElements; ///< their codes
  std::vector<int> m_lastOfLevel;  ///< by level: index of the last layer
};

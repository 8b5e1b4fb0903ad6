/// \file
/// Handlers of the WCS 1.0.0 documents: capabilities and coverage descriptions into the records of zel_ogcwcs_obj.h.
#pragma once

#include "xml/handler.h"
#include "zel_ogcwcs_obj.h"

/// Reads a document by a grammar: tables that say which elements open a section, and what each element within it
/// creates and where its attributes and text go. Elements are recognised by local name and section alone. What has no
/// record to go to is ignored.
class COgcWcsSaxHelper : public COgcSaxHelper {
public:
  void startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname,
                    const xercesc::Attributes& attrs) override;
  void endElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname) override;
  void characters(const XMLCh* chars, XMLSize_t length) override;

protected:
  struct Rule;
  struct Grammar;
  struct Tables;

  COgcWcsSaxHelper(COgcBase& owner, COgcArena& arena, const Grammar& grammar);
  ~COgcWcsSaxHelper() override = default;

  /// Makes the record of the service section, for its first child.
  virtual void OpenService() {}
  /// Adds a brief or an offering behind `current`, with its index text and the document's version.
  template <typename T>
  void AddOffering(T** head, T** current, int* count);

  /// \name The records being filled, null when there is none
  /// @{
  WcsService* pCurService = nullptr;
  WcsBrief* pCurBrief = nullptr;
  WcsOffering* pCurOffering = nullptr;
  WcsEnvelope* pCurLonLat = nullptr;
  WcsEnvelope* pCurEnvelope = nullptr;
  WcsGrid* pCurGrid = nullptr;
  WcsTimePosition* pCurTimePosition = nullptr;
  WcsTimePeriod* pCurTimePeriod = nullptr;
  WcsRangeSet* pCurRangeSet = nullptr;
  WcsAxis* pCurAxis = nullptr;
  WcsInterval* pCurInterval = nullptr;
  WcsCrs* pCurCrs = nullptr;
  /// @}
  int iPosCount = 0;     ///< runs of `pos` text seen
  int iTimePosCount = 0; ///< runs of `timePosition` text seen

private:
  const Grammar& m_grammar;
  const Rule* m_collecting = nullptr; ///< whose text is being collected
};

/// Reads a capabilities document. The first two runs of `timePosition` text of the whole document are kept.
class COgcWcsSaxCapHandler final : public COgcWcsSaxHelper {
public:
  COgcWcsSaxCapHandler(COgcBase& owner, WcsCapabilities& document);

private:
  friend struct Tables;
  void OpenService() override;
  void OpenBrief();

  WcsCapabilities& m_document;
};

/// Reads a coverage description.
class COgcWcsSaxDesCovHandler final : public COgcWcsSaxHelper {
public:
  COgcWcsSaxDesCovHandler(COgcBase& owner, WcsDescription& document);

private:
  friend struct Tables;
  void OpenOffering();

  WcsDescription& m_document;
};

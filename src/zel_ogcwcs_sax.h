/// \file
/// Handlers of the WCS 1.0.0 documents: capabilities and coverage descriptions into the records of zel_ogcwcs_obj.h.
#pragma once

#include "xml/rules.h"
#include "zel_ogcwcs_obj.h"

/// Elements are recognised by local name and section alone. What has no record to go to is ignored.
class COgcWcsSaxHelper : public ogc::xml::RuleHandler<COgcWcsSaxHelper> {
public:
  /// \name For rules: what is being read, null for the other document
  /// @{
  WcsCapabilities* const capabilities;
  WcsDescription* const description;
  /// @}
  /// \name The records being filled, null when there is none
  /// @{
  WcsService* service = nullptr;
  WcsBrief* brief = nullptr;
  WcsOffering* offering = nullptr;
  WcsEnvelope* lonLat = nullptr;
  WcsEnvelope* envelope = nullptr;
  WcsGrid* grid = nullptr;
  WcsTimePosition* timePosition = nullptr;
  WcsTimePeriod* timePeriod = nullptr;
  WcsRangeSet* rangeSet = nullptr;
  WcsAxis* axis = nullptr;
  WcsInterval* interval = nullptr;
  WcsCrs* crs = nullptr;
  /// @}
  int posCount = 0;     ///< texts of `pos` seen
  int timePosCount = 0; ///< texts of `timePosition` seen

  void openService();
  void openBrief();
  void openOffering();

protected:
  COgcWcsSaxHelper(COgcBase& owner, WcsCapabilities& document);
  COgcWcsSaxHelper(COgcBase& owner, WcsDescription& document);
  ~COgcWcsSaxHelper() override = default;

private:
  /// Appends a brief or an offering, with its index text and the document's version.
  template <typename T>
  void addOffering(T** head, T** current, int* count);
};

/// Reads a capabilities document. The first two texts of `timePosition` of the whole document are kept.
class COgcWcsSaxCapHandler final : public COgcWcsSaxHelper {
public:
  COgcWcsSaxCapHandler(COgcBase& owner, WcsCapabilities& document) : COgcWcsSaxHelper(owner, document) {}
};

/// Reads a coverage description.
class COgcWcsSaxDesCovHandler final : public COgcWcsSaxHelper {
public:
  COgcWcsSaxDesCovHandler(COgcBase& owner, WcsDescription& document) : COgcWcsSaxHelper(owner, document) {}
};

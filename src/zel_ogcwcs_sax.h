/// \file
/// Handlers of the WCS 1.0.0 documents: capabilities and coverage descriptions into the records of zel_ogcwcs_obj.h.
#pragma once

#include "xml/rules.h"
#include "zel_ogcwcs_obj.h"

namespace ogc {

/// The parts of a coverage offering that attributes and texts go to, null when there is none.
struct WcsParts {
  WcsEnvelope* lonLat = nullptr;
  WcsRangeSet* rangeSet = nullptr;
  WcsCrs* crs = nullptr;
  WcsEnvelope* envelope = nullptr;
  WcsGrid* grid = nullptr;
  WcsTimePosition* timePosition = nullptr;
  WcsTimePeriod* timePeriod = nullptr;
  WcsAxis* axis = nullptr;
  WcsInterval* interval = nullptr;
};

} // namespace ogc

/// Elements are recognised by local name and section alone. What has no record to go to is ignored.
class COgcWcsSaxHelper : public ogc::xml::RuleHandler<COgcWcsSaxHelper>, public ogc::WcsParts {
public:
  /// \name For rules: what is being read, null for the other document
  /// @{
  ogc::WcsCapabilities* const capabilities;
  ogc::WcsDescription* const description;
  /// @}
  /// \name The records being filled, null when there is none
  /// @{
  ogc::WcsService* service = nullptr;
  ogc::WcsBrief* brief = nullptr;
  ogc::WcsOffering* offering = nullptr;
  /// @}
  int posCount = 0;     ///< texts of `pos` seen
  int timePosCount = 0; ///< texts of `timePosition` seen

  void openService();
  void openBrief();
  void openOffering();

protected:
  COgcWcsSaxHelper(ogc::xml::Reporter& reporter, ogc::WcsCapabilities& document);
  COgcWcsSaxHelper(ogc::xml::Reporter& reporter, ogc::WcsDescription& document);
  ~COgcWcsSaxHelper() override = default;

private:
  /// Appends a brief or an offering, with its index text and the document's version.
  template <typename T>
  void addOffering(T** head, T** current, std::int64_t* count);
};

/// Reads a capabilities document. The first two texts of `timePosition` of the whole document are kept.
class COgcWcsSaxCapHandler final : public COgcWcsSaxHelper {
public:
  COgcWcsSaxCapHandler(ogc::xml::Reporter& reporter, ogc::WcsCapabilities& document)
      : COgcWcsSaxHelper(reporter, document) {}
};

/// Reads a coverage description.
class COgcWcsSaxDesCovHandler final : public COgcWcsSaxHelper {
public:
  COgcWcsSaxDesCovHandler(ogc::xml::Reporter& reporter, ogc::WcsDescription& document)
      : COgcWcsSaxHelper(reporter, document) {}
};

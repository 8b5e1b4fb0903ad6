/// \file
/// COgcWcs, the client of the Web Coverage Service 1.0.0 (OGC 03-065r6), and the records of the documents it reads.
/// Texts are UTF-8 as the server sent them, null when the document gave none; nothing is converted to numbers. Records,
/// texts and nodes belong to the client and live until the next request of their kind or its clean-up.
#pragma once

#include "client/base.h"
#include "xml/arena.h"

#include <algorithm>

namespace ogc {

/// A list in document order. Reads as a pointer to its first item; items are linked by `next`.
template <typename T>
struct WcsList {
  T* head;
  T* tail; ///< where the next item is appended; may lag behind the last one

  operator T*() const noexcept { return head; }
};
using WcsTexts = WcsList<xNodeStr_t>;

/// Service section of a capabilities document.
struct WcsService {
  const char *name, *label, *description;
  WcsTexts keywords;
  const char *individualName, *organisationName, *positionName;
  const char *voice, *facsimile;
  const char *deliveryPoint, *city, *administrativeArea, *postalCode, *country, *electronicMailAddress;
  const char *onlineResource, *fees, *accessConstraints;
};

/// Coverage offering brief. Positions are space-separated coordinates, lower corner first.
struct WcsBrief {
  const char* index;                    ///< position in the document from 0, as text of at most 7 characters
  const char *version, *updateSequence; ///< of the document
  const char *name, *description, *label;
  const char *lonLatSrsName, *pos1, *pos1Dimension, *pos2, *pos2Dimension, *timePosition1, *timePosition2;
  WcsTexts keywords;
  WcsBrief* next;
};

struct WcsEnvelope {
  const char *srsName, *pos1, *pos1Dimension, *pos2, *pos2Dimension, *timePosition1, *timePosition2;
  WcsEnvelope* next;
};

struct WcsGrid {
  const char* rectified; ///< "Yes" or "No"
  const char *dimension, *srsName, *low, *high;
  WcsTexts axisNames;
  const char* origin;
  WcsTexts offsetVectors;
  WcsGrid* next;
};

struct WcsTimePosition {
  const char *position, *frame, *calendarEraName, *indeterminatePosition;
  WcsTimePosition* next;
};

/// The three attributes are those of the begin position.
struct WcsTimePeriod {
  const char *begin, *end, *resolution, *frame, *calendarEraName, *indeterminatePosition;
  WcsTimePeriod* next;
};

struct WcsInterval {
  const char *min, *max, *res;
  WcsInterval* next;
};

struct WcsRangeSet {
  const char *description, *label, *name;
  WcsList<WcsInterval> nullIntervals;
  WcsTexts nullSingleValues;
};

struct WcsAxis {
  const char *name, *label, *description, *defaultValue;
  WcsTexts singleValues;
  WcsList<WcsInterval> intervals;
  WcsAxis* next;
};

struct WcsCrs {
  WcsTexts requestResponseCRSs, requestCRSs, responseCRSs, nativeCRSs;
};

/// Coverage offering of a coverage description.
struct WcsOffering {
  const char* index;                    ///< position in the document from 0, as text of at most 7 characters
  const char *version, *updateSequence; ///< of the document
  const char *description, *name, *label;
  WcsEnvelope lonLatEnvelope; ///< its `next` is always null
  WcsList<WcsEnvelope> envelopes;
  WcsList<WcsGrid> grids;
  WcsList<WcsTimePosition> timePositions;
  WcsList<WcsTimePeriod> timePeriods;
  WcsRangeSet rangeSet;
  WcsList<WcsAxis> axes;
  WcsCrs crs;
  WcsTexts formats;
  const char* nativeFormat;
  WcsTexts interpolationMethods;
  const char* defaultInterpolation;
  WcsOffering* next;
};

/// What a capabilities document holds.
struct WcsCapabilities {
  ogc::xml::Arena arena;
  WcsService* pService = nullptr; ///< null until a child of `Service` was seen
  WcsBrief* pBriefHead = nullptr;
  std::int64_t iBriefCount = 0;
};

/// What a coverage description holds.
struct WcsDescription {
  ogc::xml::Arena arena;
  WcsOffering* pCovOfferingHead = nullptr;
  std::int64_t iCovOfferingCount = 0;
};

} // namespace ogc

/// Requests, and what they found. Failures are CCurlExceptions; a request for records that fails leaves none. While a
/// request runs, a second one and the clean-ups of records are refused.
class COgcWcs final : public COgcBase {
public:
  COgcWcs() : COgcBase("1.0.0") {}

  [[nodiscard]] static int OgcWcsInit() noexcept { return 1; }

  /// Version sent in requests, unchecked.
  void OgcWcsSetVer(const char* version) { OgcBaseStringHandler(&m_version, version); }
  /// Names of the files that answers are written to. \throws CCurlException for an empty name; the old one stays.
  void OgcWcsSetCapFN(const char* name);
  void OgcWcsSetDesCovFN(const char* name);
  void OgcWcsSetCovFN(const char* name);

  /// Requests and reads the capabilities document. \param fromFile existing document to read instead, null for none.
  /// \param fromUrl complete request URL, null for none; its answer is written to the capabilities file and not read.
  /// \param schemaChecking,validationMode as for COgcBase::OgcBaseParse.
  void OgcWcsGetCap(const char* fromFile, const char* fromUrl, int schemaChecking, int validationMode);
  /// Requests and reads the description of coverages, asked for as one comma-separated value: the names after the first
  /// are cut at 2047 characters together. \param names null: the query of the last request is used again.
  /// \param fromFile existing document to read instead, null for none.
  void OgcWcsDescribeCoverage(const char* const* names, int nameCount, const char* fromFile, int schemaChecking,
                              int validationMode);
  /// Requests a coverage and writes it to the coverage file. \param query key-value pairs of the request, joined by
  /// "&".
  void OgcWcsGetCoverage(const char* query);

  /// The brief at the cursor, which moves on; null at the end. A capabilities request puts the cursor at the first
  /// brief.
  const ogc::WcsBrief* OgcWcsGetNextCOB() noexcept;
  /// Moves the cursor past the first `count` briefs. \throws CCurlException when there are fewer or `count` is
  /// negative.
  void OgcWcsGetNextCOBSkip(int count);

  /// \name Parts of a coverage offering
  /// For native code that takes an offering apart; the routines return whole records.
  /// Offering `co` and item `n` of one of its lists, both from 0; below that the first is meant. An item beyond the end
  /// is null, a list of an absent item has no length. \throws CCurlException when `co` is not below the number of
  /// offerings, and when there are none. Counts of a grid or an axis take -1 for the largest among all.
  /// @{
  [[nodiscard]] const ogc::WcsOffering* OgcWcsGetCO(int index) const;
  const ogc::WcsEnvelope* OgcWcsGetCOSDLLE(int co, int n) const { return item(&Offering::envelopes, co, n); }
  int OgcWcsGetCOSDLLECount(int co) const { return transfer::length(OgcWcsGetCO(co)->envelopes.head); }
  const ogc::WcsGrid* OgcWcsGetCOSDGrid(int co, int n) const { return item(&Offering::grids, co, n); }
  int OgcWcsGetCOSDGridCount(int co) const { return transfer::length(OgcWcsGetCO(co)->grids.head); }
  int OgcWcsGetCOSDGridAxisNameCount(int co, int grid) const {
    return lengthIn(&Offering::grids, co, grid, &ogc::WcsGrid::axisNames);
  }
  int OgcWcsGetCOSDGridOffsetVectorCount(int co, int grid) const {
    return lengthIn(&Offering::grids, co, grid, &ogc::WcsGrid::offsetVectors);
  }
  const ogc::WcsTimePosition* OgcWcsGetCOTempTimePos(int co, int n) const {
    return item(&Offering::timePositions, co, n);
  }
  int OgcWcsGetCOTempTimePosCount(int co) const { return transfer::length(OgcWcsGetCO(co)->timePositions.head); }
  const ogc::WcsTimePeriod* OgcWcsGetCOTempTimePeriod(int co, int n) const {
    return item(&Offering::timePeriods, co, n);
  }
  int OgcWcsGetCOTempTimePeriodCount(int co) const { return transfer::length(OgcWcsGetCO(co)->timePeriods.head); }
  [[nodiscard]] const ogc::WcsInterval* OgcWcsGetCORngNullInterval(int co, int n) const {
    return transfer::itemAt(OgcWcsGetCO(co)->rangeSet.nullIntervals.head, n);
  }
  int OgcWcsGetCORngNullIntervalCount(int co) const { return transfer::length(OgcWcsGetCORngNullInterval(co, 0)); }
  const ogc::WcsAxis* OgcWcsGetCORngAxis(int co, int n) const { return item(&Offering::axes, co, n); }
  int OgcWcsGetCORngAxisCount(int co) const { return transfer::length(OgcWcsGetCO(co)->axes.head); }
  int OgcWcsGetCORngAxisSingleCount(int co, int axis) const {
    return lengthIn(&Offering::axes, co, axis, &ogc::WcsAxis::singleValues);
  }
  [[nodiscard]] const ogc::WcsInterval* OgcWcsGetCORngAxisInt(int co, int axis, int n) const;
  int OgcWcsGetCORngAxisIntCount(int co, int axis) const {
    return lengthIn(&Offering::axes, co, axis, &ogc::WcsAxis::intervals);
  }
  /// @}

  /// \name Clean-ups
  /// @{
  /// For native code that is done with the capabilities, the descriptions, or the exception texts alone.
  void OgcWcsCleanupNewCap();
  void OgcWcsCleanupDesCov();
  void OgcWcsCleanupCov() noexcept { clearExceptions(); }
  /// Forgets records, file names, exception texts and the transfer settings. \return 1
  int OgcWcsCleanup();
  /// @}

  /// Service section, null when none was read.
  [[nodiscard]] const ogc::WcsService* service() const noexcept { return m_capabilities.pService; }
  [[nodiscard]] const ogc::WcsBrief* briefs() const noexcept { return m_capabilities.pBriefHead; }
  /// Bytes of all records.
  [[nodiscard]] std::size_t recordSize() const noexcept {
    return m_capabilities.arena.size() + m_description.arena.size();
  }
  [[nodiscard]] std::int64_t briefCount() const noexcept { return m_capabilities.iBriefCount; }
  [[nodiscard]] const ogc::WcsOffering* offerings() const noexcept { return m_description.pCovOfferingHead; }
  [[nodiscard]] std::int64_t offeringCount() const noexcept { return m_description.iCovOfferingCount; }
  [[nodiscard]] const transfer::Text& capFile() const noexcept { return m_capFile; }
  [[nodiscard]] const transfer::Text& desCovFile() const noexcept { return m_desCovFile; }
  [[nodiscard]] const transfer::Text& covFile() const noexcept { return m_covFile; }

private:
  using Offering = ogc::WcsOffering;
  /// Item `n` of a list of offering `co`.
  template <typename T>
  [[nodiscard]] T* item(ogc::WcsList<T> Offering::*list, int co, int n) const {
    return transfer::itemAt((OgcWcsGetCO(co)->*list).head, n);
  }
  /// Length of a list of item `n` of a list of offering `co`; for an `n` of -1 the largest among all items.
  template <typename T, typename U>
  [[nodiscard]] int lengthIn(ogc::WcsList<T> Offering::*items, int co, int n, ogc::WcsList<U> T::*list) const {
    const auto lengthOf = [list](const T* one) { return one != nullptr ? transfer::length((one->*list).head) : 0; };
    if (n != -1) return lengthOf(item(items, co, n));
    int largest = 0;
    for (const T* one = item(items, co, 0); one != nullptr; one = one->next) largest = std::max(largest, lengthOf(one));
    return largest;
  }
  void forgetCapabilities() noexcept;
  void forgetDescription() noexcept;

  transfer::Text m_capFile{"cap"}, m_desCovFile{"descov"}, m_covFile{"cov"};
  ogc::WcsCapabilities m_capabilities;
  const ogc::WcsBrief* m_briefCursor = nullptr;
  ogc::WcsDescription m_description;
};

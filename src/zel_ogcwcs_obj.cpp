#include "zel_ogcwcs_obj.h"

#include "zel_ogcwcs_sax.h"

#include <algorithm>
#include <string>

using namespace ogc;
using transfer::itemAt;

namespace {

constexpr std::size_t joinedNamesLimit = 2047;
constexpr std::size_t nameLimit = 2048;

/// The Coverage parameter: all names as one comma-separated value.
std::string coverageParameter(const char* const* names, int count) {
  const auto text = [&](int i) { return std::string_view(names[i] != nullptr ? names[i] : ""); };
  std::string others;
  for (int i = 1; i < count && others.size() < joinedNamesLimit; ++i) {
    others += ',';
    others += transfer::cutAt(text(i), nameLimit);
  }
  others.resize(transfer::cutAt(others, joinedNamesLimit).size());
  return std::string("&Coverage=").append(text(0)).append(others);
}

} // namespace

void COgcWcs::OgcWcsSetCapFN(const char* name) {
  setFileName(m_capFile, name, "Error: Capabilities Filename can not be null.");
}

void COgcWcs::OgcWcsSetDesCovFN(const char* name) {
  setFileName(m_desCovFile, name, "Error: Describe Coverage Filename can not be null.");
}

void COgcWcs::OgcWcsSetCovFN(const char* name) {
  setFileName(m_covFile, name, "Error: Coverage Filename can not be null.");
}

void COgcWcs::OgcWcsGetCap(const char* fromFile, const char* fromUrl, int schemaChecking, int validationMode) {
  const auto read = [&] {
    COgcWcsSaxCapHandler handler(*this, m_capabilities);
    readCapabilities(handler, "WCS", {fromFile, fromUrl, {schemaChecking, validationMode}}, m_capFile);
    if (fromUrl != nullptr) return;
    m_briefCursor = briefs();
    reportCount("Number of brief coverage decriptions found: ", briefCount());
    reportStatus("Get Capabilites request completed.");
  };
  refill([this] { forgetCapabilities(); }, read);
}

void COgcWcs::OgcWcsDescribeCoverage(const char* const* names, int nameCount, const char* fromFile, int schemaChecking,
                                     int validationMode) {
  static constexpr DocumentTexts texts{{"Error: failed to get a describe coverage doc",
                                        "Error: Describe Coverage request failed to retrieve an xml file.",
                                        "Describe Coverage response written to: "},
                                       "Parsing Describe Coverage XML doc...",
                                       "Parsing describe coverage from an XML existing file:"};
  const auto read = [&] {
    if (names != nullptr) setQuery("WCS", "DescribeCoverage", coverageParameter(names, nameCount));
    COgcWcsSaxDesCovHandler handler(*this, m_description);
    readDocument(handler, {fromFile, nullptr, {schemaChecking, validationMode}}, m_desCovFile, texts);
    reportCount("Number of Describe Coverages found: ", offeringCount());
    reportStatus("Get DescribeCoverage request completed.");
  };
  refill([this] { forgetDescription(); }, read);
}

void COgcWcs::OgcWcsGetCoverage(const char* query) {
  const Request request(*this);
  setQuery("WCS", "GetCoverage", std::string("&").append(query != nullptr ? query : ""));
  const std::string file = fetchFile(m_covFile.c_str(), {"Error: failed to get a coverage.",
                                                         "Error: Get Coverage request failed to retrieve a data file.",
                                                         "Coverage file written to: "});
  if (answerIsXml()) {
    ogc::xml::Arena texts;
    ogc::xml::ExceptionHandler handler(*this, texts);
    parseAnswer(handler, file.c_str());
    throw CCurlException("Error: Received an XML file instead of a coverage.", response().contentTypeText.c_str());
  }
  throwIfHtml();
  reportCount("Number of Coverages retrieved: ", 1);
  reportStatus("Get Coverage request completed.");
}

const WcsBrief* COgcWcs::OgcWcsGetNextCOB() noexcept {
  const WcsBrief* brief = m_briefCursor;
  if (brief != nullptr) m_briefCursor = brief->next;
  return brief;
}

void COgcWcs::OgcWcsGetNextCOBSkip(int count) {
  m_briefCursor = itemAt(briefs(), count);
  if (count < 0 || count > briefCount()) {
    throw CCurlException("Error: unable to skip over the desired number of coverage briefs.");
  }
}

const WcsOffering* COgcWcs::OgcWcsGetCO(int index) const {
  if (std::max(index, 0) >= offeringCount()) throw CCurlException("Error: Invalid index in OgcWcsGetCO call.");
  return itemAt(offerings(), index);
}

const WcsInterval* COgcWcs::OgcWcsGetCORngAxisInt(int co, int axis, int n) const {
  const WcsAxis* item = OgcWcsGetCORngAxis(co, axis);
  return item != nullptr ? itemAt(item->intervals.head, n) : nullptr;
}

void COgcWcs::OgcWcsCleanupNewCap() {
  requireIdle("The clean-up of the capabilities");
  forgetCapabilities();
}

void COgcWcs::OgcWcsCleanupDesCov() {
  requireIdle("The clean-up of the coverage offerings");
  forgetDescription();
}

int COgcWcs::OgcWcsCleanup() {
  requireIdle("The clean-up");
  forgetCapabilities();
  forgetDescription();
  clearExceptions();
  for (transfer::Text* name : {&m_capFile, &m_desCovFile, &m_covFile}) OgcBaseCleanUpCharArray(name);
  CurlCleanup();
  return 1;
}

void COgcWcs::forgetCapabilities() noexcept {
  m_briefCursor = nullptr;
  m_capabilities.pService = nullptr;
  m_capabilities.pBriefHead = nullptr;
  m_capabilities.iBriefCount = 0;
  m_capabilities.arena.release();
}

void COgcWcs::forgetDescription() noexcept {
  m_description.pCovOfferingHead = nullptr;
  m_description.iCovOfferingCount = 0;
  m_description.arena.release();
}

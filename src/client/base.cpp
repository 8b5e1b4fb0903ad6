#include "client/base.h"

#include "client/bridge.h"
#include "xml/rules.h"
#include "zel_curl_shown.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <strings.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t queryPartLimit = 1023;
constexpr std::size_t htmlMessageSize = 512;

bool contains(const std::string& text, const char* pattern) {
  return CCurl::CurlFindStringEndIdx(static_cast<int>(text.size()), text.c_str(), pattern, 0) != 0;
}

bool equalsIgnoringCase(const transfer::Text& text, const char* other) noexcept {
  return strcasecmp(text.c_str(), other) == 0;
}

} // namespace

COgcBase::COgcBase(const char* version) {
  m_version.set(version);
  CurlSetCallbackFunc(OgcCallback);
}

COgcBase::Request::Request(COgcBase& client) : m_client(client) {
  client.requireIdle("A new request");
  client.m_busy = true;
  client.holdResponseFile(true);
}

void COgcBase::requireIdle(const char* what) const {
  if (!m_busy && !isTransferring()) return;
  const std::string text = "Error: a request of this object is still running. ";
  throw CCurlException((text + what + " has to wait until it has ended").c_str());
}

template <typename Call>
auto COgcBase::callOut(Call call) {
  try {
    return call();
  } catch (...) {
    m_hostError = std::current_exception();
    throw;
  }
}

int COgcBase::callStatusRoutine(const char* text, xProgressValues* figures) {
  return m_quiet ? 1 : callOut([&] { return CCurl::callStatusRoutine(text, figures); });
}

void COgcBase::reportWarning(const char* text) {
  if (m_quiet) return;
  reportStatus(text);
  callOut([&] { OgcInfoMsg(transfer::shown(text).c_str()); });
}

void COgcBase::CurlHttpParseContentType() {
  CCurl::CurlHttpParseContentType();
  const transfer::Text& type = response().parsedContentType;
  for (const char* plain : {"xml", "html"}) {
    if (!contains(type.str(), plain)) continue;
    if (!equalsIgnoringCase(type, plain)) CurlSetRspParsedContentType(plain);
    return;
  }
}

void COgcBase::OgcBaseParseURL(const char* url) {
  CurlParseURL(url);
  const char* mark = std::strchr(url, '?');
  if (mark == nullptr) throw CCurlException("Error: url does not contain a ? cannot locate a path in url");
  const std::string query = mark + 1;
  if (query.empty()) return;

  constexpr int controlLength = 8;
  std::array<int, 3> controls{}; // where each starts, negative if missing
  std::ranges::transform(std::array{"service=", "request=", "version="}, controls.begin(), [&](const char* pattern) {
    return CurlFindStringEndIdx(static_cast<int>(query.size()), query.c_str(), pattern, 0) - controlLength;
  });
  const int lastControl = std::ranges::max(controls);

  std::string prefix;
  std::string suffix;
  for (std::size_t begin = 0; begin < query.size();) {
    const std::size_t end = std::min(query.find('&', begin), query.size());
    const int position = static_cast<int>(begin);
    if (std::ranges::find(controls, position) == controls.end()) {
      std::string& part = position < lastControl ? prefix : suffix;
      if (!part.empty()) part += '&';
      part.append(query, begin, end - begin);
    }
    begin = end + 1;
  }
  CurlSetQueryPrefix(std::string(transfer::cutAt(prefix, queryPartLimit)).c_str());
  CurlSetQuerySuffix(std::string(transfer::cutAt(suffix, queryPartLimit)).c_str());
}

int COgcBase::OgcBaseFileExistsCheck(const char* path, const char* message) {
  if (path != nullptr && access(path, F_OK) == 0) return 0;
  fail("%s  file: (%s)", message, path != nullptr ? path : "");
}

void COgcBase::OgcBaseServerErrorCheck() {
  if (m_exceptions.service.present())
    fail("Error: Remote OGC server returned a service exception: (%s)", m_exceptions.service.c_str());
  if (m_exceptions.report.present())
    fail("Error: Remote OGC server returned a exception report: (%s)", m_exceptions.report.c_str());
}

void COgcBase::setQuery(const char* service, const char* request, std::string_view rest) {
  CurlSetQuery(transfer::formatLimited(ogc::queryLimit, "Version=%s&Service=%s&Request=%s%s", m_version.c_str(),
                                       service, request, std::string(rest).c_str())
                   .c_str());
}

std::string COgcBase::fetchFile(const char* file, const RequestTexts& texts) {
  CurlSetFileNameHttpGetRsp(file);
  std::array<char, ogc::queryLimit + 1> url{};
  CurlBuildUrlRq(url.data(), static_cast<int>(url.size()));
  sendGet(url.data());
  if (responseFile() == nullptr) throw CCurlException(texts.noFile);
  OgcBaseFileExistsCheck(responseFile(), texts.fileMissing);
  std::string written = responseFile();
  reportStatus(texts.written);
  reportStatus(written.c_str());
  return written;
}

void COgcBase::fetchUrl(const char* url, const char* file) {
  const std::string query(transfer::cutAt(url, ogc::queryLimit));
  CurlSetQuery(query.c_str());
  CurlSetFileNameHttpGetRsp(file);
  sendGet(query.c_str());
  reportStatus("url response written to: ");
  reportStatus(responseFile() != nullptr ? responseFile() : "");
}

void COgcBase::sendGet(const char* url) {
  reportStatus("Sending Http Get Request: ");
  reportStatus(url);
  try {
    CurlProcessRequest(url, transfer::httpGet);
  } catch (const CCurlException&) {
    if (response().errorFile.present()) reportRefusal(response().errorFile.c_str());
    throw;
  }
}

void COgcBase::reportRefusal(const char* file) {
  ogc::xml::Arena texts;
  ogc::xml::ExceptionHandler handler(*this, texts);
  m_quiet = true;
  try {
    OgcBaseParse(&handler, file, 0, 0);
  } catch (const CCurlException&) { // a report, or no XML at all
  }
  m_quiet = false;
  try {
    OgcBaseServerErrorCheck();
  } catch (const CCurlException&) { // already reported; the request's own error follows
  }
}

void COgcBase::throwIfHtml() {
  if (!equalsIgnoringCase(response().parsedContentType, "html")) return;
  std::array<char, htmlMessageSize> text{};
  CurlHttpGetHtmlErrorMsg(text.data(), static_cast<int>(text.size()));
  throw CCurlException(text[0] != '\0' ? text.data()
                                       : "Error: Http Get did not succeed. See the HTML file for information.");
}

bool COgcBase::answerIsXml() const noexcept { return contains(response().parsedContentType.str(), "xml"); }

void COgcBase::OgcBaseParse(ogc::xml::Handler* handler, const char* file, int schemaChecking, int validationMode) {
  m_hostError = nullptr;
  std::exception_ptr failure;
  try {
    ogc::xml::parse(*handler, file, {schemaChecking, validationMode}, *this, *this);
  } catch (...) {
    failure = std::current_exception();
  }
  m_exceptions = handler->exceptions();
  if (m_hostError != nullptr) failure = std::exchange(m_hostError, nullptr);
  if (failure != nullptr) std::rethrow_exception(failure);
  OgcBaseServerErrorCheck();
}

void COgcBase::requireOwnAnswer(const char* file) const {
  if (responseFileIsOurs()) return;
  throw CCurlException(("Error: the response file (" + std::string(file) +
                        ") was replaced by another process before it "
                        "was read. Let each process write to a different file, and repeat the request")
                           .c_str());
}

void COgcBase::parseAnswer(ogc::xml::Handler& handler, const char* file, const ogc::xml::Validation& validation) {
  requireOwnAnswer(file);
  try {
    OgcBaseParse(&handler, file, validation.schemaChecking, validation.dtdMode);
  } catch (const CCurlException&) {
    requireOwnAnswer(file); // errors in somebody else's file mean nothing
    throw;
  }
  requireOwnAnswer(file);
}

void COgcBase::readDocument(ogc::xml::Handler& handler, const ReadOptions& options, const transfer::Text& keptAs,
                            const DocumentTexts& texts) {
  if (options.fromFile != nullptr) {
    const std::string copyBase = keptAs.str(); // a status routine may set another one
    OgcBaseFileExistsCheck(options.fromFile, "Error: File does not exist.");
    reportStatus(texts.parsingFile);
    reportStatus(options.fromFile);
    OgcBaseParse(&handler, options.fromFile, options.validation.schemaChecking, options.validation.dtdMode);
    copyXMLFile(options.fromFile, copyBase.c_str());
    return;
  }
  const std::string file = fetchFile(keptAs.c_str(), texts.request);
  throwIfHtml();
  reportStatus(texts.parsing);
  parseAnswer(handler, file.c_str(), options.validation);
}

void COgcBase::readCapabilities(ogc::xml::Handler& handler, const char* service, const ReadOptions& options,
                                const transfer::Text& keptAs) {
  static constexpr DocumentTexts texts{{"Error: failed to get a capabilities doc",
                                        "Error: Get Capabilities request failed to retrieve an xml file.",
                                        "Get Capabilites response written to: "},
                                       "Parsing GetCapabilities XML doc...",
                                       "Parsing capabilities from an existing XML file:"};
  setQuery(service, "GetCapabilities", "");
  if (options.fromFile != nullptr || options.fromUrl == nullptr) readDocument(handler, options, keptAs, texts);
  if (options.fromUrl != nullptr) fetchUrl(options.fromUrl, keptAs.c_str());
}

void COgcBase::setFileName(transfer::Text& slot, const char* name, const char* refusal) {
  if (name == nullptr || *name == '\0') throw CCurlException(refusal);
  slot.set(name);
}

void COgcBase::reportCount(const char* what, std::int64_t count) {
  reportStatus((what + std::to_string(count) + '.').c_str());
}

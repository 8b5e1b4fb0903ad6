#include "zel_curl_handle.h"
#include "zel_curl_obj.h"
#include "zel_curl_shown.h"

#include <algorithm>
#include <cstdio>

namespace {

/// The progress line of a request type.
struct ProgressLine {
  int type;
  const char* idle; ///< before an upload has begun; null when the figures are shown from the start
  const char* text; ///< with figures: bytes transferred, then bytes expected
  bool upload;
};

constexpr ProgressLine progressLines[] = {
    {transfer::httpGet, nullptr, "Http: get: received (%.0f), total expected (%.0f)", false},
    {transfer::httpPut, "Http: put: sending file data...", "Http: put: sent (%.0f), total to send (%.0f)", true},
    {transfer::httpPost, "Http: post: sending data...", "Http: post: sent (%.0f), total to send (%.0f)", true},
    {transfer::ftpGet, nullptr, "Ftp: get: received (%.0f), total expected (%.0f)", false},
    {transfer::ftpPut, "Ftp: put: sending file data...", "Ftp: put: sent (%.0f), total to send (%.0f)", true},
    {transfer::ftpDirectory, nullptr, "Ftp: dir: receiving directory data...", false},
    {transfer::ftpCommand, nullptr, "Ftp: cmd: processing...", false},
    {0, nullptr, "unknown call to CurlHttpProgressCallback", false}};

constexpr char chunkedText[] = "Http: get: received (%.0f)";

} // namespace

int CCurl::callStatusRoutine(const char* msg, xProgressValues* progress) {
  if (m_callback == nullptr || !m_set.callback.present()) return 1;
  const std::string line = transfer::shown(msg); // the routine may change settings and message
  std::string name = m_set.callback.str();
  return m_callback(name.data(), m_set.callbackData, line.c_str(), progress);
}

void CCurl::CurlIssueCallback(const char* msg, xProgressValues* progress) {
  if (callStatusRoutine(msg, progress) == 0) m_cancelled = 1;
}

void CCurl::tell(const std::string& text) { CurlIssueCallback(text.c_str(), nullptr); }

int CCurl::xferInfo(void* object, curl_off_t dlTotal, curl_off_t dlNow, curl_off_t ulTotal, curl_off_t ulNow) noexcept {
  return guardCallback(object, 1, [&](CCurl& self) {
    if (transfer::Lease::interrupted()) {
      self.m_cancelled = 1;
      return 1;
    }
    if (self.m_requestType == transfer::httpDelete) return 0;
    return CurlHttpProgressCallback(object, static_cast<double>(dlTotal), static_cast<double>(dlNow),
                                    static_cast<double>(ulTotal), static_cast<double>(ulNow));
  });
}

int CCurl::CurlHttpProgressCallback(void* object, double dlTotal, double dlNow, double ulTotal, double ulNow) noexcept {
  return guardCallback(object, 1, [&](CCurl& self) {
    const auto* line = std::find_if(std::begin(progressLines), std::end(progressLines) - 1,
                                    [&](const ProgressLine& row) { return row.type == self.m_requestType; });
    const char* format = line->text;
    if (line->idle != nullptr && ulTotal == 0 && ulNow == 0) format = line->idle;
    if (line->type == transfer::httpGet && self.m_rsp.chunked != 0) format = chunkedText;
    char text[256];
    std::snprintf(text, sizeof text, format, line->upload ? ulNow : dlNow, line->upload ? ulTotal : dlTotal);
    xProgressValues values{1, dlTotal, dlNow, ulTotal, ulNow};
    self.CurlIssueCallback(text, &values);
    return self.m_cancelled;
  });
}

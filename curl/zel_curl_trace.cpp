#include "zel_curl_obj.h"
#include "zel_curl_shown.h"

#include <algorithm>
#include <strings.h>
#include <utility>

namespace {

constexpr std::size_t pieceLimit = 511;
constexpr std::size_t longestStart = 64; // of a line that a trace remembers

// FTP commands whose rest is secret.
void hideCommand(std::string& line) {
  for (const char* command : {"pass ", "acct "})
    if (strncasecmp(line.c_str(), command, 5) == 0) line.replace(5, line.find_last_not_of("\r\n") - 4, "***");
}

} // namespace

int CCurl::CurlHttpDebugCallback(CURL* /*handle*/, curl_infotype type, char* data, unsigned long size,
                                 void* object) noexcept {
  return guardCallback(object, 0, [&](CCurl& self) {
    self.trace(type, {data, size});
    return 0;
  });
}

void CCurl::trace(curl_infotype type, std::string_view data) {
  const char* label = nullptr;
  switch (type) {
  case CURLINFO_TEXT:
    label = "Info:      ";
    data = transfer::wholeCharacters(data.substr(0, data.find_last_not_of("\r\n") + 1)); // libcurl cuts at bytes
    break;
  case CURLINFO_HEADER_IN: label = "Header In: "; break;
  case CURLINFO_HEADER_OUT: label = "Header Out:"; break;
  default: return;
  }
  std::string text = m_tracedLine + std::string(data); // headers may be sent in pieces that end inside a line
  const std::string before = std::exchange(m_tracedLine, {});
  if (type == CURLINFO_HEADER_OUT && !data.ends_with('\n'))
    m_tracedLine = text.substr(text.rfind('\n') + 1, longestStart);
  if (isFtp()) hideCommand(text);
  text = transfer::shown(text);
  text.erase(0, std::ranges::mismatch(text, before).in1 - text.begin());
  std::string piece(transfer::cutAt(text, pieceLimit));
  CurlRemoveTrailingLfCrSpacesCommas(piece.data(), static_cast<int>(piece.size()));
  tell(transfer::formatLimited(transfer::messageLimit, "Verbose: %s  %s%s", label, piece.c_str(),
                               text.size() > pieceLimit ? "..., message was truncated." : ""));
}

#include "zel_curl_edge.h"

#include <algorithm>
#include <strings.h>
#include <utility>

namespace {

constexpr std::size_t pieceLimit = 511;
constexpr std::size_t messageLimit = 1023;
constexpr char hidden[] = "***";

// Starts of header lines and FTP commands whose rest is secret.
constexpr std::string_view secretLines[] = {"authorization:", "proxy-authorization:", "cookie:", "set-cookie:", "pass ",
                                            "acct "};

constexpr std::size_t longestStart = 32;

// Where the secret of a line begins, npos when it has none.
std::size_t secretFrom(std::string_view line) {
  for (const auto start : secretLines)
    if (line.size() > start.size() && strncasecmp(line.data(), start.data(), start.size()) == 0) return start.size();
  return line.npos;
}

// Hides what stands between "://" and '@' of a URL.
void hideUserInfo(std::string& text) {
  for (auto at = text.find("://"); at != text.npos; at = text.find("://", at + 3)) {
    const auto server = std::string_view(text).substr(at + 3, text.find_first_of("/?# \t\r\n'\"", at + 3) - at - 3);
    const auto end = server.rfind('@');
    if (end != server.npos) text.replace(at + 3, end, hidden);
  }
}

} // namespace

int CCurl::CurlHttpDebugCallback(CURL* /*handle*/, curl_infotype type, char* data, unsigned long size,
                                 void* object) noexcept {
  return atEdge(object, 0, [&](CCurl& self) {
    self.trace(type, {data, size});
    return 0;
  });
}

void CCurl::trace(curl_infotype type, std::string_view data) {
  const char* label = nullptr;
  switch (type) {
  case CURLINFO_TEXT:
    label = "Info:      ";
    break;
  case CURLINFO_HEADER_IN:
    label = "Header In: ";
    break;
  case CURLINFO_HEADER_OUT:
    label = "Header Out:";
    break;
  default:
    return;
  }
  const std::string text = withoutSecrets(type, data);
  std::string piece = text.substr(0, pieceLimit);
  CurlRemoveTrailingLfCrSpacesCommas(piece.data(), static_cast<int>(piece.size()));
  tell(formatLimited(messageLimit, "Verbose: %s  %s%s", label, piece.c_str(),
                     text.size() > pieceLimit ? "..., message was truncated." : ""));
}

// Outgoing headers may come in pieces that end inside a line: the start of that line is remembered.
std::string CCurl::withoutSecrets(curl_infotype type, std::string_view data) {
  std::string before = type == CURLINFO_HEADER_OUT ? std::exchange(m_tracedLine, {}) : std::string();
  std::string shown;
  while (!data.empty()) {
    const auto size = std::min(data.find('\n'), data.size() - 1) + 1;
    const std::string_view line = data.substr(0, size);
    const std::string whole = before + std::string(line);
    const auto secret = secretFrom(whole);
    const auto end = std::min(line.find_last_not_of("\r\n") + 1, line.size());
    if (secret == whole.npos) {
      shown += line;
    } else {
      const auto open = std::min(end, secret - std::min(secret, before.size()));
      shown.append(line, 0, open).append(open > 0 && line[open - 1] != ' ' ? " " : "").append(hidden);
      shown.append(line, end);
    }
    const bool ended = line.back() == '\n';
    before = ended ? "" : whole.substr(0, longestStart);
    data.remove_prefix(size);
  }
  if (type == CURLINFO_HEADER_OUT) m_tracedLine = std::move(before);
  hideUserInfo(shown);
  return shown;
}

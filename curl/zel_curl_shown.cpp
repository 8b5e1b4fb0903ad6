#include "zel_curl_shown.h"

#include "zel_curl_text.h"

#include <algorithm>
#include <strings.h>

namespace transfer {

namespace {

constexpr std::string_view hidden = "***";
constexpr std::string_view blanks = " \t\r\n";
// Ends of the names of header lines that authenticate somebody: also those of a proxy, also Set-Cookie.
constexpr std::string_view secretNames[] = {"authorization", "cookie", "x-api-key"};

/// Digits, maybe with the punctuation of a sentence after them.
bool isPort(std::string_view text) {
  const auto end = std::min(text.find_first_not_of("0123456789"), text.size());
  return text.find_first_not_of(".,;:)]>'\"", end) == text.npos;
}

/// Where the user information of an authority that begins at `from` ends: at its '@', npos for none. A text may have
/// been cut before the '@'.
std::size_t endOfUser(std::string_view text, std::size_t from) {
  auto end = std::min(text.find_first_of("/?# \t\r\n", from), text.size());
  auto at = text.substr(from, end - from).rfind('@');
  if (at != text.npos) return from + at;
  const auto colon = text.substr(from, end - from).find(':');
  if (colon == text.npos || text[from] == '[' || isPort(text.substr(from + colon + 1, end - from - colon - 1)))
    return text.npos;
  if (end == text.size()) return end;
  // "user:" and a password with a space or a slash, which no URL should hold
  end = std::min(text.find_first_of("\r\n", from), text.size());
  at = text.substr(from, end - from).rfind('@');
  return at == text.npos ? at : from + at;
}

void hideUserOfUrls(std::string& text) {
  for (auto at = text.find("://"); at != text.npos; at = text.find("://", at + 3)) {
    const auto end = endOfUser(text, at + 3);
    if (end != text.npos) text.replace(at + 3, end - at - 3, hidden);
  }
}

/// Where the user information of a word without "://" begins, npos when it has none.
std::size_t startOfUser(std::string_view word, std::size_t at) {
  const auto colon = word.substr(0, at).find(':');
  const bool named = colon == word.npos; // no password: a mail address, unless it is quoted
  const auto open = word.substr(0, named ? at : colon).find_last_of(named ? "'\"(" : "'\"(<[=");
  const auto start = open == word.npos ? 0 : open + 1;
  const auto user = word.substr(start, at - start);
  if (user.empty() || user.starts_with('/') || user.starts_with("mailto:") || (named && start == 0)) return word.npos;
  return start;
}

void hideUserOfWords(std::string& text) {
  for (auto from = text.find_first_not_of(blanks); from != text.npos; from = text.find_first_not_of(blanks, from)) {
    const auto end = std::min(text.find_first_of(blanks, from), text.size());
    const std::string_view word = std::string_view(text).substr(from, end - from);
    const auto at = word.rfind('@');
    const auto start = at == word.npos || word.find("://") != word.npos ? word.npos : startOfUser(word, at);
    if (start == word.npos) {
      from = end;
      continue;
    }
    text.replace(from + start, at - start, hidden);
    from = std::min(text.find_first_of(blanks, from), text.size());
  }
}

void hideLinesOf(std::string& text, std::string_view name) {
  const auto sameLetter = [](char a, char b) { return (a | 0x20) == (b | 0x20); };
  for (auto at = text.begin();;) {
    at = std::search(at, text.end(), name.begin(), name.end(), sameLetter);
    if (at == text.end()) return;
    const auto from = static_cast<std::size_t>(at - text.begin()) + name.size();
    const auto colon = text.find_first_not_of(" \t", from);
    const auto value = colon != text.npos && text[colon] == ':' ? text.find_first_not_of(" \t", colon + 1) : text.npos;
    const auto end = std::min(text.find_first_of("\r\n", from), text.size());
    if (value < end) text.replace(colon + 1, end - colon - 1, std::string(" ").append(hidden));
    at = text.begin() + static_cast<std::ptrdiff_t>(from);
  }
}

} // namespace

std::string shown(std::string_view text) {
  std::string result = withoutControls(text, '?', "\t\r\n");
  for (auto at = result.find('\r'); at != result.npos; at = result.find('\r', at + 1))
    if (result.substr(at + 1, 1) != "\n") result[at] = '?'; // would write over its own line
  hideUserOfUrls(result);
  hideUserOfWords(result);
  for (const auto name : secretNames) hideLinesOf(result, name);
  return result;
}

std::string withoutControls(std::string_view text, char replacement, std::string_view kept) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const auto size = utf8Size(text);
    const auto c = static_cast<unsigned char>(text[0]);
    const bool control = c < 0x20 || c == 0x7f || (size == 1 && c >= 0x80 && c < 0xa0) ||
                         (size == 2 && c == 0xc2 && static_cast<unsigned char>(text[1]) < 0xa0);
    if (control && kept.find(text[0]) == kept.npos)
      result += replacement;
    else
      result += text.substr(0, size);
    text.remove_prefix(size);
  }
  return result;
}

} // namespace transfer

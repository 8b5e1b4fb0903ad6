#include "zel_curl_obj.h"
#include "zel_curl_shown.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <strings.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t baseLimit = 1023; // scheme, host, port and path together
constexpr std::size_t hostLimit = 255;

void require(const transfer::Text& part, const char* name) {
  if (!part.present())
    throw CCurlException(
        ("Error: Request can not be processed until the " + std::string(name) + " property has been set.").c_str());
}

/// The request URL up to its query.
std::string urlWithoutQuery(const transfer::Settings& set) {
  const bool withPort = set.port.present() && set.port.str() != "80";
  return transfer::formatLimited(baseLimit, "%s://%s%s%s%s%s", set.scheme.c_str(), set.host.c_str(),
                                 withPort ? ":" : "", withPort ? set.port.c_str() : "", set.path.present() ? "/" : "",
                                 set.path.c_str());
}

// Copies a text of libcurl's, which is freed.
int deliver(char* made, char* out, unsigned long outSize) {
  const std::unique_ptr<char, decltype(&curl_free)> result(made, curl_free);
  const std::string_view text = result ? result.get() : "";
  if (!result || text.size() >= outSize) return 0;
  out[text.copy(out, text.size())] = '\0';
  return 1;
}

} // namespace

int CCurl::CurlBuildUrlRq(char* out, int outSize) {
  require(m_set.scheme, "Scheme");
  require(m_set.host, "Host");
  require(m_set.path, "Path");
  require(m_set.query, "Query");
  std::string url = urlWithoutQuery(m_set);
  char mark = '?';
  for (const transfer::Text* part : {&m_set.queryPrefix, &m_set.query, &m_set.querySuffix}) {
    if (!part->present()) continue;
    url += mark;
    url += part->str();
    mark = '&';
  }
  return transfer::copyTruncated(out, outSize, url);
}

int CCurl::CurlBuildUrlRqSimple(char* out, int outSize) {
  require(m_set.scheme, "Scheme");
  require(m_set.host, "Host");
  std::string url = urlWithoutQuery(m_set);
  if (m_set.query.present()) url += '?' + m_set.query.str();
  return transfer::copyTruncated(out, outSize, url);
}

// Sets scheme, host and port and clears the rest. Returns the position of the '/' after the host, npos when there is
// none.
std::size_t CCurl::splitServer(std::string_view url, bool needsPath) {
  const auto colon = url.find(':');
  if (colon == url.npos)
    throw CCurlException("Error: url does not contain a : cannot locate scheme in url (typically http:).");
  m_set.scheme.set(url.substr(0, colon));
  if (url.substr(colon + 1, 2) != "//")
    throw CCurlException("Error: url does not contain a // cannot locate a host in url");
  const auto at = url.find('@', colon + 3);
  const auto start = at == url.npos ? colon + 3 : at + 1;
  const auto slash = url.find('/', start);
  if (slash == url.npos && needsPath)
    throw CCurlException("Error: url does not contain a / cannot locate a host in url");
  const auto server = url.substr(start, slash == url.npos ? slash : slash - start);
  const auto port = server.find(':', server.starts_with('[') ? server.find(']') : 0); // [::1] is a host
  if (server.substr(0, port).size() > hostLimit)
    throw CCurlException("Error: url contains a host of more than 255 characters");
  CurlSetPort("80");
  m_set.host.set(server.substr(0, port));
  if (port != server.npos) CurlSetPort(std::string(server.substr(port + 1)).c_str());
  for (transfer::Text* part : {&m_set.path, &m_set.query, &m_set.queryPrefix, &m_set.querySuffix}) part->clear();
  return slash;
}

void CCurl::CurlParseURL(const char* url) {
  const std::string_view text = url != nullptr ? url : "";
  const auto slash = splitServer(text, true);
  const auto mark = text.find('?', slash);
  if (mark == text.npos) throw CCurlException("Error: url does not contain a ? cannot locate a path in url");
  m_set.path.set(text.substr(slash + 1, mark - slash - 1));
}

void CCurl::CurlParseURLSimple(const char* url) {
  const std::string_view text = url != nullptr ? url : "";
  const auto slash = splitServer(text, false);
  if (slash == text.npos) return;
  const auto mark = std::min(text.find('?', slash), text.size());
  m_set.path.set(text.substr(slash + 1, mark - slash - 1));
  if (mark < text.size()) m_set.query.set(text.substr(mark + 1));
}

void CCurl::CurlEscapeSpaces(char* str, unsigned long size) {
  if (str == nullptr || std::strchr(str, ' ') == nullptr) return;
  std::string escaped;
  for (const char* p = str; *p != '\0'; ++p) {
    if (escaped.size() + 4 >= size) throw CCurlException("Error: Request is too long");
    escaped += *p == ' ' ? "%20" : std::string_view(p, 1);
  }
  std::fill_n(str, size, '\0');
  escaped.copy(str, size - 1);
}

int CCurl::CurlUrlEncode(const char* in, char* out, unsigned long outSize) {
  if (in == nullptr || out == nullptr || *in == '\0') return 0;
  return deliver(curl_easy_escape(nullptr, in, 0), out, outSize);
}

int CCurl::CurlUrlDecode(const char* in, char* out, unsigned long outSize) {
  if (in == nullptr || out == nullptr || *in == '\0') return 0;
  return deliver(curl_easy_unescape(nullptr, in, 0, nullptr), out, outSize);
}

int CCurl::CurlContainsFilename(const char* path) noexcept {
  const std::size_t length = path != nullptr ? std::strlen(path) : 0;
  return length >= 2 && std::strchr("/:\\", path[length - 1]) == nullptr ? 1 : 0;
}

void CCurl::CurlReplaceInvalidFilenameChars(char* name) noexcept {
  if (name == nullptr) return;
  for (; *name != '\0'; ++name)
    if (*name == ';' || *name == ':') *name = '_';
}

int CCurl::CurlBuildFileName(transfer::Text* name) {
  nameAfterType(*name);
  return ::unlink(name->c_str());
}

void CCurl::nameAfterType(transfer::Text& name) const {
  if (!name.present() || !m_rsp.parsedContentType.present()) return;
  std::string type = transfer::withoutControls(m_rsp.parsedContentType.str(), '_');
  std::replace(type.begin(), type.end(), '/', '_'); // a type may hold more than one
  const auto dot = name.str().rfind('.');
  if (dot != std::string::npos && strcasecmp(name.c_str() + dot + 1, type.c_str()) == 0) return;
  const bool hasDot = dot + 1 == name.str().size();
  name.set(transfer::formatLimited(1023, "%s%s%s", name.c_str(), hasDot ? "" : ".", type.c_str()));
}

int CCurl::CurlCountLeadingSpaces(const char* str) noexcept {
  int count = 0;
  for (; *str == ' ' && str[1] != '\0'; ++str) ++count;
  return count;
}

void CCurl::CurlRemoveTrailingLfCrSpacesCommas(char* str, int len) noexcept {
  while (len > 0 && str[len - 1] != '\0' && std::strchr("\n\r ,", str[len - 1]) != nullptr) str[--len] = '\0';
}

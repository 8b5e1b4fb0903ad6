/// \file
/// URLs as libcurl takes them apart and resolves them.
#pragma once

#include <curl/curl.h>
#include <memory>
#include <string>

namespace ogc::xml {

class Url {
public:
  /// \throws Refusal for a text that is not a URL.
  explicit Url(const std::string& base) { apply(base); }
  static std::string ofFile(const std::string& path);

  /// Goes to a relative reference, or to another URL. \throws Refusal for a text that is neither.
  void apply(const std::string& reference);
  /// A part in its full form, empty if missing.
  [[nodiscard]] std::string get(CURLUPart part, unsigned flags = 0) const;
  void dropFragment() { curl_url_set(m_url.get(), CURLUPART_FRAGMENT, nullptr, 0); }
  [[nodiscard]] bool isFile() const { return get(CURLUPART_SCHEME) == "file"; }
  [[nodiscard]] bool sameServer(const Url& other) const;

private:
  Url() = default;

  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> m_url{curl_url(), curl_url_cleanup};
};

} // namespace ogc::xml

#include "xml/url.h"

#include "xml/limits.h"

namespace ogc::xml {

std::string Url::ofFile(const std::string& path) {
  Url url;
  curl_url_set(url.m_url.get(), CURLUPART_SCHEME, "file", 0);
  curl_url_set(url.m_url.get(), CURLUPART_PATH, path.c_str(), CURLU_URLENCODE);
  return url.get(CURLUPART_URL);
}

void Url::apply(const std::string& reference) {
  if (curl_url_set(m_url.get(), CURLUPART_URL, reference.c_str(), CURLU_URLENCODE) != CURLUE_OK) {
    throw Refusal("(" + reference + ") is neither a relative name nor an address that can be read");
  }
}

std::string Url::get(CURLUPart part, unsigned flags) const {
  char* text = nullptr;
  if (curl_url_get(m_url.get(), part, &text, flags) != CURLUE_OK) return {};
  const std::unique_ptr<char, decltype(&curl_free)> owner(text, curl_free);
  return text;
}

bool Url::sameServer(const Url& other) const {
  const auto same = [&](CURLUPart part) { // host names in any letter case
    return curl_strequal(get(part, CURLU_DEFAULT_PORT).c_str(), other.get(part, CURLU_DEFAULT_PORT).c_str()) != 0;
  };
  return same(CURLUPART_SCHEME) && same(CURLUPART_HOST) && same(CURLUPART_PORT);
}

} // namespace ogc::xml

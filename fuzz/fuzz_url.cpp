// URLs taken apart, put together again, escaped and encoded.
#include "fuzz_check.h"
#include "zel_curl_obj.h"

#include <algorithm>
#include <vector>

namespace {

constexpr int urlSize = 4096;

void checkComposed(CCurl& curl, int (CCurl::*build)(char*, int)) {
  std::vector<char> url(urlSize);
  int length = 0;
  if (!fuzzTry([&] { length = (curl.*build)(url.data(), urlSize); })) return;
  const auto kept = static_cast<int>(::strnlen(url.data(), url.size()));
  fuzzCheck(kept == std::min(length, urlSize - 1), "a URL is as long as was said, or cut");
  std::vector<char> small(16);
  fuzzCheck((curl.*build)(small.data(), static_cast<int>(small.size())) == length,
            "the length does not depend on room");
  fuzzCheck(std::strncmp(small.data(), url.data(), small.size() - 1) == 0, "a cut URL is the start of the whole");
}

void checkEscaped(const std::string& text) {
  std::vector<char> buffer(3 * text.size() + 1);
  text.copy(buffer.data(), text.size());
  if (fuzzTry([&] { CCurl::CurlEscapeSpaces(buffer.data(), buffer.size()); }))
    fuzzCheck(std::strchr(buffer.data(), ' ') == nullptr, "no blank stays");
}

void checkEncoded(const std::string& text) {
  std::vector<char> encoded(3 * text.size() + 2);
  std::vector<char> decoded(text.size() + 2);
  if (CCurl::CurlUrlEncode(text.c_str(), encoded.data(), encoded.size()) == 0) return;
  fuzzCheck(CCurl::CurlUrlDecode(encoded.data(), decoded.data(), decoded.size()) == 1, "what was encoded is decoded");
  fuzzCheck(std::strcmp(decoded.data(), text.c_str()) == 0, "encoding loses nothing");
  CCurl::CurlUrlDecode(text.c_str(), decoded.data(), decoded.size() / 2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = fuzzText(data, size);
  for (const auto split : {&CCurl::CurlParseURL, &CCurl::CurlParseURLSimple}) {
    static CCurl curl;
    curl.CurlCleanup();
    fuzzTry([&] { (curl.*split)(text.c_str()); });
    fuzzCheck(curl.Settings().host.str().size() <= 255, "a host has at most 255 characters");
    checkComposed(curl, &CCurl::CurlBuildUrlRqSimple);
    curl.CurlSetQueryPrefix(text.c_str());
    curl.CurlSetQuery(text.c_str());
    curl.CurlSetQuerySuffix(text.c_str());
    checkComposed(curl, &CCurl::CurlBuildUrlRq);
  }
  checkEscaped(text.c_str());
  checkEncoded(text.c_str());
  std::string name = text;
  CCurl::CurlRemoveTrailingLfCrSpacesCommas(name.data(), static_cast<int>(name.size()));
  CCurl::CurlReplaceInvalidFilenameChars(name.data());
  fuzzCheck(CCurl::CurlCountLeadingSpaces(name.c_str()) <= static_cast<int>(name.size()), "blanks are within the text");
  const bool file = CCurl::CurlContainsFilename(name.c_str()) != 0;
  fuzzCheck(!file || std::strlen(name.c_str()) >= 2, "a file name has at least two characters");
  return 0;
}

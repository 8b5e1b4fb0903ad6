// Service URLs, split around the control parameters and composed into requests.
#include "fuzz_check.h"
#include "zel_ogcwms_obj.h"

#include <array>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string url = fuzzText(data, size);
  static COgcWms client;
  if (!fuzzTry([&] { client.OgcBaseParseURL(url.c_str()); })) return 0;
  const CurlSettings& set = client.Settings();
  fuzzCheck(set.host.str().size() <= 255, "a host has at most 255 characters");
  const std::size_t query = std::strlen(std::strchr(url.c_str(), '?') + 1);
  fuzzCheck(set.queryPrefix.str().size() <= 1023 && set.querySuffix.str().size() <= 1023,
            "prefix and suffix have at most 1023 characters");
  fuzzCheck(set.queryPrefix.str().size() + set.querySuffix.str().size() <= query, "nothing is added to the query");
  client.CurlSetQuery("Service=WMS");
  std::array<char, 4096> request{};
  fuzzTry([&] { client.CurlBuildUrlRq(request.data(), static_cast<int>(request.size())); });
  fuzzCheck(request.back() == '\0', "a request URL has at most 4095 characters");
  return 0;
}

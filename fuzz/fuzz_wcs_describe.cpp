// Descriptions of coverages: parsed, each offering turned into a structure.
#include "documents.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static FuzzObject wcs("ZELNETOGCWCS");
  constexpr std::int64_t most = 20; // offerings, each costs a walk along the list
  wcs.write(fuzzText(data, size));
  wcs.read("DESCRIBECOVERAGE", {{"COUNT", 0}});
  const auto last = static_cast<std::int16_t>(std::min(wcs.count(), most));
  for (std::int16_t i = 0; i < last; ++i)
    fuzzCheck(wcs.call("GETCOVERAGEOFFERING", {{"INDEX", i}}) == 1, "every offering is returned");
  return 0;
}

// WCS capabilities: parsed and turned into structures.
#include "documents.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static FuzzObject wcs("ZELNETOGCWCS");
  wcs.write(fuzzText(data, size));
  const auto briefs = wcs.read("GETCAPABILITIES");
  wcs.call("GETSERVICESECTION");
  const auto found = wcs.call("GETCOVERAGEOFFERINGBRIEFS", {{"COUNT", 0}});
  fuzzCheck(!briefs || *briefs == static_cast<std::int16_t>(wcs.count()), "every brief is returned");
  fuzzCheck(found.has_value(), "briefs that were read can be returned");
  return 0;
}

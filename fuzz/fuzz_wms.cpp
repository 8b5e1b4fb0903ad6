// WMS capabilities: parsed, layers completed from those around them, all of it turned into structures.
#include "documents.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static FuzzObject wms("ZELNETOGCWMS");
  wms.write(fuzzText(data, size));
  for (const std::int16_t inheritance : {1, 0}) {
    const auto layers = wms.read("GETCAPABILITIES", {{"DISABLE_INHERITANCE", inheritance}});
    wms.call("GETSERVICESECTION");
    const auto found = wms.call("GETLAYERS", {{"COUNT", 0}});
    fuzzCheck(!layers || *layers == static_cast<std::int16_t>(wms.count()), "every layer is returned");
    fuzzCheck(found.has_value(), "layers that were read can be returned");
  }
  return 0;
}

#include "routines/requests.h"

#include <algorithm>
#include <unistd.h>

namespace ogc {

namespace {

/// A mode of 0 to 2, 0 when the keyword was not given.
int modeOf(ZEL_Variable* v, const char* invalid) {
  const std::int32_t mode = v != nullptr ? longOf(v) : 0;
  if (static_cast<std::uint32_t>(mode) > 2) fail(invalid);
  return mode;
}

} // namespace

transfer::Text fileOf(ZEL_Variable* v) {
  if (v == nullptr) return {};
  const std::string file = textOf(v);
  if (access(file.c_str(), F_OK) != 0) fail("Error: Passed in FROM_FILE does not exist: " + file);
  return transfer::Text(file);
}

transfer::Text urlOf(ZEL_Variable* v) {
  if (v == nullptr) return {};
  const std::string url = textOf(v);
  if (url.empty()) fail("Error: Passed in FROM_URL is empty.");
  return transfer::Text(url);
}

int validationModeOf(ZEL_Variable* v) { return modeOf(v, "Error: Validation_Mode keyword value is not valid."); }

int schemaCheckingOf(ZEL_Variable* v) { return modeOf(v, "Error: Schema_Check keyword value is not valid."); }

Selection select(const Keywords<3>& keywords, std::int64_t total, const char* indexTooLarge) {
  ZEL_Variable* count = keywords[listKeywords.slot("COUNT")];
  store(count, 0);
  Selection part{0, total};
  if (total == 0) return part;
  if (ZEL_Variable* v = keywords[listKeywords.slot("NUMBER")]) {
    part.number = fixOf(v);
    if (part.number < 0) fail("Error: Invalid Number keyword value. It is less than zero.");
    if (part.number == 0) return part;
  }
  if (ZEL_Variable* v = keywords[listKeywords.slot("INDEX")]) {
    part.start = fixOf(v);
    if (part.start < 0) fail("Error: Invalid Index keyword value. It is less than zero.");
    if (part.start >= total) fail(indexTooLarge);
  }
  part.number = std::min(part.number, total - part.start);
  store(count, static_cast<std::int32_t>(part.number));
  return part;
}

} // namespace ogc

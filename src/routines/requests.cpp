#include "routines/requests.h"

#include "routines/errors.h"

#include <algorithm>
#include <unistd.h>

namespace {

/// A mode of 0 to 2, 0 when the keyword was not given.
int modeOf(ZEL_Variable* v, const char* invalid) {
  const std::int32_t mode = v != nullptr ? ogcLongOf(v) : 0;
  if (static_cast<std::uint32_t>(mode) > 2) ogcError(invalid);
  return mode;
}

} // namespace

std::optional<std::string> ogcFromFile(const OgcKeywords& keywords) {
  ZEL_Variable* v = keywords["FROM_FILE"];
  if (v == nullptr) return std::nullopt;
  std::string file = ogcTextOf(v);
  if (access(file.c_str(), F_OK) != 0) ogcError("Error: Passed in FROM_FILE does not exist: " + file);
  return file;
}

std::optional<std::string> ogcFromUrl(const OgcKeywords& keywords) {
  ZEL_Variable* v = keywords["FROM_URL"];
  if (v == nullptr) return std::nullopt;
  std::string url = ogcTextOf(v);
  if (url.empty()) ogcError("Error: Passed in FROM_URL is empty.");
  return url;
}

int ogcValidationMode(const OgcKeywords& keywords) {
  return modeOf(keywords["VALIDATION_MODE"], "Error: Validation_Mode keyword value is not valid.");
}

int ogcSchemaChecking(const OgcKeywords& keywords) {
  return modeOf(keywords["SCHEMA_CHECKING"], "Error: Schema_Check keyword value is not valid.");
}

OgcSelection ogcSelect(const OgcKeywords& keywords, std::int64_t total, const char* indexTooLarge) {
  keywords.store("COUNT", 0);
  OgcSelection part{0, total};
  if (total == 0) return part;
  if (ZEL_Variable* v = keywords["NUMBER"]) {
    part.number = ogcFixOf(v);
    if (part.number < 0) ogcError("Error: Invalid Number keyword value. It is less than zero.");
    if (part.number == 0) return part;
  }
  if (ZEL_Variable* v = keywords["INDEX"]) {
    part.start = ogcFixOf(v);
    if (part.start < 0) ogcError("Error: Invalid Index keyword value. It is less than zero.");
    if (part.start >= total) ogcError(indexTooLarge);
  }
  part.number = std::min(part.number, total - part.start);
  keywords.store("COUNT", static_cast<std::int32_t>(part.number));
  return part;
}

std::string ogcQueryOf(ZEL_Variable* v, const char* emptyMessage) {
  std::string query = ogcTextOf(v);
  if (query.empty()) ogcError(emptyMessage);
  return query;
}

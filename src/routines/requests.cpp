#include "routines/requests.h"

#include "routines/errors.h"

#include <algorithm>
#include <unistd.h>

namespace {

/// A mode of 0 to 2, 0 when the keyword was not given.
int modeOf(ZEL_Variable* v, const char* invalid) {
  const std::int32_t mode = v != nullptr ? ogc::longOf(v) : 0;
  if (static_cast<std::uint32_t>(mode) > 2) ogcError(invalid);
  return mode;
}

} // namespace

std::optional<std::string> ogcFromFile(ZEL_Variable* v) {
  if (v == nullptr) return std::nullopt;
  std::string file = ogc::textOf(v);
  if (access(file.c_str(), F_OK) != 0) ogcError("Error: Passed in FROM_FILE does not exist: " + file);
  return file;
}

std::optional<std::string> ogcFromUrl(ZEL_Variable* v) {
  if (v == nullptr) return std::nullopt;
  std::string url = ogc::textOf(v);
  if (url.empty()) ogcError("Error: Passed in FROM_URL is empty.");
  return url;
}

int ogcValidationMode(ZEL_Variable* v) { return modeOf(v, "Error: Validation_Mode keyword value is not valid."); }

int ogcSchemaChecking(ZEL_Variable* v) { return modeOf(v, "Error: Schema_Check keyword value is not valid."); }

OgcSelection ogcSelect(const ogc::Keywords<3>& keywords, std::int64_t total, const char* indexTooLarge) {
  ZEL_Variable* count = keywords[ogcListKeywords.slot("COUNT")];
  ogc::store(count, 0);
  OgcSelection part{0, total};
  if (total == 0) return part;
  if (ZEL_Variable* v = keywords[ogcListKeywords.slot("NUMBER")]) {
    part.number = ogc::fixOf(v);
    if (part.number < 0) ogcError("Error: Invalid Number keyword value. It is less than zero.");
    if (part.number == 0) return part;
  }
  if (ZEL_Variable* v = keywords[ogcListKeywords.slot("INDEX")]) {
    part.start = ogc::fixOf(v);
    if (part.start < 0) ogcError("Error: Invalid Index keyword value. It is less than zero.");
    if (part.start >= total) ogcError(indexTooLarge);
  }
  part.number = std::min(part.number, total - part.start);
  ogc::store(count, static_cast<std::int32_t>(part.number));
  return part;
}

std::string ogcQueryOf(ZEL_Variable* v, const char* emptyMessage) {
  std::string query = ogc::textOf(v);
  if (query.empty()) ogcError(emptyMessage);
  return query;
}

/// \file
/// What the request routines and the result routines of both services share.
#pragma once

#include "routines/binding.h"
#include "routines/errors.h"
#include "routines/keywords.h"
#include "routines/structures.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// \name Values of keywords, whose variable is null when they were not given
/// @{
/// FROM_FILE: the name of an existing file, none when it was not given.
[[nodiscard]] std::optional<std::string> ogcFromFile(ZEL_Variable* v);
/// FROM_URL: a text that is not empty, none when it was not given.
[[nodiscard]] std::optional<std::string> ogcFromUrl(ZEL_Variable* v);
/// The text for a client, null for none.
[[nodiscard]] inline const char* ogcOrNull(const std::optional<std::string>& text) noexcept {
  return text ? text->c_str() : nullptr;
}
/// VALIDATION_MODE and SCHEMA_CHECKING: 0 to 2, 0 when not given.
[[nodiscard]] int ogcValidationMode(ZEL_Variable* v);
[[nodiscard]] int ogcSchemaChecking(ZEL_Variable* v);

/// A part of a list.
struct OgcSelection {
  int start;
  std::int64_t number; ///< 0: nothing to return
};
/// The keywords of a routine that returns a part of a list.
inline constexpr auto ogcListKeywords = ogc::keywordTable({{"COUNT", ZEL_KW_OUT}, {"INDEX"}, {"NUMBER"}});
/// The part that INDEX and NUMBER select of `total` entries; COUNT receives its size.
/// \param indexTooLarge error for an INDEX not below `total`
[[nodiscard]] OgcSelection ogcSelect(const ogc::Keywords<3>& keywords, std::int64_t total, const char* indexTooLarge);
/// @}

/// Text of a query argument; errors with `emptyMessage` when there is none.
[[nodiscard]] std::string ogcQueryOf(ZEL_Variable* v, const char* emptyMessage);

/// What a result routine returns when there is no result.
[[nodiscard]] inline zel::Temp ogcNothing() { return zel::Temp(ZEL_GettmpInt(0)); }

/// A routine that takes a query and returns the name of the file that the answer was written to.
template <typename Client, auto Request>
ZEL_Variable* ogcFetch(const OgcService& service, int argc, ZEL_Variable** argv, const ZEL_Keywords* argk,
                       const char* emptyMessage) {
  return ogcFunction([&] {
    const ogc::Keywords none(ogc::noKeywords, argc, argv, argk);
    auto& client = ogcClient<Client>(service, argv[0]);
    (client.*Request)(ogcQueryOf(argv[1], emptyMessage).c_str());
    return zel::Temp(ZEL_StrToSTRING(client.ResponseFile()));
  });
}

/// The routine that returns the service section.
template <typename Client>
ZEL_Variable* ogcServiceSection(const OgcService& service, int argc, ZEL_Variable** argv, const ZEL_Keywords* argk,
                                std::span<const OgcTag> tags) {
  return ogcFunction([&] {
    const ogc::Keywords none(ogc::noKeywords, argc, argv, argk);
    const void* record = ogcClient<Client>(service, argv[0]).Service();
    return record != nullptr ? ogcStructs(tags, {&record, 1}) : ogcNothing();
  });
}

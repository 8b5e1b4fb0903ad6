/// \file
/// What the request routines and the result routines of both services share.
#pragma once

#include "routines/binding.h"
#include "routines/errors.h"
#include "routines/keywords.h"
#include "routines/structures.h"

#include <cstdint>
#include <span>
#include <string>

namespace ogc {

/// \name Values of keywords; the variable is null for a keyword that was not given
/// @{
/// FROM_FILE: the name of an existing file.
[[nodiscard]] transfer::Text fileOf(ZEL_Variable* v);
/// FROM_URL: a text that is not empty.
[[nodiscard]] transfer::Text urlOf(ZEL_Variable* v);
/// VALIDATION_MODE and SCHEMA_CHECKING: 0 to 2, by default 0.
[[nodiscard]] int validationModeOf(ZEL_Variable* v);
[[nodiscard]] int schemaCheckingOf(ZEL_Variable* v);

/// A part of a list.
struct Selection {
  int start;
  std::int64_t number; ///< 0: nothing to return
};
/// The keywords of a routine that returns a part of a list.
inline constexpr auto listKeywords = keywordTable({{"COUNT", ZEL_KW_OUT}, {"INDEX"}, {"NUMBER"}});
/// The part of `total` entries that INDEX and NUMBER select. COUNT receives its size.
/// \param indexTooLarge error message for an INDEX of `total` or more
[[nodiscard]] Selection select(const Keywords<3>& keywords, std::int64_t total, const char* indexTooLarge);
/// @}

/// What a result routine returns if there is no result.
[[nodiscard]] inline zel::Temp nothing() { return zel::Temp(ZEL_GettmpInt(0)); }

/// A routine that takes a query and returns the name of the file that the answer was written to. An empty query is an
/// error with `emptyMessage`.
template <typename Client, auto Request>
ZEL_Variable* fetch(const Service& service, int argc, ZEL_Variable** argv, const ZEL_Keywords* argk,
                    const char* emptyMessage) {
  return runFunction([&] {
    const Keywords none(noKeywords, argc, argv, argk);
    auto& client = clientOf<Client>(service, argv[0]);
    const std::string query = textOf(argv[1]);
    if (query.empty()) fail(emptyMessage);
    (client.*Request)(query.c_str());
    return zel::Temp(ZEL_StrToSTRING(client.responseFile()));
  });
}

/// The routine that returns the service section.
template <typename Client>
ZEL_Variable* serviceSection(const Service& service, int argc, ZEL_Variable** argv, const ZEL_Keywords* argk,
                             std::span<const Tag> tags) {
  return runFunction([&] {
    const Keywords none(noKeywords, argc, argv, argk);
    const void* record = clientOf<Client>(service, argv[0]).service();
    return record != nullptr ? structsOf(tags, {&record, 1}) : nothing();
  });
}

} // namespace ogc

/// \file
/// Host strings and names.
#pragma once

#include "zel_module.h"

#include <string>
#include <string_view>

namespace zel::host {

inline std::string_view text(const ZEL_STRING& s) noexcept {
  return s.s != nullptr ? std::string_view(s.s, static_cast<std::size_t>(s.len)) : std::string_view();
}

void store(ZEL_STRING& dst, std::string_view text);

ZEL_Variable* makeTempString(std::string_view text);

/// The text of a variable that must be a string scalar.
std::string scalarText(ZEL_Variable* v);

/// A name in upper case (ASCII letters only).
std::string upper(std::string_view name);

/// Joins texts with a separator between them.
template <typename Texts>
std::string join(const Texts& texts, std::string_view separator) {
  std::string out;
  for (const auto& item : texts) {
    if (!out.empty()) out += separator;
    out += item;
  }
  return out;
}

} // namespace zel::host

/// \file
/// Keywords of the host routines: their tables and the values of a call.
#pragma once

#include "zel_module.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// \name Values given by a script
/// @{
/// Text of a string scalar; errors for anything else.
[[nodiscard]] std::string ogcTextOf(ZEL_Variable* v);
/// A scalar as the host's 16-bit integer, wrapped to its width.
[[nodiscard]] std::int16_t ogcFixOf(ZEL_Variable* v);
/// A scalar as a 32-bit integer.
[[nodiscard]] std::int32_t ogcLongOf(ZEL_Variable* v);
/// The texts of a string variable, scalar or array; errors for other types.
[[nodiscard]] std::vector<std::string> ogcTextsOf(ZEL_Variable* v);

/// A variable converted to a type; the conversion is released with it, the caller's own variable is left alone.
class OgcConverted {
public:
  OgcConverted(ZEL_Variable* v, ZEL_Type type) : m_value(ZEL_VarTypeConvert(v, type)) {
    if (m_value != v) m_owned.reset(m_value);
  }
  const ZEL_Variable* operator->() const noexcept { return m_value; }
  /// The elements as host strings. \pre converted to string
  [[nodiscard]] std::pair<const ZEL_STRING*, std::int64_t> texts() const noexcept;
  [[nodiscard]] bool converted() const noexcept { return m_owned != nullptr; }

private:
  ZEL_Variable* m_value;
  zel::Temp m_owned;
};

/// Errors unless the variable is a scalar.
void ogcRequireScalar(const ZEL_Variable* v);
/// The text of a host string, "" when it holds none.
[[nodiscard]] inline const char* ogcCString(const ZEL_STRING& s) noexcept { return s.s != nullptr ? s.s : ""; }
/// @}

/// The keywords that a routine accepts.
class OgcKeywordTable {
public:
  struct Entry {
    const char* name;
    ZEL_KwFlag kind = ZEL_KW_VIN;
  };
  static constexpr std::size_t maxEntries = 32;

  /// In any order.
  explicit OgcKeywordTable(std::vector<Entry> entries);
  [[nodiscard]] const ZEL_KwDef* defs() const noexcept { return m_defs.data(); }
  /// Position of a keyword of the table.
  [[nodiscard]] std::size_t find(std::string_view name) const noexcept;

private:
  std::vector<ZEL_KwDef> m_defs; ///< sorted by name, closed by an empty entry
};

/// The keywords of one call. Unknown ones are errors.
class OgcKeywords {
public:
  OgcKeywords(const OgcKeywordTable& table, int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);

  /// The caller's variable of an accepted keyword, null when it was not given.
  [[nodiscard]] ZEL_Variable* operator[](std::string_view name) const noexcept;
  /// Stores a 32-bit integer in an output keyword, when it was given.
  void store(std::string_view name, std::int32_t value) const;

private:
  friend class OgcKeywordTable;
  struct Slot {
    std::int32_t present;
    ZEL_Variable* value;
  };
  struct Record {
    ZEL_KwResult host{};
    std::array<Slot, OgcKeywordTable::maxEntries> slots{};
    Record() = default;
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record() { ZEL_KWFree(&host); }
  };

  const OgcKeywordTable& m_table;
  Record m_record;
};

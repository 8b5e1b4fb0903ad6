/// \file
/// Keywords of the host routines: their tables and the values of a call.
#pragma once

#include "zel_module.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ogc {

/// \name Values given by a script
/// @{
/// Text of a string scalar; errors for anything else.
[[nodiscard]] std::string textOf(ZEL_Variable* v);
/// A scalar as the host's 16-bit integer, wrapped to its width.
[[nodiscard]] std::int16_t fixOf(ZEL_Variable* v);
/// A scalar as a 32-bit integer.
[[nodiscard]] std::int32_t longOf(ZEL_Variable* v);
/// The texts of a string variable, scalar or array; errors for other types.
[[nodiscard]] std::vector<std::string> textsOf(ZEL_Variable* v);

/// A variable converted to a type. Owns the conversion; the caller's variable does not change.
class Converted {
public:
  Converted(ZEL_Variable* v, ZEL_Type type) : m_value(ZEL_VarTypeConvert(v, type)) {
    if (m_value != v) m_owned.reset(m_value);
  }
  const ZEL_Variable* operator->() const noexcept { return m_value; }
  /// The elements as host strings. \pre converted to string
  [[nodiscard]] std::pair<const ZEL_STRING*, std::int64_t> texts() const noexcept;
  /// Did the variable have another type?
  [[nodiscard]] bool converted() const noexcept { return m_owned != nullptr; }

private:
  ZEL_Variable* m_value;
  zel::Temp m_owned;
};

/// Errors unless the variable is a scalar.
void requireScalar(const ZEL_Variable* v);
/// The text of a host string, "" if it is empty.
[[nodiscard]] inline const char* cString(const ZEL_STRING& s) noexcept { return s.s != nullptr ? s.s : ""; }
/// @}

/// What the host fills in for one accepted keyword.
struct KeywordSlot {
  std::int32_t present;
  ZEL_Variable* value;
};

template <std::size_t N>
class Keywords;

/// One keyword that a routine accepts.
struct KeywordEntry {
  const char* name;
  ZEL_KwFlag kind = ZEL_KW_VIN;
};

/// The `N` keywords that a routine accepts, given in any order. Made at compile time.
template <std::size_t N>
class KeywordTable {
public:
  consteval explicit KeywordTable(std::array<KeywordEntry, N> entries) {
    std::ranges::sort(entries, {}, [](const KeywordEntry& entry) { return std::string_view(entry.name); });
    std::size_t slot = offsetof(Keywords<N>, m_slots);
    for (std::size_t i = 0; i < N; ++i, slot += sizeof(KeywordSlot)) {
      m_defs[i] = {entries[i].name,
                   ZEL_TYP_UNDEF,
                   1,
                   entries[i].kind,
                   slot + offsetof(KeywordSlot, present),
                   slot + offsetof(KeywordSlot, value)};
    }
  }

  /// The table for the host: sorted by name, with an empty entry at the end.
  [[nodiscard]] const ZEL_KwDef* defs() const noexcept { return m_defs.data(); }
  /// Index of a keyword in Keywords. A name that is not in the table does not compile.
  [[nodiscard]] consteval std::size_t slot(std::string_view name) const { return find(name); }
  /// The same for a name known at run time. \throws std::out_of_range
  [[nodiscard]] constexpr std::size_t find(std::string_view name) const {
    const auto last = m_defs.end() - 1;
    const auto found = std::lower_bound(m_defs.begin(), last, name, [](const ZEL_KwDef& def, std::string_view wanted) {
      return std::string_view(def.name).compare(wanted) < 0;
    });
    if (found == last || found->name != name) throw std::out_of_range("not a keyword of the table");
    return static_cast<std::size_t>(found - m_defs.begin());
  }

private:
  std::array<ZEL_KwDef, N + 1> m_defs{};
};

/// The table of the listed keywords.
template <std::size_t N>
consteval KeywordTable<N> keywordTable(const KeywordEntry (&entries)[N]) {
  return KeywordTable<N>(std::to_array(entries));
}

/// The keywords of one call. Unknown ones are errors.
template <std::size_t N>
class Keywords {
public:
  Keywords(const KeywordTable<N>& table, int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) : Keywords() {
    ZEL_KWProcessByOffset(argc, argv, argk, table.defs(), 1, &m_host);
  }
  Keywords(const Keywords&) = delete;
  Keywords& operator=(const Keywords&) = delete;
  ~Keywords() { ZEL_KWFree(&m_host); }

  /// The caller's variable for an accepted keyword; null if it was not given.
  [[nodiscard]] ZEL_Variable* operator[](std::size_t slot) const {
    const KeywordSlot& given = m_slots.at(slot);
    return given.present != 0 ? given.value : nullptr;
  }

private:
  friend class KeywordTable<N>;
  Keywords() = default;

  ZEL_KwResult m_host{}; ///< the host counts the offsets of the slots from here
  std::array<KeywordSlot, N> m_slots{};
};

/// For a routine that accepts no keywords.
inline constexpr KeywordTable<0> noKeywords({});

/// Stores a 32-bit integer in the variable of an output keyword. Does nothing for null, a keyword that was not given.
void store(ZEL_Variable* output, std::int32_t value);

} // namespace ogc

/// \file
/// Makes host structures from the records of a parsed document, by tables of tags. All values are strings. A list is an
/// array as long as the longest list of its kind among the records that are returned together, or a single empty value
/// if all of them are empty.
#pragma once

#include "zel_curl_text.h"
#include "zel_module.h"

#include <concepts>
#include <cstdint>
#include <span>
#include <type_traits>

/// \name Primitives
/// `offsets` holds the offset in bytes of each tag in `element`, one structure.
/// @{

/// Defines a tag; its name is stored in element `index` of `names`. \param n 0 for a scalar, otherwise the array's
/// length
void _ZEL_OgcWcsAddStrucTag(int index, const char* name, ZEL_STRING* names, ZEL_StructTagDef* tag, ZEL_Type type,
                            std::int64_t n, std::uint8_t flags);
void _ZEL_OgcWcsSetTagDataStr(int tag, char* element, const std::int64_t* offsets, const char* text);
void _ZEL_OgcWcsSetTagDataStrArray(int tag, std::int64_t i, char* element, const std::int64_t* offsets,
                                   const char* text);
/// For native code whose structures hold numbers; those of the routines hold texts alone.
void _ZEL_OgcWcsSetTagDataInt(int tag, char* element, const std::int64_t* offsets, std::int32_t value);
/// @}

namespace ogc {

/// One tag of a structure: its name, and how to get its value from a record. Made by the functions below.
struct Tag {
  const char* name;
  const char* (*text)(const void* record) = nullptr;                 ///< of a text, or of an entry of a text list
  std::int64_t (*count)(const void* record) = nullptr;               ///< of a number; length of a list
  const void* (*first)(const void* record, void* context) = nullptr; ///< nested record, or first entry of a list
  const void* (*next)(const void* entry, void* context) = nullptr;   ///< of a list
  std::span<const Tag> nested{};                                     ///< tags of nested structures
};

/// An array of structures, one for each record. \pre there is at least one record
/// \param context passed to the functions of the tags
[[nodiscard]] zel::Temp structsOf(std::span<const Tag> tags, std::span<const void* const> records,
                                  void* context = nullptr);

namespace detail {

template <typename Record, typename Field>
std::type_identity<Record> recordOf(Field Record::*);

/// The field of a record.
template <auto Member>
const auto& field(const void* record) noexcept {
  return static_cast<const typename decltype(recordOf(Member))::type*>(record)->*Member;
}

template <auto Member>
const char* textOf(const void* record) noexcept {
  return field<Member>(record);
}

/// The first entry of the list that a field holds.
template <auto Head>
const auto* headOf(const void* record) noexcept {
  return +field<Head>(record);
}
template <auto Head>
using EntryOf = std::remove_cvref_t<decltype(*headOf<Head>(nullptr))>;

/// A number, or the length of a list.
template <auto Member>
std::int64_t countOf(const void* record) noexcept {
  if constexpr (std::integral<std::remove_cvref_t<decltype(field<Member>(record))>>) {
    return field<Member>(record);
  } else {
    return transfer::length(headOf<Member>(record));
  }
}

/// A nested record, which a field holds or points to, or the first entry of a list.
template <auto Member>
const void* firstOf(const void* record, void*) noexcept {
  if constexpr (std::convertible_to<decltype(field<Member>(record)), const void*>)
    return field<Member>(record);
  else
    return &field<Member>(record);
}
template <typename Entry>
const void* following(const void* entry, void*) noexcept {
  return static_cast<const Entry*>(entry)->next;
}

} // namespace detail

/// A text field.
template <auto Member>
constexpr Tag text(const char* name) {
  return {.name = name, .text = detail::textOf<Member>};
}

/// A number field, or the length of the list that a field holds, as decimal text.
template <auto Member>
constexpr Tag number(const char* name) {
  return {.name = name, .count = detail::countOf<Member>};
}

/// A nested record.
template <auto Member>
constexpr Tag nested(const char* name, std::span<const Tag> tags) {
  return {.name = name, .first = detail::firstOf<Member>, .nested = tags};
}

/// A list of texts, or of records with `tags`. \tparam Count field with the number of entries to return, by default all
template <auto Head, auto Count = Head>
constexpr Tag list(const char* name, std::span<const Tag> tags = {}) {
  return {.name = name,
          .text = detail::textOf<&xNodeStr_t::str>,
          .count = detail::countOf<Count>,
          .first = detail::firstOf<Head>,
          .next = detail::following<detail::EntryOf<Head>>,
          .nested = tags};
}

} // namespace ogc

/// \file
/// Definitions of structures.
#pragma once

#include "zel_module.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zel::host {

/// Adjacent host strings in an element of a structure.
struct TextRun {
  std::int64_t offset;
  std::int64_t count;
};

/// One tag of a defined structure.
struct Tag {
  std::string name;
  ZEL_Type type;
  std::int64_t n; ///< 0: a scalar
  const ZEL_StructDef* sdef;
  std::int64_t offset;
};

/// The structure with a name (upper case); null if there is none.
const ZEL_StructDef* findStruct(std::string_view name) noexcept;

/// Counts one more variable or definition that uses a definition. Does nothing for null.
void hold(const ZEL_StructDef* sdef) noexcept;
/// Counts one fewer.
void drop(const ZEL_StructDef* sdef) noexcept;
/// Removes anonymous definitions that nothing uses. Must not be called while native code that may hold one is running.
void forgetUnusedStructs() noexcept;
std::size_t structCount() noexcept;

} // namespace zel::host

struct ZEL_StructDef {
  ZEL_StructDef() = default;
  ~ZEL_StructDef();
  ZEL_StructDef(const ZEL_StructDef&) = delete;
  ZEL_StructDef& operator=(const ZEL_StructDef&) = delete;

  std::string name;               ///< empty: anonymous
  std::size_t hash = 0;           ///< of the tags of an anonymous one
  mutable std::int64_t users = 0; ///< variables and definitions that use it
  std::vector<zel::host::Tag> tags;
  std::vector<const ZEL_StructDef*> parents; ///< inherited structures in their order
  std::int64_t size = 0;
  std::int64_t alignment = 1;
  std::vector<zel::host::TextRun> texts; ///< host strings in an element
  std::unordered_map<std::string_view, int> positions;
};

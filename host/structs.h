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

/// Consecutive host strings within one element of a structure.
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

/// The named structure of that name (upper case); null when there is none.
const ZEL_StructDef* findStruct(std::string_view name) noexcept;

} // namespace zel::host

struct ZEL_StructDef {
  std::string name; ///< empty: anonymous
  bool internal = false;
  std::vector<zel::host::Tag> tags;
  std::vector<const ZEL_StructDef*> parents; ///< inherited structures in their order
  std::int64_t size = 0;
  std::int64_t alignment = 1;
  std::vector<zel::host::TextRun> texts; ///< where an element holds host strings
  std::unordered_map<std::string_view, int> positions;
};

/// \file
/// Heap variables: values with an identity.
#pragma once

#include "zel_module.h"

#include <cstdint>

namespace zel::host {

/// Numbers of heap variables alive.
struct HeapCounts {
  std::int64_t pointers = 0;
  std::int64_t objects = 0;
};
HeapCounts heapCounts() noexcept;
/// Bytes that native code holds for all objects, as far as it says.
std::int64_t objectMemory() noexcept;

/// New object of a class, its tags zero.
ZEL_HeapVar* newObject(const ZEL_ObjDef* objdef);

} // namespace zel::host

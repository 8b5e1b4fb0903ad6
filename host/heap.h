/// \file
/// Heap variables: values that are referred to by an identifier.
#pragma once

#include "zel_module.h"

#include <cstdint>

namespace zel::host {

struct HeapCounts {
  std::int64_t pointers = 0;
  std::int64_t objects = 0;
};
HeapCounts heapCounts() noexcept;
/// Bytes that native code has reported to hold for all objects together.
std::int64_t objectMemory() noexcept;

/// New object of a class, zero-filled.
ZEL_HeapVar* newObject(const ZEL_ObjDef* objdef);

} // namespace zel::host

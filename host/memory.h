/// \file
/// The one place that takes memory from the system and gives it back: elements of arrays and texts of strings.
#pragma once

#include <cstdint>
#include <string_view>

namespace zel::host {

/// Zero-filled memory for `n` elements of `size` bytes, never null; released with release(). Too little memory is an
/// error.
char* allocate(std::int64_t n, std::int64_t size);
/// A terminated copy of a text that is not empty; released with release().
char* copyText(std::string_view text);
/// Gives memory back. Null is left alone.
void release(void* memory) noexcept;

} // namespace zel::host

/// \file
/// The only place that allocates and frees memory by hand: for elements of arrays and texts of strings.
#pragma once

#include <cstdint>
#include <string_view>

namespace zel::host {

/// Zero-filled memory for `n` elements of `size` bytes, never null; free it with release(). Raises an error if there is
/// not enough memory.
char* allocate(std::int64_t n, std::int64_t size);
/// A NUL-terminated copy of a text; free it with release().
char* copyText(std::string_view text);
/// Frees memory. Does nothing for null.
void release(void* memory) noexcept;

} // namespace zel::host

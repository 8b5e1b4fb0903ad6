/// \file
/// The user file store, where a client's answers go by default.
#pragma once

#include "routines/service.h"

#include <cstddef>
#include <string>

/// Writes the path of a service's file store into `buffer`, cut to `size - 1` characters; the directory is made when
/// it is missing. Empty when the host has none.
void _ZEL_OgcWcsUserDir(char* buffer, unsigned int size);
void _ZEL_OgcWmsUserDir(char* buffer, unsigned int size);
/// Leading blanks of a text; its last character is never counted.
[[nodiscard]] int _ZEL_OgcCountLeadingSpaces(const char* text) noexcept;

namespace ogc {

/// Size of a buffer for a path, its terminator included.
constexpr std::size_t pathSize = 1025;

/// The path, of at most 1024 characters.
[[nodiscard]] std::string userDirectory(const Service& service);

} // namespace ogc

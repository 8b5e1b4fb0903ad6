/// \file
/// The user file store, where a client's answers go by default.
#pragma once

#include "routines/service.h"

#include <cstddef>

/// Writes the path of a service's file store to `buffer`, a buffer of `size` bytes, cut to `size - 1`. Makes the
/// directory if it is missing. The path is empty if the host has no such directory. For native code that keeps files
/// of its own next to the responses.
void _ZEL_OgcWcsUserDir(char* buffer, unsigned int size);
void _ZEL_OgcWmsUserDir(char* buffer, unsigned int size);
/// Number of leading spaces of a text. Its last character is never counted. For native code that takes texts from
/// scripts itself.
[[nodiscard]] int _ZEL_OgcCountLeadingSpaces(const char* text) noexcept;

namespace ogc {

/// Size in bytes of a buffer for a path, including the terminator.
constexpr std::size_t pathSize = 1025;

/// The same for any service.
void writeUserDir(const Service& service, char* buffer, unsigned int size);

} // namespace ogc

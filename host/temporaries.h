/// \file
/// Temporaries: variables that the host makes, and counts, for native code.
#pragma once

#include "zel_module.h"

#include <cstdint>

namespace zel::host {

/// Serial number of the newest temporary.
std::uint64_t lastTemporary() noexcept;
/// Releases all temporaries newer than the one with a serial number, except `keep`. \return how many were released.
std::int64_t releaseTemporariesAfter(std::uint64_t serial, const ZEL_Variable* keep) noexcept;

} // namespace zel::host

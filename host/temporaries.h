/// \file
/// Temporaries: variables that the host makes for native code and counts.
#pragma once

#include "zel_module.h"

#include <cstdint>

namespace zel::host {

/// Serial number of the temporary made last.
std::uint64_t lastTemporary() noexcept;
/// Releases the temporaries made after the one with that serial number, except `keep`. \return how many there were.
std::int64_t releaseTemporariesAfter(std::uint64_t serial, const ZEL_Variable* keep) noexcept;

} // namespace zel::host

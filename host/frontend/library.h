/// \file
/// The `zel` library of scripts.
#pragma once

#include "frontend/support.h"

namespace zel::lua {

/// Makes the library: the global `zel`, also what `require "zel"` gives.
void openLibrary(lua_State* L);

} // namespace zel::lua

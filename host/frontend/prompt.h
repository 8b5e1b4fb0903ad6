/// \file
/// The interactive prompt.
#pragma once

#include "frontend/support.h"

namespace zel::lua {

/// Reads lines and runs them until the end of input, with line editing and a history kept in the user's directory. The
/// values of an expression are printed.
void runPrompt(lua_State* L);

} // namespace zel::lua

/// \file
/// The interactive prompt.
#pragma once

#include "frontend/support.h"

namespace zel::lua {

/// Reads statements and runs them until the end of input, with line editing and a history kept in the user's directory.
/// The values of an expression are shown. \return false if there can be no prompt.
bool runPrompt(lua_State* L);

} // namespace zel::lua

/// \file
/// Calls of host routines from scripts.
#pragma once

#include "frontend/support.h"
#include "host/routines.h"

namespace zel::lua {

/// Pushes a method as a function for scripts: called with the object, positional arguments, and a table last:
/// `KEYWORD = value` is an input keyword, a name in its list part asks for an output keyword. A function
/// returns its value, and a table of the outputs if any were asked for; a procedure returns its outputs.
void pushRoutine(lua_State* L, const host::Routine& routine);

/// Calls a method of the object at `self` with the keyword table at `keywords` (may be nil there). \return its result.
Temp callMethod(lua_State* L, const host::Routine& routine, int self, int keywords);

} // namespace zel::lua

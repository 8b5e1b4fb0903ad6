/// \file
/// Values between host and scripts.
///
/// Out: string to string, integers to integer, floating to float, array to a table from 1, structure to a table by tag
/// (an array of structures to a table of such tables), object to its userdata, undefined to nil.
/// In: string; integer, boolean and integral float to a 64-bit integer; other float to double; a table from 1 to an
/// array of one type; a table with names to a structure; an object; zel.undefined to undefined. Anything else is an
/// error.
#pragma once

#include "frontend/support.h"
#include "host/variables.h"

#include <string>
#include <vector>

namespace zel::lua {

/// Pushes the value of a variable.
void pushValue(lua_State* L, ZEL_Variable& v);

/// Stores the value at a stack index in an undefined variable; `what` names it in errors. \return the objects that it
/// contains.
std::vector<ZEL_HVID> readValue(lua_State* L, int index, ZEL_Variable& out, const std::string& what);

/// Pushes zel.undefined, which scripts pass for an undefined variable.
void pushUndefined(lua_State* L);

/// Pushes the list of the tags, in their order, of a table that the host made from a structure. \return false, with
/// nothing pushed, for any other value.
bool pushHostTags(lua_State* L, int index);

} // namespace zel::lua

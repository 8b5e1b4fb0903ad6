/// \file
/// Function values where the host wants the name of a routine: an object keeps them under names made for them, as long
/// as the keyword that got them is not given anew and the object is open.
#pragma once

#include "frontend/support.h"

#include <string>

namespace zel::lua {

/// Has the object at `self` keep the function at `index` for a keyword. \return its name.
std::string keepFunction(lua_State* L, int self, int index, const std::string& keyword);
/// Gives up all functions that the object keeps for a keyword, except the one of that name (may be empty).
void releaseFunctions(lua_State* L, int self, const std::string& keyword, const std::string& except);
/// Gives up all functions that the object keeps.
void releaseFunctions(lua_State* L, int self);
/// Pushes the function of a name. \return false, with nothing pushed, when no open object keeps one.
bool pushFunction(lua_State* L, const std::string& name);

} // namespace zel::lua

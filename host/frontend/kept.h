/// \file
/// Values that the host refers to by name or number: functions given in place of the name of a routine, and objects.
/// The object that got them as a keyword keeps them alive until that keyword is given again or the object is closed.
#pragma once

#include "frontend/support.h"

#include <string>
#include <vector>

namespace zel::lua {

/// What an object keeps for one keyword.
struct Kept {
  std::string function;          ///< name of a function value; empty if the value is no function
  std::vector<ZEL_HVID> objects; ///< objects that the value contains
};

/// Keeps the function at `index` for a keyword of the object at `self`. \return a name for it, which is reused once the
/// function has been released.
std::string keepFunction(lua_State* L, int self, int index, const std::string& keyword);
/// Keeps more objects for a keyword of the object at `self`.
void keepObjects(lua_State* L, int self, const std::string& keyword, const std::vector<ZEL_HVID>& objects);
/// Releases what the object at `self` keeps for a keyword, except `now`.
void releaseKept(lua_State* L, int self, const std::string& keyword, const Kept& now);
/// Releases all that the object at `self` keeps.
void releaseKept(lua_State* L, int self);
/// Pushes the function with a name. \return false, with nothing pushed, if no object keeps one.
bool pushFunction(lua_State* L, const std::string& name);

} // namespace zel::lua

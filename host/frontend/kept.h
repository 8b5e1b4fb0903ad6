/// \file
/// Values that the host knows by name or number only: functions given where it wants the name of a routine, and
/// objects. The object whose keyword got them keeps them alive until the keyword is given anew or the object is closed.
#pragma once

#include "frontend/support.h"

#include <string>
#include <vector>

namespace zel::lua {

/// What a call has an object keep for one keyword.
struct Kept {
  std::string function;          ///< name of a function value; empty when none was given
  std::vector<ZEL_HVID> objects; ///< objects in the value
};

/// Has the object at `self` keep the function at `index` for a keyword. \return a name for it, which is used again once
/// the function was released.
std::string keepFunction(lua_State* L, int self, int index, const std::string& keyword);
/// Has the object at `self` keep objects for a keyword, besides those that it keeps already.
void keepObjects(lua_State* L, int self, const std::string& keyword, const std::vector<ZEL_HVID>& objects);
/// Releases what the object at `self` keeps for a keyword, except `now`.
void releaseKept(lua_State* L, int self, const std::string& keyword, const Kept& now);
/// Releases all that the object at `self` keeps.
void releaseKept(lua_State* L, int self);
/// Pushes the function of a name. \return false, with nothing pushed, when no open object keeps one.
bool pushFunction(lua_State* L, const std::string& name);

} // namespace zel::lua

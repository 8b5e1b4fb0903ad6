/// \file
/// What every part of the front end needs from Lua. This is the C++ build of Lua: its errors are C++ exceptions, which
/// run destructors and which only lua_pcall may catch.
#pragma once

#include "zel_module.h"

#include <cstddef>
#include <exception>
#include <lua.hpp>
#include <string_view>
#include <utility>

namespace zel::lua {

/// Pushes the error of a ZEL_Unwind that was caught: the value that a script raised, or the host's text after the
/// position in the script.
void pushHostError(lua_State* L);
/// Pushes the position in the script followed by a text.
void pushError(lua_State* L, const char* text);
/// The name at a stack index. Raises an argument error unless it is a string without NUL bytes.
inline const char* checkName(lua_State* L, int index) {
  std::size_t length = 0;
  const char* name = luaL_checklstring(L, index, &length);
  luaL_argcheck(L, std::string_view(name).size() == length, index, "a name cannot have a zero byte");
  return name;
}

/// Pushes the table at a key of the registry. It is made when it is missing; its values are weak.
inline void pushWeakTable(lua_State* L, const char* key) {
  if (luaL_getsubtable(L, LUA_REGISTRYINDEX, key) != 0) return;
  lua_createtable(L, 0, 1);
  lua_pushliteral(L, "v");
  lua_setfield(L, -2, "__mode");
  lua_setmetatable(L, -2);
}

/// Ends the script, or raises an error in it, if that was asked for while native code was running: by os.exit or
/// Ctrl-C.
void raisePendingStop(lua_State* L);

/// Runs the body of a C function. An exception of native code becomes a Lua error, raised outside of the catch block.
template <typename F>
int protect(lua_State* L, F&& body) {
  int results = -1;
  try {
    results = body();
  } catch (const ZEL_Unwind&) {
    pushHostError(L);
  } catch (const std::exception& error) {
    pushError(L, error.what());
  }
  raisePendingStop(L);
  return results >= 0 ? results : lua_error(L);
}

/// Runs a function at the end of its lifetime.
template <typename F>
struct AtEnd {
  explicit AtEnd(F function) : run(std::move(function)) {}
  ~AtEnd() { run(); }
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;

  F run;
};

/// Restores the height of the stack at the end of the result's lifetime.
[[nodiscard]] inline auto restoreStack(lua_State* L) noexcept {
  return AtEnd([L, top = lua_gettop(L)] { lua_settop(L, top); });
}

/// Stops the garbage collector, if that is wanted, during the result's lifetime.
[[nodiscard]] inline auto pauseCollector(lua_State* L, bool wanted = true) {
  const bool runs = wanted && lua_gc(L, LUA_GCISRUNNING) != 0;
  if (runs) lua_gc(L, LUA_GCSTOP);
  return AtEnd([L, runs] { return runs ? lua_gc(L, LUA_GCRESTART) : 0; });
}

} // namespace zel::lua

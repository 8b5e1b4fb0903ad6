/// \file
/// What every part of the front end needs from Lua. This is the C++ build of Lua: its errors are C++ exceptions, which
/// run destructors and which only lua_pcall may catch.
#pragma once

#include "zel_module.h"

#include <cstddef>
#include <exception>
#include <lua.hpp>
#include <string_view>

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

/// Restores the height of the stack at the end of its lifetime.
class StackRestorer {
public:
  explicit StackRestorer(lua_State* L) noexcept : m_state(L), m_top(lua_gettop(L)) {}
  ~StackRestorer() { lua_settop(m_state, m_top); }
  StackRestorer(const StackRestorer&) = delete;
  StackRestorer& operator=(const StackRestorer&) = delete;

private:
  lua_State* m_state;
  int m_top;
};

/// Stops the garbage collector during its lifetime.
class CollectorPause {
public:
  explicit CollectorPause(lua_State* L) noexcept : m_state(lua_gc(L, LUA_GCISRUNNING) != 0 ? L : nullptr) {
    if (m_state != nullptr) lua_gc(m_state, LUA_GCSTOP);
  }
  ~CollectorPause() {
    if (m_state != nullptr) lua_gc(m_state, LUA_GCRESTART);
  }
  CollectorPause(const CollectorPause&) = delete;
  CollectorPause& operator=(const CollectorPause&) = delete;

private:
  lua_State* m_state;
};

} // namespace zel::lua

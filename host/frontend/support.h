/// \file
/// What every part of the script front end needs of Lua. Lua is the C++ build: its errors are exceptions of its own,
/// which run destructors, and which only lua_pcall may catch.
#pragma once

#include "zel_module.h"

#include <cstddef>
#include <exception>
#include <string_view>

#include <lua.hpp>

namespace zel::lua {

/// Pushes the error that a caught ZEL_Unwind stands for: the value that a script raised, or the host's text behind the
/// position in the script.
void pushHostError(lua_State* L);
/// Pushes a text behind the position in the script.
void pushError(lua_State* L, const char* text);
/// The name at a stack index; an argument error for what is no text, or one with a zero byte.
inline const char* checkName(lua_State* L, int index) {
  std::size_t length = 0;
  const char* name = luaL_checklstring(L, index, &length);
  luaL_argcheck(L, std::string_view(name).size() == length, index, "a name cannot have a zero byte");
  return name;
}

/// Acts on what was asked for while native code ran: the end of the script, an interrupt.
void raisePendingStop(lua_State* L);

/// Runs the body of a C function. What native code throws becomes a Lua error, raised after the catch was left.
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

/// Restores the height of the stack.
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

/// Keeps the collector from running while many values are made, none of which is garbage.
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

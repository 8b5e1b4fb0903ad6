#include "frontend/run.h"

#include "frontend/stop.h"

#include <iostream>

namespace zel::lua {

namespace {

/// Message handler: the error as text, with the calls that led to it. An error object with a text of its own is meant
/// for people and stays as it is.
int addTraceback(lua_State* L) {
  if (lua_type(L, 1) != LUA_TSTRING) {
    if (luaL_callmeta(L, 1, "__tostring") != 0) return 1;
    lua_pushfstring(L, "(error object is a %s value)", luaL_typename(L, 1));
  }
  luaL_traceback(L, L, luaL_tolstring(L, -1, nullptr), 1);
  return 1;
}

int pushArguments(lua_State* L) {
  lua_getglobal(L, "arg");
  const auto n = static_cast<int>(lua_rawlen(L, -1));
  luaL_checkstack(L, n + LUA_MINSTACK, "too many arguments");
  const int table = lua_gettop(L);
  for (int i = 1; i <= n; ++i) lua_rawgeti(L, table, i);
  lua_remove(L, table);
  return n;
}

/// Runs the chunk on top of the stack, or reports why it could not be loaded.
bool run(lua_State* L, int loaded) {
  const bool well = loaded == LUA_OK && callChunk(L, pushArguments(L), 0);
  if (!well) reportError(L);
  return well;
}

} // namespace

void setArguments(lua_State* L, const std::string& name, const std::vector<std::string>& arguments) {
  lua_createtable(L, static_cast<int>(arguments.size()), 1);
  lua_pushstring(L, name.c_str());
  lua_rawseti(L, -2, 0);
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    lua_pushstring(L, arguments[i].c_str());
    lua_rawseti(L, -2, static_cast<lua_Integer>(i) + 1);
  }
  lua_setglobal(L, "arg");
}

bool callChunk(lua_State* L, int arguments, int results) {
  const Interruptible interruptible;
  const int base = lua_gettop(L) - arguments;
  lua_pushcfunction(L, addTraceback);
  lua_insert(L, base);
  const int status = lua_pcall(L, arguments, results, base);
  lua_remove(L, base);
  return status == LUA_OK;
}

Outcome runFile(lua_State* L, const std::string& path) {
  const int loaded = luaL_loadfile(L, path == "-" ? nullptr : path.c_str());
  const bool well = run(L, loaded);
  if (loaded == LUA_ERRFILE) return Outcome::unreadable;
  return well ? Outcome::done : Outcome::failed;
}

bool runText(lua_State* L, const std::string& code, const char* chunkName) {
  return run(L, luaL_loadbuffer(L, code.data(), code.size(), chunkName));
}

void reportError(lua_State* L) {
  const char* text = lua_tostring(L, -1);
  printError(text != nullptr ? text : "(error without a text)");
  lua_pop(L, 1);
}

void printError(const std::string& text) {
  std::cout.flush();
  std::cerr << "zel: " + text + '\n'; // in one piece among lines of other processes
}

} // namespace zel::lua

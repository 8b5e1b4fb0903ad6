#include "frontend/functions.h"

#include "frontend/objects.h"

#include <string_view>
#include <vector>

namespace zel::lua {

namespace {

/// Pushes the object's table from names to functions; it is the object's user value, so that a function that refers to
/// its object does not keep it alive.
void pushKept(lua_State* L, int self) {
  if (lua_getiuservalue(L, self, 1) == LUA_TTABLE) return;
  lua_pop(L, 1);
  lua_newtable(L);
  lua_pushvalue(L, -1);
  lua_setiuservalue(L, self, 1);
}

/// Every name made is another one: "KEYWORD#object.number".
std::string prefixOf(const std::string& keyword) { return keyword + '#'; }

ZEL_HVID ownerOf(const std::string& name) {
  const auto mark = name.find('#');
  return mark == std::string::npos ? 0 : static_cast<ZEL_HVID>(std::strtoul(name.c_str() + mark + 1, nullptr, 10));
}

} // namespace

std::string keepFunction(lua_State* L, int self, int index, const std::string& keyword) {
  const StackGuard guard(L);
  index = lua_absindex(L, index);
  pushKept(L, self);
  const int kept = lua_gettop(L);
  lua_Integer number = 0;
  for (lua_pushnil(L); lua_next(L, kept); lua_pop(L, 1)) {
    if (lua_type(L, -2) != LUA_TSTRING) continue;
    const std::string_view name = lua_tostring(L, -2);
    if (name.starts_with(prefixOf(keyword)) && lua_rawequal(L, -1, index)) return std::string(name);
  }
  lua_rawgeti(L, kept, 1);
  number = lua_tointeger(L, -1) + 1;
  lua_pushinteger(L, number);
  lua_rawseti(L, kept, 1);
  std::string name = prefixOf(keyword) + std::to_string(objectAt(L, self)->hvid) + '.' + std::to_string(number);
  lua_pushvalue(L, index);
  lua_setfield(L, kept, name.c_str());
  return name;
}

void releaseFunctions(lua_State* L, int self, const std::string& keyword, const std::string& except) {
  const StackGuard guard(L);
  pushKept(L, self);
  const int kept = lua_gettop(L);
  for (lua_pushnil(L); lua_next(L, kept);) {
    lua_pop(L, 1);
    if (lua_type(L, -1) != LUA_TSTRING) continue;
    const std::string_view name = lua_tostring(L, -1);
    if (!name.starts_with(prefixOf(keyword)) || name == except) continue;
    lua_pushvalue(L, -1);
    lua_pushnil(L);
    lua_rawset(L, kept);
  }
}

void releaseFunctions(lua_State* L, int self) {
  lua_pushnil(L);
  lua_setiuservalue(L, self, 1);
}

bool pushFunction(lua_State* L, const std::string& name) {
  const ZEL_HVID owner = ownerOf(name);
  if (!owner) return false;
  const int top = lua_gettop(L);
  pushObject(L, owner);
  if (objectAt(L, -1)) {
    pushKept(L, lua_gettop(L));
    if (lua_getfield(L, -1, name.c_str()) == LUA_TFUNCTION) {
      lua_replace(L, top + 1);
      lua_settop(L, top + 1);
      return true;
    }
  }
  lua_settop(L, top);
  return false;
}

} // namespace zel::lua

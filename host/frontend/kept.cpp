#include "frontend/kept.h"

#include "frontend/objects.h"

#include <charconv>
#include <string_view>

namespace zel::lua {

namespace {

/// Registry key of the table that maps the numbers of functions to the objects that keep them.
constexpr const char* ownersKey = "zel.functions";

/// Pushes the table of what the object keeps: functions by name, sets of objects by keyword. It is the user value of
/// the object, so that a function that refers to the object does not keep it alive.
void pushKept(lua_State* L, int self) {
  if (lua_getiuservalue(L, self, 1) == LUA_TTABLE) return;
  lua_pop(L, 1);
  lua_newtable(L);
  lua_pushvalue(L, -1);
  lua_setiuservalue(L, self, 1);
}

/// Functions are named "KEYWORD#number".
std::string prefixOf(const std::string& keyword) { return keyword + '#'; }

/// The number in the name of a function; 0 for any other name.
int numberOf(std::string_view name) noexcept {
  int number = 0;
  const auto mark = name.find('#');
  if (mark != std::string_view::npos) std::from_chars(name.data() + mark + 1, name.data() + name.size(), number);
  return number;
}

/// Makes the number of a function available again.
void releaseNumber(lua_State* L, std::string_view name) {
  pushWeakTable(L, ownersKey);
  luaL_unref(L, -1, numberOf(name));
  lua_pop(L, 1);
}

/// Releases the functions of the table at `kept` whose names begin with `prefix`, except one.
void releaseFunctions(lua_State* L, int kept, std::string_view prefix, std::string_view except) {
  for (lua_pushnil(L); lua_next(L, kept) != 0;) {
    const bool isFunction = lua_isfunction(L, -1);
    lua_pop(L, 1);
    const std::string_view name = lua_tostring(L, -1);
    if (!isFunction || !name.starts_with(prefix) || name == except) continue;
    releaseNumber(L, name);
    lua_pushvalue(L, -1);
    lua_pushnil(L);
    lua_rawset(L, kept);
  }
}

} // namespace

std::string keepFunction(lua_State* L, int self, int index, const std::string& keyword) {
  const auto stack = restoreStack(L);
  index = lua_absindex(L, index);
  pushKept(L, self);
  const int kept = lua_gettop(L);
  for (lua_pushnil(L); lua_next(L, kept) != 0; lua_pop(L, 1)) {
    const std::string_view name = lua_tostring(L, -2);
    if (name.starts_with(prefixOf(keyword)) && lua_rawequal(L, -1, index) != 0) return std::string(name);
  }
  pushWeakTable(L, ownersKey);
  lua_pushvalue(L, self);
  std::string name = prefixOf(keyword) + std::to_string(luaL_ref(L, -2));
  lua_pushvalue(L, index);
  lua_setfield(L, kept, name.c_str());
  return name;
}

void keepObjects(lua_State* L, int self, const std::string& keyword, const std::vector<ZEL_HVID>& objects) {
  if (objects.empty()) return;
  const auto stack = restoreStack(L);
  pushKept(L, self);
  luaL_getsubtable(L, -1, keyword.c_str());
  for (const ZEL_HVID hvid : objects) {
    pushObject(L, hvid);
    lua_pushboolean(L, 1);
    lua_rawset(L, -3);
  }
}

void releaseKept(lua_State* L, int self, const std::string& keyword, const Kept& now) {
  const auto stack = restoreStack(L);
  pushKept(L, self);
  releaseFunctions(L, lua_gettop(L), prefixOf(keyword), now.function);
  lua_pushnil(L);
  lua_setfield(L, -2, keyword.c_str());
  keepObjects(L, self, keyword, now.objects);
}

void releaseKept(lua_State* L, int self) {
  const auto stack = restoreStack(L);
  if (lua_getiuservalue(L, self, 1) != LUA_TTABLE) return;
  releaseFunctions(L, lua_gettop(L), "", "");
  lua_pushnil(L);
  lua_setiuservalue(L, self, 1);
}

bool pushFunction(lua_State* L, const std::string& name) {
  const int number = numberOf(name);
  if (number == 0) return false;
  const int top = lua_gettop(L);
  pushWeakTable(L, ownersKey);
  lua_rawgeti(L, -1, number);
  if (objectAt(L, -1) != nullptr) {
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

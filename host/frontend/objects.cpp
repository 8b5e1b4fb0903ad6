#include "frontend/objects.h"

#include "frontend/calls.h"
#include "frontend/interpreter.h"
#include "frontend/kept.h"
#include "host/heap.h"
#include "host/messages.h"
#include "host/modules.h"
#include "host/objects.h"
#include "host/routines.h"
#include "host/strings.h"
#include "host/variables.h"

#include <new>
#include <string>
#include <vector>

namespace zel::lua {

namespace {

constexpr const char* objectMetatable = "zel.object";
/// Name in the registry of the table from identifiers to the objects that scripts hold.
constexpr const char* objectsKey = "zel.objects";

/// Runs CLEANUP, which may refuse by raising an error, and releases the host object.
void close(lua_State* L, Object& object) {
  if (object.closed) return;
  if (const auto* cleanup = host::findMethod(object.objdef, "CLEANUP")) {
    const auto calling = Interpreter::calling(L);
    const auto use = useObject(object);
    host::Variable self;
    self->type = ZEL_TYP_OBJREF;
    self->value.hvid = object.hvid;
    ZEL_Variable* argv[] = {self.get()};
    host::callRoutine(*cleanup, 1, argv, {0, nullptr});
  }
  object.closed = true;
  deleteHostObject(object);
}

/// close() without an error if CLEANUP refuses.
void tryClose(lua_State* L, Object& object) {
  try {
    close(L, object);
  } catch (const ZEL_Unwind&) {
    host::takeError();
  }
}

Object& checkObject(lua_State* L, int index) {
  return *static_cast<Object*>(luaL_checkudata(L, index, objectMetatable));
}

/// object:close(), and the end of a `local object <close>`.
int closeObject(lua_State* L) {
  Object& object = checkObject(L, 1);
  return protect(L, [L, &object] {
    close(L, object);
    releaseKept(L, 1);
    return 0;
  });
}

/// Collection.
int collectObject(lua_State* L) {
  tryClose(L, checkObject(L, 1));
  releaseKept(L, 1);
  return 0;
}

int objectToString(lua_State* L) {
  const Object& object = checkObject(L, 1);
  lua_pushfstring(L, "%s object%s", host::className(object.objdef).c_str(), object.closed ? " (closed)" : "");
  return 1;
}

void pushMethod(lua_State* L, const Object& object, const char* key) {
  const std::string name = host::upper(key);
  if (const auto* routine = host::findMethod(object.objdef, name)) return pushRoutine(L, *routine);
  if (name == "CLOSE") return lua_pushcfunction(L, closeObject);
  auto names = host::methodNames(object.objdef);
  names.emplace_back("close");
  std::string text =
      host::className(object.objdef) + " has no method \"" + key + "\"; it has " + host::join(names, ", ");
  if (name == key && host::findMethod(object.objdef, "GETPROPERTY") != nullptr)
    text += std::string(". A property is read by object:GetProperty{\"") + key + "\"}." + key;
  host::raise(text + '.');
}

/// object[name]: the method, in any case. Methods are made once for each spelling.
int indexObject(lua_State* L) {
  const Object& object = checkObject(L, 1);
  const char* key = checkName(L, 2);
  return protect(L, [L, &object, key] {
    if (lua_rawgetp(L, LUA_REGISTRYINDEX, object.objdef) != LUA_TTABLE) {
      lua_newtable(L);
      lua_pushvalue(L, -1);
      lua_rawsetp(L, LUA_REGISTRYINDEX, object.objdef);
      lua_replace(L, -2);
    }
    if (lua_getfield(L, -1, key) == LUA_TFUNCTION) return 1;
    pushMethod(L, object, key);
    lua_pushvalue(L, -1);
    lua_setfield(L, -4, key);
    return 1;
  });
}

/// object.NAME = value: nothing can be set this way.
int setField(lua_State* L) {
  const Object& object = checkObject(L, 1);
  const std::string key = luaL_tolstring(L, 2, nullptr);
  return protect(L, [&object, &key]() -> int {
    std::string text = host::className(object.objdef) + ": " + key + " cannot be set by assignment";
    if (host::findMethod(object.objdef, "SETPROPERTY") != nullptr)
      text += "; properties are set by object:SetProperty{" + key + " = value}";
    host::raise(text + '.');
  });
}

const ZEL_ObjDef* requireClass(const char* name) {
  const ZEL_ObjDef* objdef = host::findClass(name);
  if (objdef == nullptr) {
    host::loadModuleOfClass(name);
    objdef = host::findClass(name);
  }
  if (objdef == nullptr)
    host::raise(std::string("There is no object class \"") + name + "\", only " +
                host::join(host::availableClasses(), ", ") +
                ". A class of another module is there once zel.load has loaded that.");
  return objdef;
}

/// Pushes the userdata of a new host object.
Object& pushNewObject(lua_State* L, const ZEL_ObjDef* objdef) {
  auto* object = new (lua_newuserdatauv(L, sizeof(Object), 1)) Object{0, objdef, 0, true}; // NOLINT: Lua's memory
  luaL_setmetatable(L, objectMetatable);
  object->hvid = host::newObject(objdef)->hvid;
  object->closed = false;
  pushWeakTable(L, objectsKey);
  lua_pushvalue(L, -2);
  lua_rawseti(L, -2, object->hvid);
  lua_pop(L, 1);
  return *object;
}

/// Runs INIT with the properties at a stack index. \return true if it succeeds.
bool initialise(lua_State* L, int self, int properties) {
  const auto* init = host::findMethod(objectAt(L, self)->objdef, "INIT");
  if (init == nullptr) return true;
  const Temp answer = callMethod(L, *init, self, properties);
  return !answer || host::scalarInteger(answer.get()) != 0;
}

} // namespace

void openObjects(lua_State* L) {
  constexpr luaL_Reg methods[] = {{"__index", indexObject}, {"__newindex", setField},       {"__close", closeObject},
                                  {"__gc", collectObject},  {"__tostring", objectToString}, {nullptr, nullptr}};
  luaL_newmetatable(L, objectMetatable);
  luaL_setfuncs(L, methods, 0);
  lua_pushliteral(L, "object");
  lua_setfield(L, -2, "__metatable");
  lua_pop(L, 1);
}

void deleteHostObject(Object& object) noexcept {
  if (object.closed && object.running == 0) ZEL_HeapVarDelete(ZEL_HeapVarHashFind(object.hvid));
}

Object* objectAt(lua_State* L, int index) { return static_cast<Object*>(luaL_testudata(L, index, objectMetatable)); }

void pushObject(lua_State* L, ZEL_HVID hvid) {
  pushWeakTable(L, objectsKey);
  lua_rawgeti(L, -1, hvid);
  lua_replace(L, -2);
}

int newObject(lua_State* L) {
  const char* name = checkName(L, 1);
  if (!lua_isnoneornil(L, 2)) luaL_checktype(L, 2, LUA_TTABLE);
  lua_settop(L, 2);
  return protect(L, [L, name] {
    Object& object = pushNewObject(L, requireClass(name));
    std::vector<std::string> messages;
    bool made = false;
    try {
      const host::InfoRedirect redirect([&messages](const std::string& line) { messages.push_back(line); });
      made = initialise(L, 3, 2);
    } catch (const ZEL_Unwind&) {
      host::Error error = host::takeError();
      tryClose(L, object);
      host::raise(std::move(error));
    }
    if (made) {
      for (const std::string& line : messages) host::inform(line);
      lua_settop(L, 3);
      return 1;
    }
    tryClose(L, object);
    lua_pushnil(L);
    const std::string why =
        messages.empty() ? std::string(name) + " could not be initialised" : host::join(messages, "\n");
    lua_pushlstring(L, why.data(), why.size());
    return 2;
  });
}

int objectMethods(lua_State* L) {
  const Object& object = checkObject(L, 1);
  return protect(L, [L, &object] {
    lua_newtable(L);
    for (lua_Integer i = 0; const std::string& name : host::methodNames(object.objdef)) {
      lua_pushlstring(L, name.data(), name.size());
      lua_rawseti(L, -2, ++i);
    }
    return 1;
  });
}

} // namespace zel::lua

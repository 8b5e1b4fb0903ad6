/// \file
/// Objects as scripts hold them: userdata that own a host object.
#pragma once

#include "frontend/support.h"

namespace zel::lua {

/// What the userdata of an object holds.
struct Object {
  ZEL_HVID hvid;            ///< the host object
  const ZEL_ObjDef* objdef; ///< its class
  int running;              ///< methods of it that are running
  bool closed;              ///< CLEANUP has run
};

/// Prepares a state for objects.
void openObjects(lua_State* L);

/// The object at a stack index; null if the value is no object.
Object* objectAt(lua_State* L, int index);
/// Pushes the object of an identifier; nil when no script holds it.
void pushObject(lua_State* L, ZEL_HVID hvid);

/// zel.new(class [, properties]): the object, or nil and the message if its INIT returns 0.
int newObject(lua_State* L);
/// zel.methods(object): the names of its methods, sorted, in capitals.
int objectMethods(lua_State* L);

/// Deletes the host object once it is closed and none of its methods runs.
void deleteHostObject(Object& object) noexcept;
/// Counts a running method during the result's lifetime; the host object outlives it even when a script closes it.
[[nodiscard]] inline auto useObject(Object& object) noexcept {
  ++object.running;
  return AtEnd([&object] {
    --object.running;
    deleteHostObject(object);
  });
}

} // namespace zel::lua

// Converts host values to script values.
#include "frontend/objects.h"
#include "frontend/values.h"
#include "host/messages.h"
#include "host/strings.h"
#include "host/structs.h"

#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace zel::lua {

namespace {

/// The collector is stopped while a result with at least this many values is made.
constexpr std::int64_t manyValues = 20'000;

template <typename T>
T load(const char* data) noexcept {
  T value;
  std::memcpy(&value, data, sizeof value);
  return value;
}

/// Pushes a table of `n` values. \param push pushes value `k`, from 0
template <typename Push>
void pushList(lua_State* L, std::int64_t n, Push push) {
  lua_createtable(L, static_cast<int>(std::min<std::int64_t>(n, std::numeric_limits<int>::max())), 0);
  for (std::int64_t k = 0; k < n; ++k) {
    push(k);
    lua_rawseti(L, -2, k + 1);
  }
}

/// Pushes one element of a type that is no structure.
void pushElement(lua_State* L, ZEL_Type type, const char* data) {
  switch (type) {
  case ZEL_TYP_BYTE: return lua_pushinteger(L, load<std::uint8_t>(data));
  case ZEL_TYP_INT: return lua_pushinteger(L, load<std::int16_t>(data));
  case ZEL_TYP_UINT: return lua_pushinteger(L, load<std::uint16_t>(data));
  case ZEL_TYP_LONG: return lua_pushinteger(L, load<std::int32_t>(data));
  case ZEL_TYP_ULONG: return lua_pushinteger(L, load<std::uint32_t>(data));
  case ZEL_TYP_LONG64: return lua_pushinteger(L, load<std::int64_t>(data));
  case ZEL_TYP_ULONG64: {
    const auto value = load<std::uint64_t>(data);
    if (value > static_cast<std::uint64_t>(std::numeric_limits<lua_Integer>::max()))
      return lua_pushnumber(L, static_cast<lua_Number>(value));
    return lua_pushinteger(L, static_cast<lua_Integer>(value));
  }
  case ZEL_TYP_FLOAT: return lua_pushnumber(L, load<float>(data));
  case ZEL_TYP_DOUBLE: return lua_pushnumber(L, load<double>(data));
  case ZEL_TYP_STRING: {
    const auto& s = *reinterpret_cast<const ZEL_STRING*>(data);
    lua_pushlstring(L, s.s != nullptr ? s.s : "", static_cast<std::size_t>(s.len));
    return;
  }
  case ZEL_TYP_OBJREF: return pushObject(L, load<ZEL_HVID>(data));
  default: host::raise(std::string("A script cannot be given a value of type ") + host::typeName(type) + '.');
  }
}

/// Key of the list of tags in a metatable: its address, which scripts cannot make.
const char tagsKey = 0;
/// Registry key of the table that maps tag names to the metatables in use.
constexpr const char* metatablesKey = "zel.structures";

/// Pushes the metatable that all tables of structures with the same tags share. It lives as long as one of them does.
void pushStructMetatable(lua_State* L, const ZEL_StructDef* sdef) {
  std::string names;
  for (const host::Tag& tag : sdef->tags) names.append(tag.name).push_back(',');
  pushWeakTable(L, metatablesKey);
  if (lua_getfield(L, -1, names.c_str()) == LUA_TTABLE) return lua_remove(L, -2);
  lua_pop(L, 1);
  lua_createtable(L, 0, 3);
  lua_createtable(L, static_cast<int>(sdef->tags.size()), 0);
  for (lua_Integer i = 0; const host::Tag& tag : sdef->tags) {
    lua_pushstring(L, tag.name.c_str());
    lua_rawseti(L, -2, ++i);
  }
  lua_rawsetp(L, -2, &tagsKey);
  lua_pushliteral(L, "structure");
  lua_pushvalue(L, -1);
  lua_setfield(L, -3, "__name");
  lua_setfield(L, -2, "__metatable");
  lua_pushvalue(L, -1);
  lua_setfield(L, -3, names.c_str());
  lua_remove(L, -2);
}

/// Makes tables of structures. What all of them share (tag names, metatables, the empty text) is pushed on the stack
/// once, so that nothing is looked up or hashed for each element.
class StructPusher {
public:
  StructPusher(lua_State* L, const ZEL_StructDef* sdef) : m_state(L) {
    luaL_checkstack(L, 1, nullptr);
    lua_pushliteral(L, "");
    m_empty = lua_gettop(L);
    m_plan = planOf(sdef);
    luaL_checkstack(L, 4 * m_depth + LUA_MINSTACK, "too many nested structures");
  }

  /// Pushes the table of one structure.
  void push(const char* element) const { push(*m_plan, element); }
  /// Pushes the table of the tables of `n` structures.
  void pushAll(const char* first, std::int64_t n) const { pushAll(*m_plan, first, n); }

private:
  struct Plan;
  struct Field {
    int key;
    ZEL_Type type;
    std::int64_t n;
    std::int64_t offset;
    std::int64_t size;
    const Plan* plan;
  };
  struct Plan {
    int metatable;
    std::int64_t size;
    std::vector<Field> fields;
  };

  const Plan* planOf(const ZEL_StructDef* sdef) {
    if (const auto known = m_plans.find(sdef); known != m_plans.end()) return known->second.get();
    ++m_depth;
    auto plan = std::make_unique<Plan>();
    luaL_checkstack(m_state, static_cast<int>(sdef->tags.size()) + 8, "too many tags");
    pushStructMetatable(m_state, sdef);
    plan->metatable = lua_gettop(m_state);
    plan->size = sdef->size;
    for (const host::Tag& tag : sdef->tags) {
      lua_pushstring(m_state, tag.name.c_str());
      plan->fields.push_back({lua_gettop(m_state), tag.type, tag.n, tag.offset, host::typeSize(tag.type), nullptr});
    }
    for (std::size_t i = 0; i < sdef->tags.size(); ++i)
      if (sdef->tags[i].sdef != nullptr) plan->fields[i].plan = planOf(sdef->tags[i].sdef);
    return m_plans.emplace(sdef, std::move(plan)).first->second.get();
  }

  void push(const Plan& plan, const char* element) const {
    lua_createtable(m_state, 0, static_cast<int>(plan.fields.size()));
    for (const Field& field : plan.fields) {
      lua_pushvalue(m_state, field.key);
      pushField(field, element + field.offset);
      lua_rawset(m_state, -3);
    }
    lua_pushvalue(m_state, plan.metatable);
    lua_setmetatable(m_state, -2);
  }

  void pushField(const Field& field, const char* data) const {
    if (field.plan != nullptr) return field.n == 0 ? push(*field.plan, data) : pushAll(*field.plan, data, field.n);
    if (field.n == 0) return pushLeaf(field.type, data);
    pushList(m_state, field.n, [&](std::int64_t k) { pushLeaf(field.type, data + k * field.size); });
  }

  void pushAll(const Plan& plan, const char* first, std::int64_t n) const {
    pushList(m_state, n, [&](std::int64_t k) { push(plan, first + k * plan.size); });
  }

  void pushLeaf(ZEL_Type type, const char* data) const {
    if (type == ZEL_TYP_STRING && (reinterpret_cast<const ZEL_STRING*>(data)->s == nullptr))
      lua_pushvalue(m_state, m_empty);
    else
      pushElement(m_state, type, data);
  }

  lua_State* m_state;
  int m_empty = 0;
  int m_depth = 0;
  const Plan* m_plan = nullptr;
  std::unordered_map<const ZEL_StructDef*, std::unique_ptr<Plan>> m_plans;
};

void pushStructs(lua_State* L, const ZEL_Variable& v) {
  const std::int64_t values = v.n * (v.sdef->size / static_cast<std::int64_t>(sizeof(ZEL_STRING)));
  const auto pause = pauseCollector(L, values >= manyValues);
  const int result = lua_gettop(L) + 1;
  const StructPusher pusher(L, v.sdef);
  if ((v.flags & ZEL_V_ARR) != 0)
    pusher.pushAll(v.data, v.n);
  else
    pusher.push(v.data);
  lua_replace(L, result);
  lua_settop(L, result);
}

} // namespace

void pushValue(lua_State* L, ZEL_Variable& v) {
  luaL_checkstack(L, 4, nullptr);
  if (v.type == ZEL_TYP_UNDEF) return lua_pushnil(L);
  if (v.type == ZEL_TYP_STRUCT) return pushStructs(L, v);
  std::int64_t n = 0;
  char* data = nullptr;
  ZEL_VarGetData(&v, &n, &data);
  if ((v.flags & ZEL_V_ARR) == 0) return pushElement(L, v.type, data);
  const std::int64_t size = host::typeSize(v.type);
  pushList(L, n, [&](std::int64_t k) { pushElement(L, v.type, data + k * size); });
}

bool pushHostTags(lua_State* L, int index) {
  if (lua_getmetatable(L, index) == 0) return false;
  if (lua_rawgetp(L, -1, &tagsKey) != LUA_TTABLE) {
    lua_pop(L, 2);
    return false;
  }
  lua_remove(L, -2);
  return true;
}

} // namespace zel::lua

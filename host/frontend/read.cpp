// Converts script values to host values.
#include "frontend/objects.h"
#include "frontend/values.h"
#include "host/messages.h"
#include "host/strings.h"
#include "host/structs.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <limits>
#include <string_view>
#include <vector>

namespace zel::lua {

namespace {

constexpr int maxDepth = 32;
/// Limit on the elements of nested tables. A table that appears in several places counts in each of them.
constexpr std::int64_t maxNested = 5'000'000;

/// Registry key of zel.undefined.
const char undefinedKey = 0;

/// What a script value becomes: its type, and for a table the number of elements (0 for a single value) and the
/// structure.
struct Shape {
  ZEL_Type type;
  std::int64_t n = 0;
  const ZEL_StructDef* sdef = nullptr;
};

/// Reads one value.
class Reader {
public:
  Reader(lua_State* L, const std::string& what) : m_state(L), m_what(what) {}

  void read(int index, ZEL_Variable& out) {
    if (isUndefined(index)) return;
    const Shape shape = shapeOf(index, 0);
    if (shape.n > 0 || shape.sdef != nullptr) {
      char* data = shape.sdef != nullptr ? host::makeStructs(out, shape.sdef, std::max<std::int64_t>(shape.n, 1))
                                         : host::makeArray(out, shape.type, shape.n);
      if (shape.n == 0) out.flags &= static_cast<std::uint8_t>(~ZEL_V_ARR);
      fill(index, shape, data);
    } else {
      out.type = shape.type;
      fill(index, shape, reinterpret_cast<char*>(&out.value));
    }
  }

  /// The objects in what was read.
  const std::vector<ZEL_HVID>& objects() const noexcept { return m_objects; }

private:
  [[noreturn]] void refuse(const std::string& why) const { host::raise(m_what + ": " + why + '.'); }

  bool isUndefined(int index) const {
    lua_rawgetp(m_state, LUA_REGISTRYINDEX, &undefinedKey);
    const bool same = lua_rawequal(m_state, index, -1) != 0;
    lua_pop(m_state, 1);
    return same;
  }

  Shape shapeOf(int index, int depth) {
    if (depth > 1) countNested();
    switch (lua_type(m_state, index)) {
    case LUA_TBOOLEAN: return {ZEL_TYP_LONG64};
    case LUA_TSTRING: return {ZEL_TYP_STRING};
    case LUA_TNUMBER: {
      int exact = 0;
      lua_tointegerx(m_state, index, &exact);
      return {exact != 0 ? ZEL_TYP_LONG64 : ZEL_TYP_DOUBLE};
    }
    case LUA_TTABLE: return shapeOfTable(index, depth);
    case LUA_TUSERDATA:
      if (objectAt(m_state, index) != nullptr) return {ZEL_TYP_OBJREF};
      break;
    case LUA_TNIL: refuse("it is nil; an undefined variable is passed as zel.undefined");
    default: break;
    }
    refuse(std::string("a ") + luaL_typename(m_state, index) + " cannot be passed");
  }

  /// Counts an element of a nested table. Refuses too many, and stops if the user interrupts.
  void countNested() {
    if (++m_nested > maxNested) refuse("its tables hold more than " + std::to_string(maxNested) + " elements");
    if (m_nested % 1024 == 0 && ZEL_InterpInterrupted() != 0) refuse("interrupted");
  }

  Shape shapeOfTable(int index, int depth) {
    if (depth > maxDepth) refuse("its tables are nested too deeply");
    luaL_checkstack(m_state, 8, "its tables are nested too deeply");
    std::int64_t entries = 0;
    std::int64_t names = 0;
    for (lua_pushnil(m_state); lua_next(m_state, index) != 0; lua_pop(m_state, 1)) {
      ++entries;
      if (lua_type(m_state, -2) == LUA_TSTRING) ++names;
    }
    if (entries == 0) refuse("an empty table cannot be passed");
    if (names == entries) return {ZEL_TYP_STRUCT, 0, define(index, depth)};
    if (names > 0 || static_cast<std::int64_t>(lua_rawlen(m_state, index)) != entries)
      refuse("a table must be either a list without holes or have names only");
    return shapeOfList(index, entries, depth);
  }

  Shape shapeOfList(int index, std::int64_t n, int depth) {
    Shape all{ZEL_TYP_UNDEF};
    for (std::int64_t k = 1; k <= n; ++k) {
      lua_rawgeti(m_state, index, k);
      const Shape one = shapeOf(lua_gettop(m_state), depth + 1);
      lua_pop(m_state, 1);
      if (one.n > 0) refuse("element " + std::to_string(k) + " is a list itself, and lists cannot be nested");
      if (k == 1) all = one;
      const auto isNumber = [](ZEL_Type type) { return type == ZEL_TYP_LONG64 || type == ZEL_TYP_DOUBLE; };
      if (isNumber(all.type) && isNumber(one.type)) {
        if (one.type == ZEL_TYP_DOUBLE) all.type = ZEL_TYP_DOUBLE;
      } else if (one.type != all.type || one.sdef != all.sdef) {
        refuse("element " + std::to_string(k) + " differs in type from those before it");
      }
    }
    all.n = n;
    return all;
  }

  /// An entry of a table with names.
  struct Entry {
    std::string name;
    Shape shape;
    lua_Integer rank = std::numeric_limits<lua_Integer>::max();
  };

  /// The key of the current entry (below its value) as a tag.
  std::string tagName() const {
    std::size_t length = 0;
    const char* key = lua_tolstring(m_state, -2, &length);
    std::string name = host::upper({key, length});
    const auto isOdd = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '_'; };
    if (name.empty() || std::ranges::any_of(name, isOdd)) {
      std::ranges::replace_if(
          name, [](char c) { return std::iscntrl(static_cast<unsigned char>(c)); }, '?');
      refuse("\"" + name + "\" cannot be the name of a tag");
    }
    return name;
  }

  /// The entries of a table: those in the order of its tags if the host made it, then the others in alphabetical order.
  std::vector<Entry> entriesOf(int index, int depth) {
    std::vector<Entry> entries;
    for (lua_pushnil(m_state); lua_next(m_state, index) != 0; lua_pop(m_state, 1))
      entries.push_back({tagName(), shapeOf(lua_gettop(m_state), depth + 1)});
    std::ranges::sort(entries, {}, &Entry::name);
    const auto twice = std::ranges::adjacent_find(entries, {}, &Entry::name);
    if (twice != entries.end()) refuse("the name " + twice->name + " appears twice in different case");
    if (!pushHostTags(m_state, index)) return entries;
    for (auto i = static_cast<lua_Integer>(lua_rawlen(m_state, -1)); i > 0; --i) {
      lua_rawgeti(m_state, -1, i);
      const char* text = lua_tostring(m_state, -1); // null where a script's debugging has been at the list
      const std::string_view tag = text != nullptr ? text : "";
      const auto found = std::ranges::lower_bound(entries, tag, {}, &Entry::name);
      if (found != entries.end() && found->name == tag) found->rank = i;
      lua_pop(m_state, 1);
    }
    lua_pop(m_state, 1);
    std::ranges::stable_sort(entries, {}, &Entry::rank);
    return entries;
  }

  const ZEL_StructDef* define(int index, int depth) {
    const std::vector<Entry> entries = entriesOf(index, depth);
    std::vector<ZEL_StructTagDef> tags;
    tags.reserve(entries.size() + 1);
    for (const auto& [name, shape, rank] : entries) tags.push_back({name.c_str(), shape.type, shape.n, shape.sdef, 0});
    tags.push_back({});
    return ZEL_MakeStruct(nullptr, tags.data());
  }

  void fill(int index, const Shape& shape, char* data) {
    if (shape.n == 0) return fillOne(index, shape, data);
    const std::int64_t size = shape.sdef != nullptr ? shape.sdef->size : host::typeSize(shape.type);
    for (std::int64_t k = 0; k < shape.n; ++k, data += size) {
      lua_rawgeti(m_state, index, k + 1);
      fillOne(lua_gettop(m_state), shape, data);
      lua_pop(m_state, 1);
    }
  }

  void fillOne(int index, const Shape& shape, char* data) {
    if (shape.type == ZEL_TYP_STRING) {
      std::size_t length = 0;
      const char* text = lua_tolstring(m_state, index, &length);
      if (std::memchr(text, '\0', length) != nullptr) refuse("a text with a zero byte cannot be passed");
      host::store(*reinterpret_cast<ZEL_STRING*>(data), {text, length});
    } else if (shape.type == ZEL_TYP_STRUCT) {
      for (lua_pushnil(m_state); lua_next(m_state, index) != 0; lua_pop(m_state, 1)) {
        const host::Tag& tag = shape.sdef->tags[static_cast<std::size_t>(shape.sdef->positions.at(tagName()))];
        fill(lua_gettop(m_state), {tag.type, tag.n, tag.sdef}, data + tag.offset);
      }
    } else if (shape.type == ZEL_TYP_OBJREF) {
      m_objects.push_back(objectAt(m_state, index)->hvid);
      store(data, m_objects.back());
    } else if (shape.type == ZEL_TYP_DOUBLE) {
      store(data, static_cast<double>(lua_tonumber(m_state, index)));
    } else {
      const bool boolean = lua_isboolean(m_state, index);
      store<std::int64_t>(data, boolean ? lua_toboolean(m_state, index) : lua_tointeger(m_state, index));
    }
  }

  template <typename T>
  static void store(char* data, T value) noexcept {
    std::memcpy(data, &value, sizeof value);
  }

  lua_State* m_state;
  const std::string& m_what;
  std::int64_t m_nested = 0;
  std::vector<ZEL_HVID> m_objects;
};

int undefinedToString(lua_State* L) {
  lua_pushliteral(L, "zel.undefined");
  return 1;
}

} // namespace

std::vector<ZEL_HVID> readValue(lua_State* L, int index, ZEL_Variable& out, const std::string& what) {
  const auto stack = restoreStack(L);
  const auto pause = pauseCollector(L); // a finalizer could change the tables while they are read
  Reader reader(L, what);
  reader.read(lua_absindex(L, index), out);
  return reader.objects();
}

void pushUndefined(lua_State* L) {
  if (lua_rawgetp(L, LUA_REGISTRYINDEX, &undefinedKey) == LUA_TUSERDATA) return;
  lua_pop(L, 1);
  lua_newuserdatauv(L, 0, 0);
  lua_createtable(L, 0, 1);
  lua_pushcfunction(L, undefinedToString);
  lua_setfield(L, -2, "__tostring");
  lua_setmetatable(L, -2);
  lua_pushvalue(L, -1);
  lua_rawsetp(L, LUA_REGISTRYINDEX, &undefinedKey);
}

} // namespace zel::lua

#include "frontend/calls.h"

#include "frontend/interpreter.h"
#include "frontend/kept.h"
#include "frontend/objects.h"
#include "frontend/values.h"
#include "host/messages.h"
#include "host/strings.h"
#include "host/variables.h"

#include <cstring>
#include <deque>
#include <vector>

namespace zel::lua {

namespace {

/// The arguments of one call, made of the stack from `self` to `last`.
class Arguments {
public:
  Arguments(lua_State* L, const host::Routine& routine, int self) : m_state(L), m_routine(routine), m_self(self) {
    ZEL_Variable& object = newVariable();
    object.type = ZEL_TYP_OBJREF;
    object.value.hvid = objectAt(L, self)->hvid;
    m_argv.push_back(&object);
  }

  void addPositional(int index) {
    ZEL_Variable& value = newVariable();
    const std::string what = m_routine.name + ": argument " + std::to_string(m_argv.size());
    readValue(m_state, index, value, what);
    m_argv.push_back(&value);
  }

  void addKeywords(int table) {
    const auto stack = restoreStack(m_state);
    luaL_checkstack(m_state, 8, nullptr);
    for (lua_pushnil(m_state); lua_next(m_state, table) != 0; lua_pop(m_state, 1)) {
      const int value = lua_gettop(m_state);
      if (lua_type(m_state, value - 1) == LUA_TSTRING)
        addInput(keywordName(value - 1), value);
      else if (lua_isinteger(m_state, value - 1) != 0 && lua_type(m_state, value) == LUA_TSTRING)
        addKeyword(keywordName(value), true);
      else
        host::raise(m_routine.name + ": the table of keywords holds a " + luaL_typename(m_state, value) +
                    " without a keyword; only names of output keywords can be listed.");
    }
  }

  Temp call() {
    Interpreter& interpreter = Interpreter::of(m_state);
    interpreter.failedObject = objectAt(m_state, m_self)->hvid;
    std::vector<ZEL_Keyword> keywords;
    for (Keyword& keyword : m_keywords) keywords.push_back({keyword.name.c_str(), keyword.value, keyword.output});
    Temp result;
    {
      const auto calling = Interpreter::calling(m_state);
      const auto use = useObject(*objectAt(m_state, m_self));
      result = host::callRoutine(m_routine, static_cast<int>(m_argv.size()), m_argv.data(),
                                 {static_cast<int>(keywords.size()), keywords.data()});
    }
    for (const Keyword& keyword : m_keywords)
      if (!keyword.output) releaseKept(m_state, m_self, keyword.name, keyword.kept);
    interpreter.collectObjects(m_state);
    interpreter.failedObject = 0;
    return result;
  }

  /// Pushes the table of outputs. \return the number of values pushed: none when no output was asked for.
  int pushOutputs() {
    int outputs = 0;
    for (Keyword& keyword : m_keywords) {
      if (!keyword.output) continue;
      if (outputs++ == 0) lua_newtable(m_state);
      const bool text = keyword.value->type == ZEL_TYP_STRING && (keyword.value->flags & ZEL_V_ARR) == 0;
      if (!text || !pushFunction(m_state, std::string(host::text(keyword.value->value.str))))
        pushValue(m_state, *keyword.value);
      lua_setfield(m_state, -2, keyword.name.c_str());
    }
    return outputs > 0 ? 1 : 0;
  }

private:
  struct Keyword {
    std::string name;
    ZEL_Variable* value;
    bool output;
    Kept kept;
  };

  std::string keywordName(int index) const {
    std::size_t length = 0;
    const char* name = lua_tolstring(m_state, index, &length);
    if (std::memchr(name, '\0', length) != nullptr)
      host::raise(m_routine.name + ": a keyword cannot have a zero byte.");
    return host::upper(name);
  }

  ZEL_Variable& newVariable() { return *m_variables.emplace_back(); }

  Keyword& addKeyword(std::string name, bool output) {
    return m_keywords.emplace_back(Keyword{std::move(name), &newVariable(), output, {}});
  }

  void addInput(std::string name, int value) {
    Keyword& keyword = addKeyword(std::move(name), false);
    if (lua_isfunction(m_state, value) && keyword.name.ends_with("FUNCTION")) {
      keyword.kept.function = keepFunction(m_state, m_self, value, keyword.name);
      ZEL_VarCopy(host::makeTempString(keyword.kept.function), keyword.value);
    } else {
      keyword.kept.objects = readValue(m_state, value, *keyword.value, m_routine.name + ": keyword " + keyword.name);
      keepObjects(m_state, m_self, keyword.name, keyword.kept.objects);
    }
  }

  lua_State* m_state;
  const host::Routine& m_routine;
  int m_self;
  std::deque<host::Variable> m_variables; // stay where they are while more come
  std::vector<ZEL_Variable*> m_argv;
  std::vector<Keyword> m_keywords;
};

/// How a script spells the method that runs.
std::string spelling(lua_State* L, const host::Routine& routine) {
  lua_Debug call{};
  if (lua_getstack(L, 0, &call) != 0 && lua_getinfo(L, "n", &call) != 0 && call.name != nullptr &&
      routine.name.ends_with("::" + host::upper(call.name)))
    return call.name;
  return routine.name.substr(routine.name.rfind(':') + 1);
}

/// Refuses arguments of a method that takes keywords only: the table around them is missing.
void checkPositional(lua_State* L, const host::Routine& routine, int last) {
  if (!routine.takesKeywords || routine.argMax > 1 || lua_type(L, 2) != LUA_TSTRING) return;
  const std::string method = spelling(L, routine);
  std::string table;
  if (host::upper(method).starts_with("SET")) {
    table = std::string(lua_tostring(L, 2)) + " = value";
  } else {
    for (int i = 2; i <= last && lua_type(L, i) == LUA_TSTRING; ++i)
      table += (i > 2 ? ", \"" : "\"") + std::string(lua_tostring(L, i)) + '"';
  }
  host::raise(routine.name + ": names are given in a table: object:" + method + '{' + table + "}.");
}

/// A method called by a script; upvalue 1 is its routine.
int runMethod(lua_State* L) {
  const auto& routine = *static_cast<const host::Routine*>(lua_touserdata(L, lua_upvalueindex(1)));
  return protect(L, [L, &routine] {
    const Object* object = objectAt(L, 1);
    if (object == nullptr) host::raise(routine.name + ": a method is called with its object: object:method(...).");
    if (object->closed) host::raise(routine.name + ": the object is closed.");
    const int last = lua_gettop(L);
    const bool keywords = last > 1 && lua_istable(L, last);
    checkPositional(L, routine, last);
    Arguments arguments(L, routine, 1);
    for (int i = 2; i <= last - (keywords ? 1 : 0); ++i) arguments.addPositional(i);
    if (keywords) arguments.addKeywords(last);

    Temp result = arguments.call();
    if (!result) return arguments.pushOutputs();
    pushValue(L, *result);
    result.reset();
    return 1 + arguments.pushOutputs();
  });
}

} // namespace

void pushRoutine(lua_State* L, const host::Routine& routine) {
  lua_pushlightuserdata(L, const_cast<host::Routine*>(&routine));
  lua_pushcclosure(L, runMethod, 1);
}

Temp callMethod(lua_State* L, const host::Routine& routine, int self, int keywords) {
  Arguments arguments(L, routine, self);
  if (lua_istable(L, keywords)) arguments.addKeywords(keywords);
  return arguments.call();
}

} // namespace zel::lua

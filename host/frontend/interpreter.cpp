#include "frontend/interpreter.h"

#include "frontend/kept.h"
#include "frontend/library.h"
#include "frontend/stop.h"
#include "frontend/values.h"
#include "host/heap.h"
#include "host/messages.h"

#include <algorithm>
#include <new>
#include <utility>

namespace zel::lua {

namespace {

/// Registry key of the error value that a script raised below a routine.
const char errorKey = 0;

/// Below this many bytes of objects the collector is not run for their sake.
constexpr std::int64_t manyBytes = std::int64_t{32} << 20;

struct ScriptCall {
  const std::string& routine;
  int argc;
  ZEL_Variable** argv;
  bool found = false;
  std::string wrong; ///< what is wrong with the result
};

/// Whether a routine's result can be stored; nothing counts as 1.
bool isAnswer(lua_State* L, int index) {
  const int type = lua_type(L, index);
  return type == LUA_TNIL || type == LUA_TBOOLEAN || type == LUA_TNUMBER;
}

/// Where the function on top of the stack is defined, "file:line"; pops it.
std::string popPlace(lua_State* L) {
  lua_Debug function{};
  lua_getinfo(L, ">S", &function);
  return function.short_src + (':' + std::to_string(function.linedefined));
}

/// Calls the routine of a ScriptCall and leaves its first result, or nothing.
int runScriptCall(lua_State* L) {
  auto& call = *static_cast<ScriptCall*>(lua_touserdata(L, 1));
  lua_settop(L, 0);
  return protect(L, [L, &call] {
    if (!pushFunction(L, call.routine)) lua_getglobal(L, call.routine.c_str());
    call.found = lua_isfunction(L, -1);
    if (!call.found) return 0;
    lua_pushvalue(L, -1);
    for (int i = 0; i < call.argc; ++i) pushValue(L, *call.argv[i]);
    lua_call(L, call.argc, 1);
    if (isAnswer(L, -1)) return 1;
    call.wrong = std::string("returned a ") + luaL_typename(L, -1) + ", not a number or a boolean.";
    lua_pushvalue(L, 1);
    call.wrong = "The function at " + popPlace(L) + ' ' + call.wrong;
    return 0;
  });
}

/// Stores what a script routine returned; runs outside of any Lua protection and calls nothing that raises there.
void storeResult(lua_State* L, ZEL_Variable* result) {
  std::int64_t integer = 1;
  int exact = 1;
  if (lua_isboolean(L, -1))
    integer = lua_toboolean(L, -1);
  else if (!lua_isnil(L, -1))
    integer = lua_tointegerx(L, -1, &exact);
  if (exact == 0) {
    const double number = lua_tonumber(L, -1);
    return ZEL_StoreScalar(result, ZEL_TYP_DOUBLE, &number);
  }
  ZEL_StoreScalar(result, ZEL_TYP_LONG64, &integer);
}

int prepare(lua_State* L) {
  luaL_openlibs(L);
  lua_pushboolean(L, 0);
  lua_rawsetp(L, LUA_REGISTRYINDEX, &errorKey);
  openLibrary(L);
  openStop(L);
  return 0;
}

} // namespace

void pushError(lua_State* L, const char* text) {
  luaL_where(L, 1);
  lua_pushstring(L, text);
  lua_concat(L, 2);
}

void pushHostError(lua_State* L) {
  const host::Error error = host::takeError();
  if (!error.fromScript) return pushError(L, error.text.c_str());
  lua_rawgetp(L, LUA_REGISTRYINDEX, &errorKey);
  lua_pushboolean(L, 0);
  lua_rawsetp(L, LUA_REGISTRYINDEX, &errorKey);
}

Interpreter::Interpreter() : m_main(luaL_newstate()), m_current(m_main) {
  if (m_main == nullptr) throw std::bad_alloc();
  *static_cast<Interpreter**>(lua_getextraspace(m_main)) = this;
  setCurrent(m_main);
  lua_pushcfunction(m_main, prepare);
  if (lua_pcall(m_main, 0, 0, 0) != LUA_OK) throw std::bad_alloc();
  host::setFrontEnd(this);
}

Interpreter::~Interpreter() {
  lua_close(m_main);
  host::setFrontEnd(nullptr);
  setInterruptible(nullptr, nullptr);
}

Interpreter& Interpreter::of(lua_State* L) noexcept { return **static_cast<Interpreter**>(lua_getextraspace(L)); }

void Interpreter::callScript(const std::string& routine, int argc, ZEL_Variable** argv, ZEL_Variable* result) {
  lua_State* L = m_current;
  if (lua_checkstack(L, 4) == 0) host::raise("There is no room to call routine " + routine + '.');
  const auto stack = restoreStack(L);
  ScriptCall call{routine, argc, argv, false, {}};
  lua_pushcfunction(L, runScriptCall);
  lua_pushlightuserdata(L, &call);
  const int status = lua_pcall(L, 1, 1, 0);
  if (exitAsked) host::raise(host::Error{"exit", true});
  if (status != LUA_OK) {
    const std::string text = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : "error in routine " + routine;
    lua_rawsetp(L, LUA_REGISTRYINDEX, &errorKey);
    host::raise(host::Error{text, true});
  }
  if (!call.found) host::raise("There is no global function \"" + routine + "\" to call.");
  if (result != nullptr && !call.wrong.empty()) host::raise(call.wrong);
  if (result != nullptr) storeResult(L, result);
}

void Interpreter::collectObjects(lua_State* L) {
  if (host::objectMemory() < std::max(m_collectAt, manyBytes) || lua_gc(L, LUA_GCISRUNNING) == 0) return;
  lua_gc(L, LUA_GCCOLLECT);
  m_collectAt = 2 * host::objectMemory();
}

lua_State* Interpreter::setCurrent(lua_State* L) noexcept {
  setInterruptible(m_main, L);
  return std::exchange(m_current, L);
}

} // namespace zel::lua

#include "frontend/stop.h"

#include "frontend/interpreter.h"
#include "host/routines.h"

#include <atomic>
#include <cstdlib>

namespace zel::lua {

namespace {

std::atomic<lua_State*> g_states[2];

/// What Ctrl-C has done to the script that runs.
struct {
  int raised = 0;         ///< how often it raised an error
  bool unwinding = false; ///< it raises one at every step, so that no pcall can stop it
} g_interrupt;

constexpr int everyStep = LUA_MASKCALL | LUA_MASKRET | LUA_MASKLINE | LUA_MASKCOUNT;

void hook(lua_State* L, lua_Debug*);

void hookScripts() noexcept {
  for (const auto& state : g_states)
    if (lua_State* L = state.load()) lua_sethook(L, hook, everyStep, 1);
}

void handleSignal(int) {
  host::requestInterrupt();
  hookScripts();
}

/// Lets the next Ctrl-C stop the script, and one that comes before the script has reacted end the process.
void arm() noexcept {
  struct sigaction action {};
  action.sa_handler = handleSignal;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
}

void raiseInterrupt(lua_State* L) {
  g_interrupt.unwinding = ++g_interrupt.raised > 1;
  if (g_interrupt.unwinding)
    hookScripts();
  else
    arm();
  luaL_error(L, "interrupted!");
}

/// Raises in the script what stops it. An exit that is due and a second interrupt are raised in every step.
void hook(lua_State* L, lua_Debug*) {
  if (Interpreter::of(L).exitAsked) luaL_error(L, "exit");
  if (g_interrupt.unwinding) luaL_error(L, "interrupted!");
  lua_sethook(L, nullptr, 0, 0);
  if (host::takeInterrupt()) raiseInterrupt(L);
}

/// Calls the library's own function, upvalue 1, with all arguments. \return the number of results.
int callOwn(lua_State* L, int results) {
  lua_pushvalue(L, lua_upvalueindex(1));
  lua_insert(L, 1);
  lua_call(L, lua_gettop(L) - 1, results);
  return lua_gettop(L);
}

/// os.exit([code [, close]]); upvalue 1 is the library's own.
int exitScript(lua_State* L) {
  if (host::routineDepth() == 0) return callOwn(L, 0);
  int code = EXIT_SUCCESS;
  if (lua_isboolean(L, 1))
    code = lua_toboolean(L, 1) != 0 ? EXIT_SUCCESS : EXIT_FAILURE;
  else
    code = static_cast<int>(luaL_optinteger(L, 1, EXIT_SUCCESS));
  Interpreter::of(L).exitAsked = Interpreter::Exit{code, lua_toboolean(L, 2) != 0};
  for (lua_State* running : {L, Interpreter::of(L).state()}) lua_sethook(running, hook, everyStep, 1);
  return luaL_error(L, "exit");
}

/// The coroutine that a call of resumeCoroutine() runs, null for an invalid call.
lua_State* coroutineToRun(lua_State* L) {
  if (lua_getupvalue(L, lua_upvalueindex(1), 1) == nullptr) return lua_tothread(L, 1); // coroutine.resume()
  lua_State* wrapped = lua_tothread(L, -1);
  lua_pop(L, 1);
  return wrapped;
}

/// coroutine.resume(co, ...), and what coroutine.wrap() returned; upvalue 1 is the library's own. An exit
/// that was asked for in the coroutine continues in the one that resumed it, whatever catches the error; so does a
/// second interrupt.
int resumeCoroutine(lua_State* L) {
  const AtEnd resumer([L, outer = g_states[1].load()] {
    g_states[1] = outer;
    if (Interpreter::of(L).exitAsked || g_interrupt.unwinding) lua_sethook(L, hook, everyStep, 1);
  });
  if (lua_State* running = coroutineToRun(L)) g_states[1] = running;
  return callOwn(L, LUA_MULTRET);
}

/// coroutine.wrap(f); upvalue 1 is the library's own.
int wrapCoroutine(lua_State* L) {
  callOwn(L, 1);
  lua_pushcclosure(L, resumeCoroutine, 1);
  return 1;
}

/// Replaces a function of a library by one that has it as its upvalue.
void replace(lua_State* L, const char* library, const char* name, lua_CFunction function) {
  lua_getglobal(L, library);
  lua_getfield(L, -1, name);
  lua_pushcclosure(L, function, 1);
  lua_setfield(L, -2, name);
  lua_pop(L, 1);
}

} // namespace

void raisePendingStop(lua_State* L) {
  if (host::routineDepth() > 0) return;
  Interpreter& interpreter = Interpreter::of(L);
  if (interpreter.exitAsked) {
    const auto [code, close] = *interpreter.exitAsked;
    interpreter.exitAsked.reset();
    lua_sethook(interpreter.state(), nullptr, 0, 0);
    if (close) lua_close(interpreter.state());
    std::exit(code);
  }
  if (ZEL_InterpInterrupted() != 0 && host::takeInterrupt()) raiseInterrupt(L);
}

void openStop(lua_State* L) {
  replace(L, LUA_OSLIBNAME, "exit", exitScript);
  replace(L, LUA_COLIBNAME, "resume", resumeCoroutine);
  replace(L, LUA_COLIBNAME, "wrap", wrapCoroutine);
}

void setInterruptible(lua_State* main, lua_State* current) noexcept {
  g_states[0] = main;
  g_states[1] = current;
}

Interruptible::Interruptible() noexcept {
  sigaction(SIGINT, nullptr, &m_outer);
  if (m_outer.sa_handler != SIG_IGN) arm(); // NOLINT: a macro of the system
}

Interruptible::~Interruptible() {
  sigaction(SIGINT, &m_outer, nullptr);
  host::takeInterrupt();
  g_interrupt = {};
  for (const auto& state : g_states)
    if (lua_State* L = state.load(); L != nullptr && lua_gethook(L) == hook) lua_sethook(L, nullptr, 0, 0);
}

} // namespace zel::lua

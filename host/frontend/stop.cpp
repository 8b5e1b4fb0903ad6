#include "frontend/stop.h"

#include "frontend/interpreter.h"

#include "host/routines.h"

#include <atomic>
#include <csignal>
#include <cstdlib>

namespace zel::lua {

namespace {

std::atomic<lua_State*> g_states[2];

void arm(void (*handler)(int), int flags) noexcept {
  struct sigaction now {};
  if (sigaction(SIGINT, nullptr, &now) == 0 && now.sa_handler == SIG_IGN) return; // NOLINT: a macro of the system
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
}

void handleSignal(int);

void raiseInterrupt(lua_State* L) {
  arm(handleSignal, static_cast<int>(SA_RESETHAND));
  luaL_error(L, "interrupted!");
}

constexpr int kEverywhere = LUA_MASKCALL | LUA_MASKRET | LUA_MASKLINE | LUA_MASKCOUNT;

/// Raises in the script what stops it. While an exit is due it does so again and again: no pcall ends it.
void hook(lua_State* L, lua_Debug*) {
  if (Interpreter::of(L).exitAsked) luaL_error(L, "exit");
  lua_sethook(L, nullptr, 0, 0);
  if (host::takeInterrupt()) raiseInterrupt(L);
}

void handleSignal(int) {
  host::requestInterrupt();
  for (const auto& state : g_states)
    if (lua_State* L = state.load()) lua_sethook(L, hook, kEverywhere, 1);
}

/// os.exit([code [, close]]); upvalue 1 is the library's own.
int exitScript(lua_State* L) {
  if (host::routineDepth() == 0) {
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, lua_gettop(L) - 1, 0);
    return 0;
  }
  int code = EXIT_SUCCESS;
  if (lua_isboolean(L, 1))
    code = lua_toboolean(L, 1) ? EXIT_SUCCESS : EXIT_FAILURE;
  else
    code = static_cast<int>(luaL_optinteger(L, 1, EXIT_SUCCESS));
  Interpreter::of(L).exitAsked = Interpreter::Exit{code, lua_toboolean(L, 2) != 0};
  for (lua_State* running : {L, Interpreter::of(L).state()}) lua_sethook(running, hook, kEverywhere, 1);
  return luaL_error(L, "exit");
}

/// coroutine.resume(co, ...), and what coroutine.wrap() returned; upvalue 1 is the library's own. An exit that was
/// asked for in the coroutine goes on in the one that runs it, whatever catches the error.
int resumeCoroutine(lua_State* L) {
  const struct Resumer {
    lua_State* state;
    ~Resumer() {
      if (Interpreter::of(state).exitAsked) lua_sethook(state, hook, kEverywhere, 1);
    }
  } resumer{L};
  lua_pushvalue(L, lua_upvalueindex(1));
  lua_insert(L, 1);
  lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
  return lua_gettop(L);
}

/// coroutine.wrap(f); upvalue 1 is the library's own.
int wrapCoroutine(lua_State* L) {
  lua_pushvalue(L, lua_upvalueindex(1));
  lua_insert(L, 1);
  lua_call(L, lua_gettop(L) - 1, 1);
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

void settle(lua_State* L) {
  if (host::routineDepth() > 0) return;
  Interpreter& interpreter = Interpreter::of(L);
  if (interpreter.exitAsked) {
    const auto [code, close] = *interpreter.exitAsked;
    interpreter.exitAsked.reset();
    lua_sethook(interpreter.state(), nullptr, 0, 0);
    if (close) lua_close(interpreter.state());
    std::exit(code);
  }
  if (ZEL_InterpInterrupted() && host::takeInterrupt()) raiseInterrupt(L);
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

InterruptGuard::InterruptGuard() noexcept { arm(handleSignal, static_cast<int>(SA_RESETHAND)); }

InterruptGuard::~InterruptGuard() {
  host::takeInterrupt();
  arm(SIG_DFL, 0);
}

} // namespace zel::lua

#include "frontend/prompt.h"

#include "frontend/completion.h"
#include "frontend/history.h"
#include "frontend/interpreter.h"
#include "frontend/objects.h"
#include "frontend/run.h"

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <poll.h>
#include <readline/readline.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace zel::lua {

namespace {

volatile std::sig_atomic_t g_interrupted = 0;

/// Reads one character for readline. Ctrl-C ends the line; it is looked for now and then, since it may come just before
/// the wait begins.
int readKey(FILE* in) {
  constexpr int waitMilliseconds = 200;
  for (;;) {
    rl_check_signals();
    if (g_interrupted != 0) {
      rl_replace_line("", 0);
      return '\n';
    }
    pollfd waiting{::fileno(in), POLLIN, 0};
    if (::poll(&waiting, 1, waitMilliseconds) <= 0) continue;
    unsigned char key = 0;
    const ssize_t got = ::read(waiting.fd, &key, 1);
    if (got == 1) return key;
    if (got == 0 || errno != EINTR) return EOF;
  }
}

enum class Input { text, dropped, end };

Input readLine(const char* prompt, std::string& line) {
  g_interrupted = 0;
  const std::unique_ptr<char, void (*)(void*)> typed(readline(prompt), rl_free);
  if (g_interrupted != 0) return Input::dropped;
  if (!typed) return Input::end;
  line = typed.get();
  return Input::text;
}

/// Whether loading failed only because the text stops too early.
bool isIncomplete(lua_State* L, int status) {
  return status == LUA_ERRSYNTAX && std::string_view(lua_tostring(L, -1)).ends_with("<eof>");
}

int load(lua_State* L, const std::string& text) { return luaL_loadbuffer(L, text.data(), text.size(), "=prompt"); }

/// Loads several pasted lines that end in an expression, and replaces the error on top of the stack if that succeeds.
int loadPasted(lua_State* L, const std::string& text, int status) {
  const std::size_t last = text.rfind('\n', text.find_last_not_of(" \t\n"));
  if (status == LUA_OK || last == std::string::npos) return status;
  if (load(L, text.substr(0, last + 1) + "return " + text.substr(last + 1)) == LUA_OK) {
    lua_remove(L, -2);
    return LUA_OK;
  }
  lua_pop(L, 1);
  return status;
}

/// Loads one statement or expression, reading more lines while it is incomplete; pushes the chunk or the error.
Input loadStatement(lua_State* L, std::string& text, int& status) {
  Completion::setAbove("");
  if (const Input first = readLine("> ", text); first != Input::text) return first;
  if ((status = load(L, "return " + text)) == LUA_OK) return Input::text;
  lua_pop(L, 1);
  status = load(L, text);
  while (isIncomplete(L, status)) {
    Completion::setAbove(text + '\n');
    std::string more;
    const Input next = readLine(">> ", more);
    if (next == Input::dropped) return next;
    if (next == Input::end) break;
    text += '\n' + more;
    lua_pop(L, 1);
    status = load(L, text);
  }
  status = loadPasted(L, text, status);
  return Input::text;
}

bool usesColours(int fd) {
  const char* terminal = std::getenv("TERM");
  const char* refused = std::getenv("NO_COLOR");
  return ::isatty(fd) != 0 && terminal != nullptr && std::string_view(terminal) != "dumb" &&
         (refused == nullptr || *refused == 0);
}

/// Is a line of a traceback about none of the user's functions: the statement itself, C, or the library's modules?
bool isPlainCall(std::string_view line) {
  return line.starts_with("[C]") || line.starts_with("(...") || line.starts_with("prompt:1: in main chunk") ||
         line.find("lua/zel/") != std::string_view::npos;
}

/// An error, without its traceback if that shows none of the user's functions.
std::string_view withoutPlainTraceback(std::string_view text) {
  const std::size_t traceback = text.find("\nstack traceback:");
  if (traceback == std::string_view::npos) return text;
  for (std::size_t line = text.find("\n\t", traceback); line != std::string_view::npos;) {
    const std::size_t next = text.find("\n\t", line + 2);
    if (!isPlainCall(text.substr(line + 2, next - line - 2))) return text;
    line = next;
  }
  return text.substr(0, traceback);
}

/// The loop of the prompt. It keeps what it needs of Lua from the start, since scripts may change every global.
class Session {
public:
  /// Takes the table of the module zel.prompt from the stack.
  explicit Session(lua_State* L) : m_state(L), m_module(luaL_ref(L, LUA_REGISTRYINDEX)) {}

  void run() {
    std::string text;
    int status = LUA_OK;
    for (Input input{}; (input = loadStatement(m_state, text, status)) != Input::end; lua_settop(m_state, 0)) {
      if (input == Input::dropped) continue;
      m_history.add(text);
      if (!runStatement(text, status)) return;
    }
    std::cout << std::endl;
  }

private:
  /// Runs the statement that was loaded. \return whether the prompt continues.
  bool runStatement(const std::string& text, int status) {
    const int translated = translate(text);
    if (translated == LUA_TBOOLEAN) return false;
    const std::string code = translated == LUA_TSTRING ? lua_tostring(m_state, -1) : "";
    lua_pop(m_state, 1);
    if (translated == LUA_TSTRING) {
      lua_settop(m_state, 0);
      status = load(m_state, code);
    }
    if (status != LUA_OK || !callChunk(m_state, 0, LUA_MULTRET) || !show(text)) report();
    return true;
  }

  /// Pushes the code for a line that is meant for the prompt itself, false to leave, nil otherwise. \return its type.
  int translate(const std::string& text) {
    pushFunction("translate");
    lua_pushlstring(m_state, text.data(), text.size());
    return lua_pcall(m_state, 1, 1, 0) == LUA_OK ? lua_type(m_state, -1) : LUA_TNIL;
  }

  /// Shows the values that a statement left on the stack.
  bool show(const std::string& text) {
    const int results = lua_gettop(m_state);
    if (lua_checkstack(m_state, LUA_MINSTACK) == 0) {
      lua_settop(m_state, 0);
      lua_pushliteral(m_state, "too many results to show");
      return false;
    }
    pushFunction("show");
    lua_insert(m_state, 1);
    lua_pushlstring(m_state, text.data(), text.size());
    lua_insert(m_state, 2);
    return callChunk(m_state, results + 1, 0);
  }

  void pushFunction(const char* name) {
    lua_rawgeti(m_state, LUA_REGISTRYINDEX, m_module);
    lua_pushstring(m_state, name);
    lua_rawget(m_state, -2);
    lua_remove(m_state, -2);
  }

  void report() {
    const char* text = lua_tostring(m_state, -1);
    std::cout.flush();
    std::cerr << (m_colours ? "\33[31mzel:\33[0m " : "zel: ") +
                     std::string(withoutPlainTraceback(text != nullptr ? text : "(error without a text)")) + '\n';
    explain();
  }

  /// Adds the server's reason for refusing the failed request; the error is on top of the stack.
  void explain() {
    const ZEL_HVID failed = std::exchange(Interpreter::of(m_state).failedObject, 0);
    if (failed == 0 || lua_checkstack(m_state, LUA_MINSTACK) == 0) return;
    const int error = lua_gettop(m_state);
    pushFunction("explain");
    lua_pushvalue(m_state, error);
    pushObject(m_state, failed);
    lua_pcall(m_state, 2, 0, 0);
  }

  lua_State* m_state;
  int m_module;
  bool m_colours = usesColours(STDERR_FILENO);
  History m_history;
};

} // namespace

bool runPrompt(lua_State* L) {
  std::setlocale(LC_CTYPE, ""); // line editing in the terminal's encoding
  rl_readline_name = "zel";
  rl_getc_function = readKey;
  lua_settop(L, 0);
  if (luaL_dostring(L, "return require 'zel.prompt'") != LUA_OK) {
    reportError(L);
    return false;
  }
  std::cout << "zel " ZEL_VERSION "  zel.help() lists what there is, Ctrl-D ends." << std::endl;
  lua_settop(L, 1);
  // Ctrl-C drops what is typed. A running statement has another handler.
  const AtEnd interrupts([outer = std::signal(SIGINT, [](int) { g_interrupted = 1; })] { std::signal(SIGINT, outer); });
  const Completion completion(L);
  Session(L).run();
  return true;
}

} // namespace zel::lua

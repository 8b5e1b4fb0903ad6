#include "frontend/prompt.h"

#include "frontend/run.h"

#include "host/directories.h"

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <poll.h>
#include <readline/history.h>
#include <readline/readline.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace zel::lua {

namespace {

constexpr int kHistoryLines = 1000;

volatile std::sig_atomic_t g_dropLine = 0;

/// Reads one character for readline. Ctrl-C drops the line and accepts the empty one; it is looked for now and then,
/// since it may come just before the wait begins.
int readKey(FILE* in) {
  constexpr int kWaitMilliseconds = 200;
  for (;;) {
    rl_check_signals();
    if (g_dropLine) {
      rl_replace_line("", 0);
      return '\n';
    }
    pollfd waiting{::fileno(in), POLLIN, 0};
    if (::poll(&waiting, 1, kWaitMilliseconds) <= 0) continue;
    unsigned char key = 0;
    const ssize_t got = ::read(waiting.fd, &key, 1);
    if (got == 1) return key;
    if (got == 0 || errno != EINTR) return EOF;
  }
}

/// The lines of earlier sessions. Without a place to keep them they are forgotten at the end.
class History {
public:
  History() {
    const fs::path root = host::userRoot();
    if (root.empty()) return;
    std::error_code failed;
    fs::create_directories(root, failed);
    m_file = root / "history";
    read_history(m_file.c_str());
    stifle_history(kHistoryLines);
  }
  ~History() {
    if (m_file.empty() || write_history(m_file.c_str()) != 0) return;
    ::chmod(m_file.c_str(), S_IRUSR | S_IWUSR);
  }
  History(const History&) = delete;
  History& operator=(const History&) = delete;

  static void add(const std::string& line) {
    if (!line.empty()) add_history(line.c_str());
  }

private:
  fs::path m_file;
};

/// One line; nothing at the end of input.
std::optional<std::string> readLine(const char* prompt) {
  for (;;) {
    g_dropLine = 0;
    const auto outer = std::signal(SIGINT, [](int) { g_dropLine = 1; });
    const std::unique_ptr<char, void (*)(void*)> line(readline(prompt), rl_free);
    std::signal(SIGINT, outer);
    if (g_dropLine) continue;
    if (!line) return std::nullopt;
    return std::string(line.get());
  }
}

/// Completes names, as the Lua module zel.complete tells. What goes wrong there must not reach readline: nothing is
/// offered then.
class Completion {
public:
  explicit Completion(lua_State* L) {
    s_state = L;
    rl_attempted_completion_function = offer;
    rl_completer_word_break_characters = kNoWord;
  }
  ~Completion() {
    rl_attempted_completion_function = nullptr;
    s_state = nullptr;
  }
  Completion(const Completion&) = delete;
  Completion& operator=(const Completion&) = delete;

  /// Sets the lines of the statement above the one that is edited.
  static void setAbove(const std::string& lines) { s_above = lines; }

private:
  static constexpr const char* kNoWord = " \t\n\"'`!#$%&()*+,-./:;<=>?@[\\]^{|}~";

  static char** offer(const char* word, int start, int) {
    rl_attempted_completion_over = 1;
    rl_completion_append_character = '\0';
    s_names.clear();
    s_before = s_above + std::string(rl_line_buffer, static_cast<std::size_t>(start));
    s_word = word;
    const StackGuard guard(s_state);
    lua_pushcfunction(s_state, collect);
    if (lua_pcall(s_state, 0, 0, 0) != LUA_OK || s_names.empty()) return nullptr;
    return rl_completion_matches(word, next);
  }

  static int collect(lua_State* L) {
    lua_getglobal(L, "require");
    lua_pushliteral(L, "zel.complete");
    lua_call(L, 1, 1);
    lua_pushlstring(L, s_before.data(), s_before.size());
    lua_pushlstring(L, s_word.data(), s_word.size());
    lua_call(L, 2, 1);
    for (lua_Integer i = 1; lua_rawgeti(L, -1, i) == LUA_TSTRING; ++i, lua_pop(L, 1))
      s_names.emplace_back(lua_tostring(L, -1));
    return 0;
  }

  /// The matches one after the other, in memory that readline frees.
  static char* next(const char*, int state) {
    if (state == 0) s_next = 0;
    return s_next < s_names.size() ? ::strdup(s_names[s_next++].c_str()) : nullptr;
  }

  static inline lua_State* s_state = nullptr;
  static inline std::string s_above, s_before, s_word;
  static inline std::vector<std::string> s_names;
  static inline std::size_t s_next = 0;
};

/// Whether loading failed only because the text stops too early.
bool isIncomplete(lua_State* L, int status) {
  if (status != LUA_ERRSYNTAX) return false;
  return std::string_view(lua_tostring(L, -1)).ends_with("<eof>");
}

int load(lua_State* L, const std::string& text) { return luaL_loadbuffer(L, text.data(), text.size(), "=prompt"); }

/// Loads one statement or expression, reading on while it is incomplete. \return status of loading, nothing at the end
/// of input.
std::optional<int> loadStatement(lua_State* L) {
  Completion::setAbove("");
  auto text = readLine("> ");
  if (!text) return std::nullopt;
  if (load(L, "return " + *text) == LUA_OK) {
    History::add(*text);
    return LUA_OK;
  }
  lua_pop(L, 1);
  int status = load(L, *text);
  while (isIncomplete(L, status)) {
    Completion::setAbove(*text + '\n');
    const auto more = readLine(">> ");
    if (!more) break;
    *text += '\n' + *more;
    lua_pop(L, 1);
    status = load(L, *text);
  }
  History::add(*text);
  return status;
}

bool printResults(lua_State* L) {
  const int results = lua_gettop(L);
  if (results == 0) return true;
  luaL_checkstack(L, LUA_MINSTACK, "too many results to print");
  lua_getglobal(L, "print");
  lua_insert(L, 1);
  return callChunk(L, results, 0);
}

} // namespace

void runPrompt(lua_State* L) {
  std::setlocale(LC_CTYPE, ""); // line editing in the terminal's encoding
  rl_readline_name = "zel";
  rl_getc_function = readKey;
  const History history;
  const Completion completion(L);
  lua_settop(L, 0);
  while (const auto status = loadStatement(L)) {
    if (*status != LUA_OK || !callChunk(L, 0, LUA_MULTRET) || !printResults(L)) reportError(L);
    lua_settop(L, 0);
  }
  std::cout << std::endl;
}

} // namespace zel::lua

#include "frontend/completion.h"

#include <cstdio>
#include <cstring>
#include <readline/readline.h>
#include <vector>

namespace zel::lua {

namespace {

constexpr const char* wordBreaks = " \t\n\"'`!#$%&()*+,-./:;<=>?@[\\]^{|}~";

/// Registry key of the function that gives the names.
const char namesKey = 0;

struct {
  lua_State* state = nullptr;
  std::string above, before, word;
  std::vector<std::string> names;
  std::size_t next = 0;
} g_request;

int loadNames(lua_State* L) {
  lua_getglobal(L, "require");
  lua_pushliteral(L, "zel.complete");
  lua_call(L, 1, 1);
  lua_rawsetp(L, LUA_REGISTRYINDEX, &namesKey);
  return 0;
}

int collectNames(lua_State* L) {
  lua_rawgetp(L, LUA_REGISTRYINDEX, &namesKey);
  lua_pushlstring(L, g_request.before.data(), g_request.before.size());
  lua_pushlstring(L, g_request.word.data(), g_request.word.size());
  lua_call(L, 2, 1);
  for (lua_Integer i = 1; lua_rawgeti(L, -1, i) == LUA_TSTRING; ++i, lua_pop(L, 1))
    g_request.names.emplace_back(lua_tostring(L, -1));
  return 0;
}

/// The matches one after the other, in memory that readline frees.
char* nextMatch(const char*, int state) {
  if (state == 0) g_request.next = 0;
  return g_request.next < g_request.names.size() ? ::strdup(g_request.names[g_request.next++].c_str()) : nullptr;
}

char** offer(const char* word, int start, int) {
  rl_attempted_completion_over = 1;
  rl_completion_append_character = '\0';
  g_request.names.clear();
  g_request.before = g_request.above + std::string(rl_line_buffer, static_cast<std::size_t>(start));
  g_request.word = word;
  lua_State* L = g_request.state;
  const auto stack = restoreStack(L);
  const AtEnd hooks([L, hook = lua_gethook(L), mask = lua_gethookmask(L), count = lua_gethookcount(L)] {
    lua_sethook(L, hook, mask, count);
  });
  lua_sethook(L, nullptr, 0, 0);
  const auto collector = pauseCollector(L); // finalizers and hooks are scripts' code, too
  lua_pushcfunction(L, collectNames);
  if (lua_pcall(L, 0, 0, 0) != LUA_OK || g_request.names.empty()) return nullptr;
  return rl_completion_matches(word, nextMatch);
}

} // namespace

Completion::Completion(lua_State* L) {
  g_request.state = L;
  rl_attempted_completion_function = offer;
  rl_completer_word_break_characters = wordBreaks;
  const auto stack = restoreStack(L);
  lua_pushcfunction(L, loadNames);
  if (lua_pcall(L, 0, 0, 0) != LUA_OK) rl_attempted_completion_function = nullptr;
}

Completion::~Completion() { rl_attempted_completion_function = nullptr; }

void Completion::setAbove(const std::string& lines) { g_request.above = lines; }

} // namespace zel::lua

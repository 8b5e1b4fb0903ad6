#include "frontend/library.h"

#include "frontend/interpreter.h"
#include "frontend/objects.h"
#include "frontend/values.h"
#include "host/directories.h"
#include "host/heap.h"
#include "host/modules.h"
#include "host/routines.h"
#include "host/session.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <openssl/evp.h>
#include <span>
#include <sys/ioctl.h>
#include <thread>
#ifdef ZEL_MIMALLOC
#include <mimalloc.h>
#endif

namespace zel::lua {

namespace {

/// zel.load(name): loads a module.
int loadModule(lua_State* L) {
  const char* name = checkName(L, 1);
  return protect(L, [name] {
    host::loadModule(name);
    return 0;
  });
}

/// zel.reset(): resets the session.
int resetSession(lua_State* L) {
  return protect(L, [L] {
    const auto calling = Interpreter::calling(L);
    host::resetSession();
    return 0;
  });
}

/// zel.tags(structure): its tags in their order.
int tags(lua_State* L) {
  luaL_argexpected(L, pushHostTags(L, 1), 1, "structure that the host made");
  const auto n = static_cast<lua_Integer>(lua_rawlen(L, -1));
  lua_createtable(L, static_cast<int>(n), 0);
  for (lua_Integer i = 1; i <= n; ++i) {
    lua_rawgeti(L, -2, i);
    lua_rawseti(L, -2, i);
  }
  return 1;
}

/// zel.counts(): how many temporaries, heap variables and objects are alive, and how many temporaries modules left.
int counts(lua_State* L) {
  const auto heap = host::heapCounts();
  const struct {
    const char* name;
    std::int64_t count;
  } rows[] = {{"temporaries", ZEL_TempCount()},
              {"leaked", host::leakedTemporaries()},
              {"heap", heap.pointers},
              {"objects", heap.objects}};
  lua_createtable(L, 0, static_cast<int>(std::size(rows)));
  for (const auto& row : rows) {
    lua_pushinteger(L, row.count);
    lua_setfield(L, -2, row.name);
  }
  return 1;
}

/// zel.clock(): seconds on a clock that runs evenly, whatever the time of day is set to.
int clockSeconds(lua_State* L) {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  lua_pushnumber(L, std::chrono::duration<double>(now).count());
  return 1;
}

/// zel.sleep(seconds): waits, at most until Ctrl-C.
int sleep(lua_State* L) {
  using namespace std::chrono;
  const auto end = steady_clock::now() + duration<double>(luaL_checknumber(L, 1));
  while (ZEL_InterpInterrupted() == 0) {
    const duration<double> left = end - steady_clock::now();
    if (!(left > left.zero())) break;
    std::this_thread::sleep_for(std::min<duration<double>>(left, 50ms));
  }
  return 0;
}

/// zel.columns(file): the width and the height of the terminal that a file is open on; nil if it is no terminal. A
/// terminal that reports no size counts as 80 by 24.
int columns(lua_State* L) {
  const auto* stream = static_cast<luaL_Stream*>(luaL_checkudata(L, 1, LUA_FILEHANDLE));
  winsize size{};
  if ((stream->closef == nullptr) || ::ioctl(::fileno(stream->f), TIOCGWINSZ, &size) != 0) {
    luaL_pushfail(L);
    return 1;
  }
  lua_pushinteger(L, size.ws_col > 0 ? size.ws_col : 80);
  lua_pushinteger(L, size.ws_row > 0 ? size.ws_row : 24);
  return 2;
}

/// zel.is_file(path): true for a regular file, false for anything else that has that name, nil for nothing. Unlike
/// io.open, it never waits for the other end of a pipe.
int isFile(lua_State* L) {
  namespace fs = std::filesystem;
  std::error_code unreadable;
  const fs::file_status status = fs::status(luaL_checkstring(L, 1), unreadable);
  if (fs::exists(status))
    lua_pushboolean(L, static_cast<int>(fs::is_regular_file(status)));
  else
    luaL_pushfail(L);
  return 1;
}

/// zel.collect(): runs the collector and returns free memory to the system, which the allocator would otherwise keep.
int collect(lua_State* L) {
#ifdef ZEL_MIMALLOC
  // Without delay only now: as a rule it spares the system two calls for each block that is used again.
  const long delay = mi_option_get(mi_option_decommit_delay);
  mi_option_set(mi_option_decommit_delay, 0);
#endif
  lua_gc(L, LUA_GCCOLLECT);
#ifdef ZEL_MIMALLOC
  mi_collect(true);
  mi_option_set(mi_option_decommit_delay, delay);
#endif
  return 0;
}

/// zel.digest(text or open file): the SHA-256 of a text, or of what is left to read in a file, in hexadecimal digits.
int digest(lua_State* L) {
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
  bool done = context != nullptr && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
  if (lua_type(L, 1) == LUA_TSTRING) {
    std::size_t length = 0;
    const char* text = lua_tolstring(L, 1, &length);
    done = done && EVP_DigestUpdate(context.get(), text, length) == 1;
  } else {
    const auto* stream = static_cast<luaL_Stream*>(luaL_checkudata(L, 1, LUA_FILEHANDLE));
    luaL_argcheck(L, stream->closef != nullptr, 1, "the file is closed");
    std::array<char, 16384> part;
    while (const std::size_t size = std::fread(part.data(), 1, part.size(), stream->f))
      done = done && EVP_DigestUpdate(context.get(), part.data(), size) == 1;
    done = done && std::ferror(stream->f) == 0;
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes;
  unsigned int size = 0;
  if (!done || EVP_DigestFinal_ex(context.get(), bytes.data(), &size) != 1)
    return luaL_error(L, "the digest cannot be made");
  constexpr const char* digits = "0123456789abcdef";
  luaL_Buffer text;
  luaL_buffinit(L, &text);
  for (const unsigned byte : std::span(bytes).first(size))
    for (const unsigned half : {byte >> 4U, byte & 15U}) luaL_addchar(&text, digits[half]);
  luaL_pushresult(&text);
  return 1;
}

/// A function of the library that is written in Lua; its module is loaded on first use.
template <const char* module>
int callModule(lua_State* L) {
  lua_getglobal(L, "require");
  lua_pushstring(L, module);
  lua_call(L, 1, 1);
  lua_insert(L, 1);
  lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
  return lua_gettop(L);
}

constexpr char showModule[] = "zel.show";
constexpr char helpModule[] = "zel.help";
constexpr char refusalModule[] = "zel.ogc.refusal";

constexpr luaL_Reg libraryFunctions[] = {{"new", newObject},
                                         {"load", loadModule},
                                         {"reset", resetSession},
                                         {"tags", tags},
                                         {"counts", counts},
                                         {"clock", clockSeconds},
                                         {"sleep", sleep},
                                         {"columns", columns},
                                         {"is_file", isFile},
                                         {"digest", digest},
                                         {"collect", collect},
                                         {"methods", objectMethods},
                                         {"show", callModule<showModule>},
                                         {"help", callModule<helpModule>},
                                         {"refusal", callModule<refusalModule>},
                                         {nullptr, nullptr}};

/// Lets `require` find the Lua modules that come with the runner, before others of their names.
void addModules(lua_State* L) {
  luaL_getsubtable(L, LUA_REGISTRYINDEX, LUA_LOADED_TABLE);
  lua_getfield(L, -1, LUA_LOADLIBNAME);
  lua_pushstring(L, ((host::sharedDirectory() / "lua" / "?.lua").string() + ';').c_str());
  lua_getfield(L, -2, "path");
  lua_concat(L, 2);
  lua_setfield(L, -2, "path");
  lua_pop(L, 2);
}

int makeLibrary(lua_State* L) {
  luaL_newlib(L, libraryFunctions);
  lua_pushliteral(L, ZEL_VERSION);
  lua_setfield(L, -2, "version");
  pushUndefined(L);
  lua_setfield(L, -2, "undefined");
  return 1;
}

} // namespace

void openLibrary(lua_State* L) {
  openObjects(L);
  addModules(L);
  luaL_requiref(L, "zel", makeLibrary, 1);
  lua_pop(L, 1);
}

} // namespace zel::lua

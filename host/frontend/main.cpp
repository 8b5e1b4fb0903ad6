// The runner: scripts that drive modules, from a file, the command line or a prompt.
#include "frontend/interpreter.h"
#include "frontend/prompt.h"
#include "frontend/run.h"

#include "host/messages.h"
#include "host/modules.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

enum ExitCode { kDone = 0, kScriptError = 1, kBadUsage = 2 };

constexpr const char* kUsage = R"(Usage: zel [options] [script.lua [arguments]]

Runs a Lua script with the library `zel`. Without a script: a prompt, or what standard input holds.

  -m MODULE    load a module before the script runs (a name or a path)
  -e CODE      run this code; what follows are its arguments
  -            run standard input; what follows are its arguments
  --version    print the version
  --help       print this text

  ZEL_MODULE_PATH   directories where modules are looked for, separated by colons
  ZEL_DIR           the installation root
  ZEL_USER_DIR      where per-user directories are made
)";

struct Options {
  std::vector<std::string> modules;
  std::optional<std::string> code;
  std::optional<std::string> script;
  std::vector<std::string> arguments;
  bool help = false;
  bool version = false;
};

/// Reads the command line. \return what is wrong with it; empty when nothing is.
std::string parse(const std::vector<std::string>& words, Options& options) {
  std::size_t i = 0;
  for (; i < words.size() && !options.code && words[i].starts_with('-') && words[i] != "-"; ++i) {
    const std::string& word = words[i];
    if (word == "--help" || word == "-h") {
      options.help = true;
    } else if (word == "--version") {
      options.version = true;
    } else if (word == "-m" || word == "-e") {
      if (++i == words.size()) return "option " + word + (word == "-m" ? " needs a module" : " needs code");
      if (word == "-m")
        options.modules.push_back(words[i]);
      else
        options.code = words[i];
    } else {
      return "unknown option " + word;
    }
  }
  if (!options.code && i < words.size()) options.script = words[i++];
  options.arguments.assign(words.begin() + static_cast<std::ptrdiff_t>(i), words.end());
  return "";
}

bool readable(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) ::close(fd);
  return fd >= 0;
}

int run(const Options& options) {
  zel::lua::Interpreter interpreter;
  lua_State* L = interpreter.state();
  for (const std::string& module : options.modules) {
    try {
      zel::host::loadModule(module);
    } catch (const ZEL_Unwind&) {
      zel::lua::printError(zel::host::takeError().text);
      return kScriptError;
    }
  }

  const std::string script = options.script.value_or("-");
  zel::lua::setArguments(L, options.script ? script : "zel", options.arguments);
  if (options.code) return zel::lua::runText(L, *options.code, "=(command line)") ? kDone : kScriptError;
  if (!options.script && ::isatty(STDIN_FILENO)) {
    std::cout << "zel " ZEL_VERSION "  " LUA_RELEASE << std::endl;
    zel::lua::runPrompt(L);
    return kDone;
  }
  return zel::lua::runFile(L, script == "-" ? "" : script) ? kDone : kScriptError;
}

} // namespace

int main(int argc, char** argv) {
  try {
    Options options;
    if (const std::string wrong = parse({argv + 1, argv + argc}, options); !wrong.empty()) {
      zel::lua::printError(wrong + "; zel --help tells the usage");
      return kBadUsage;
    }
    if (options.help || options.version) {
      std::cout << (options.help ? kUsage : "zel " ZEL_VERSION " (" LUA_RELEASE ")\n");
      return kDone;
    }
    if (options.script && *options.script != "-" && !readable(*options.script)) {
      zel::lua::printError("cannot open the script " + *options.script + ": " + std::strerror(errno));
      return kBadUsage;
    }
    return run(options);
  } catch (const std::exception& error) {
    zel::lua::printError(error.what());
    return kScriptError;
  }
}

// The runner: scripts that drive modules, from a file, the command line or a prompt.
#include "frontend/interpreter.h"
#include "frontend/prompt.h"
#include "frontend/run.h"
#include "host/messages.h"
#include "host/modules.h"

#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

enum ExitCode { exitDone = 0, exitScriptError = 1, exitBadUsage = 2 };

constexpr const char* usageText = R"(Usage: zel [options] [script.lua [arguments]]

Runs a Lua script with the library `zel`. Without a script it runs standard input,
or prompts when that is a terminal.

  -m MODULE    load a module, given by name or path, before the script
  -e CODE      run CODE before the script, or alone
  -            run standard input as the script
  --           end of options
  --version    print the version and exit
  -h, --help   print this text and exit

Environment:
  ZEL_MODULE_PATH   directories to search for modules first, separated by colons
  ZEL_DIR           installation root, where the certificate bundle is
  ZEL_USER_DIR      where fetched files go by default, and the prompt's history
)";

/// What an option asks for before the script runs.
struct Step {
  enum { loadModule, runCode } kind;
  std::string text;
};

struct Options {
  std::vector<Step> steps;
  std::optional<std::string> script;
  std::vector<std::string> arguments;
  bool help = false;
  bool version = false;
  bool code = false; ///< one of the steps is code
};

/// Reads the command line. \return what is wrong with it; empty when nothing is.
std::string parse(const std::vector<std::string>& words, Options& options) {
  std::size_t i = 0;
  for (; i < words.size() && words[i].starts_with('-') && words[i] != "-"; ++i) {
    const std::string& word = words[i];
    if (word == "--") {
      ++i;
      break;
    }
    if (word == "--help" || word == "-h") {
      options.help = true;
    } else if (word == "--version") {
      options.version = true;
    } else if (word == "-m" || word == "-e") {
      const bool isCode = word == "-e";
      if (++i == words.size()) return "option " + word + (isCode ? " needs code" : " needs a module");
      options.steps.push_back({isCode ? Step::runCode : Step::loadModule, words[i]});
      options.code |= isCode;
    } else {
      return "unknown option " + word;
    }
  }
  if (i < words.size()) options.script = words[i++];
  options.arguments.assign(words.begin() + static_cast<std::ptrdiff_t>(i), words.end());
  return "";
}

bool runStep(lua_State* L, const Step& step) {
  if (step.kind == Step::runCode) return zel::lua::runText(L, step.text, "=(command line)");
  try {
    zel::host::loadModule(step.text);
  } catch (const ZEL_Unwind&) {
    zel::lua::printError(zel::host::takeError().text);
    return false;
  }
  return true;
}

int run(const Options& options) {
  zel::lua::Interpreter interpreter;
  lua_State* L = interpreter.state();
  zel::lua::setArguments(L, options.script.value_or("zel"), options.arguments);
  for (const Step& step : options.steps)
    if (!runStep(L, step)) return exitScriptError;
  if (!options.script && options.code) return exitDone;
  if (!options.script && ::isatty(STDIN_FILENO) != 0) return zel::lua::runPrompt(L) ? exitDone : exitScriptError;
  switch (zel::lua::runFile(L, options.script.value_or("-"))) {
  case zel::lua::Outcome::done: return exitDone;
  case zel::lua::Outcome::unreadable: return exitBadUsage;
  default: return exitScriptError;
  }
}

} // namespace

int main(int argc, char** argv) {
  try {
    Options options;
    if (const std::string wrong = parse({argv + 1, argv + argc}, options); !wrong.empty()) {
      zel::lua::printError(wrong + "; zel --help shows the usage");
      return exitBadUsage;
    }
    if (options.help || options.version) {
      std::cout << (options.help ? usageText : "zel " ZEL_VERSION " (" LUA_RELEASE ")\n");
      return exitDone;
    }
    return run(options);
  } catch (const std::exception& error) {
    zel::lua::printError(error.what());
    return exitScriptError;
  }
}

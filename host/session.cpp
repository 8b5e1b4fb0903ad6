#include "host/session.h"

#include "host/messages.h"
#include "host/routines.h"
#include "host/strings.h"

#include <csignal>
#include <unordered_map>
#include <vector>

struct ZEL_IdentDef {
  std::string name;
};

namespace zel::host {

namespace {

FrontEnd* g_frontEnd = nullptr;
std::vector<int (*)()> g_resets;
std::unordered_map<std::string, ZEL_IdentDef> g_identifiers;
volatile std::sig_atomic_t g_interrupted = 0;

} // namespace

void setFrontEnd(FrontEnd* frontEnd) noexcept { g_frontEnd = frontEnd; }

void resetSession() {
  if (routineDepth() > 0) raise("The session cannot be reset while a routine runs.");
  std::vector<std::string> lines;
  bool done = true;
  {
    const InfoRedirect redirect([&lines](const std::string& line) { lines.push_back(line); });
    for (const auto reset : g_resets) done = reset() != 0 && done;
  }
  if (!done) raise("The session could not be reset" + (lines.empty() ? "." : ": " + join(lines, " ")));
  for (const std::string& line : lines) inform(line);
}

void requestInterrupt() noexcept { g_interrupted = 1; }

bool takeInterrupt() noexcept {
  const bool asked = g_interrupted != 0;
  g_interrupted = 0;
  return asked;
}

} // namespace zel::host

using namespace zel::host;

ZEL_Ident ZEL_IdentHash(const char* name) { return &g_identifiers.try_emplace(name, ZEL_IdentDef{name}).first->second; }

void ZEL_InterpCallFromSysproc(ZEL_CallDesc* call) {
  if (g_frontEnd == nullptr) raise("There is no interpreter to call routine " + call->routine->name + '.');
  g_frontEnd->callScript(call->routine->name, call->argc, call->argv, call->isFunction != 0 ? call->result : nullptr);
}

int ZEL_InterpInterrupted() noexcept { return g_interrupted != 0 ? 1 : 0; }

void ZEL_SessionResetAdd(int (*reset)()) {
  if (reset != nullptr) g_resets.push_back(reset);
}

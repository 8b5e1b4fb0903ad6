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

struct Session {
  FrontEnd* frontEnd = nullptr;
  std::vector<int (*)()> resets;
  std::unordered_map<std::string, ZEL_IdentDef> identifiers;
};

Session& session() {
  static Session current;
  return current;
}

volatile std::sig_atomic_t g_interrupted = 0;

} // namespace

void setFrontEnd(FrontEnd* frontEnd) noexcept { session().frontEnd = frontEnd; }

void resetSession() {
  if (routineDepth() > 0) raise("The session cannot be reset while a routine runs.");
  std::vector<std::string> lines;
  bool done = true;
  {
    const InfoRedirect redirect([&lines](const std::string& line) { lines.push_back(line); });
    for (const auto reset : session().resets) done = reset() != 0 && done;
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

using zel::host::session;

extern "C" {

ZEL_Ident ZEL_IdentHash(const char* name) {
  return &session().identifiers.try_emplace(name, ZEL_IdentDef{name}).first->second;
}

void ZEL_InterpCallFromSysproc(ZEL_CallDesc* call) {
  auto* frontEnd = session().frontEnd;
  if (frontEnd == nullptr) zel::host::raise("There is no interpreter to call routine " + call->routine->name + '.');
  frontEnd->callScript(call->routine->name, call->argc, call->argv, call->isFunction != 0 ? call->result : nullptr);
}

int ZEL_InterpInterrupted() noexcept { return zel::host::g_interrupted != 0 ? 1 : 0; }

void ZEL_SessionResetAdd(int (*reset)()) {
  if (reset != nullptr) session().resets.push_back(reset);
}

} // extern "C"

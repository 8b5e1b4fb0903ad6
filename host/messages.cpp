#include "host/messages.h"

#include "host/routines.h"
#include "host/variables.h"
#include "zel_module.h"

#include <cstdarg>
#include <iostream>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

struct ZEL_MsgBlockDef {
  std::string name;
  std::vector<std::string> formats;
};

namespace zel::host {

namespace {

Error g_error;
InfoSink g_infoSink;
std::vector<std::unique_ptr<ZEL_MsgBlockDef>> g_blocks;

std::string expand(std::string_view format, va_list texts) {
  std::string out;
  for (std::size_t i = 0; i < format.size(); ++i) {
    const std::string_view spec = format.substr(i, 2);
    if (spec == "%N") {
      out += routinePrefix();
    } else if (spec == "%s") {
      if (const char* text = va_arg(texts, const char*)) out += text;
    } else if (spec == "%%") {
      out += '%';
    } else {
      out += format[i];
      continue;
    }
    ++i;
  }
  // Outside of any routine the prefix is empty: drop the space after it, too.
  const std::size_t first = routinePrefix().empty() ? out.find_first_not_of(' ') : 0;
  return first == std::string::npos ? std::string() : out.substr(first);
}

[[noreturn]] void refuse(const ZEL_Variable* given, const char* wanted) {
  raise(argumentLabel(given) + wanted + " is required here, not " + describe(given) + '.');
}

} // namespace

void raise(const std::string& text) {
  const std::string prefix = routinePrefix();
  raise(Error{prefix.empty() ? text : prefix + ' ' + text});
}

void raiseErrno(const std::string& text, int errnum) {
  raise(text + ": " + std::generic_category().message(errnum) + '.');
}

void raise(Error error) {
  g_error = std::move(error);
  throw ZEL_Unwind{};
}

Error takeError() { return std::exchange(g_error, {}); }

void inform(const std::string& text) {
  if (g_infoSink)
    g_infoSink(text);
  else
    std::cerr << text + '\n';
}

InfoRedirect::InfoRedirect(InfoSink sink) : m_outer(std::exchange(g_infoSink, std::move(sink))) {}

InfoRedirect::~InfoRedirect() { g_infoSink = std::move(m_outer); }

} // namespace zel::host

using namespace zel::host;

ZEL_MsgBlock ZEL_MessageDefineBlock(const char* name, int n, const ZEL_MsgDef* defs) {
  if (name == nullptr || n < 1 || defs == nullptr) return nullptr;
  auto block = std::make_unique<ZEL_MsgBlockDef>();
  block->name = name;
  for (const ZEL_MsgDef* def = defs; def != defs + n; ++def) {
    if (def->format == nullptr) return nullptr;
    block->formats.emplace_back(def->format);
  }
  return g_blocks.emplace_back(std::move(block)).get();
}

void ZEL_MessageFromBlock(ZEL_MsgBlock block, int code, int action, ...) {
  if (block == nullptr) raise("A message was issued from a message block that is not defined.");
  if (code > 0 || static_cast<std::size_t>(-static_cast<std::int64_t>(code)) >= block->formats.size())
    raise("Message block " + block->name + " has no message of code " + std::to_string(code) + '.');
  va_list texts;
  va_start(texts, action);
  std::string text = expand(block->formats[static_cast<std::size_t>(-code)], texts);
  va_end(texts);
  if (action == ZEL_MSG_ERROR) raise(Error{std::move(text)});
  inform(text);
}

void ZEL_MessageVE_REQOBJREF(const ZEL_Variable* v) { refuse(v, "An object"); }
void ZEL_MessageVE_REQSTR(const ZEL_Variable* v) { refuse(v, "A string"); }
void ZEL_MessageVE_NOTSCALAR(const ZEL_Variable* v) { refuse(v, "A single value"); }

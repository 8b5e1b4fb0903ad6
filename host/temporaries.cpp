#include "host/temporaries.h"

#include "host/memory.h"
#include "host/messages.h"
#include "host/strings.h"
#include "host/variables.h"

#include <list>

namespace zel::host {

namespace {

/// Knows its place in the list, so that releasing it needs no search.
struct Temporary : ZEL_Variable {
  std::uint64_t serial = 0;
  std::list<Temporary>::iterator self;
};

std::list<Temporary> g_alive; // oldest first
std::uint64_t g_lastSerial = 0;

void releaseTemporary(Temporary& v) noexcept {
  clear(v);
  g_alive.erase(v.self);
}

} // namespace

std::uint64_t lastTemporary() noexcept { return g_lastSerial; }

std::int64_t releaseTemporariesAfter(std::uint64_t serial, const ZEL_Variable* keep) noexcept {
  std::int64_t count = 0;
  for (auto it = g_alive.end(); it != g_alive.begin();) {
    Temporary& v = *--it;
    if (v.serial <= serial) break;
    if (&v == keep) continue;
    ++it;
    releaseTemporary(v);
    ++count;
  }
  return count;
}

} // namespace zel::host

using namespace zel::host;
using zel::Temp;

ZEL_Variable* ZEL_Gettmp() {
  auto& v = g_alive.emplace_back();
  v.flags = ZEL_V_TEMP;
  v.serial = ++g_lastSerial;
  v.self = std::prev(g_alive.end());
  return &v;
}

ZEL_Variable* ZEL_GettmpInt(std::int16_t value) {
  ZEL_Variable* v = ZEL_Gettmp();
  v->type = ZEL_TYP_INT;
  v->value.i = value;
  return v;
}

void ZEL_Deltmp(ZEL_Variable* v) noexcept {
  if (v != nullptr && (v->flags & ZEL_V_TEMP) != 0) releaseTemporary(static_cast<Temporary&>(*v));
}

std::int64_t ZEL_TempCount() noexcept { return static_cast<std::int64_t>(g_alive.size()); }

ZEL_Variable* ZEL_MakeTempVector(ZEL_Type type, std::int64_t n, char** data) {
  Temp v(ZEL_Gettmp());
  char* first = makeArray(*v, type, n);
  if (data != nullptr) *data = first;
  return v.release();
}

ZEL_Variable* ZEL_MakeTempStruct(const ZEL_StructDef* sdef, std::int64_t n, char** data) {
  Temp v(ZEL_Gettmp());
  char* first = makeStructs(*v, sdef, n);
  if (data != nullptr) *data = first;
  return v.release();
}

char* ZEL_GetScratch(ZEL_Variable** tmp, std::int64_t bytes) {
  char* scratch = nullptr;
  *tmp = ZEL_MakeTempVector(ZEL_TYP_BYTE, bytes, &scratch);
  return scratch;
}

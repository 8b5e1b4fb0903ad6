#include "host/heap.h"

#include "host/objects.h"
#include "host/structs.h"
#include "host/variables.h"

#include <algorithm>
#include <unordered_map>

namespace zel::host {

namespace {

/// A heap variable that owns its value.
struct HeapVar : ZEL_HeapVar {
  HeapVar(ZEL_HVID id, const ZEL_ObjDef* objectClass) noexcept : ZEL_HeapVar{id, 0, objectClass, {}} {}
  ~HeapVar() { clear(var); }
  HeapVar(const HeapVar&) = delete;
  HeapVar& operator=(const HeapVar&) = delete;

  std::int64_t memory = 0; ///< bytes that native code holds for the object
};

struct Heap {
  std::unordered_map<ZEL_HVID, HeapVar> alive;
  ZEL_HVID last = 0;
  std::int64_t memory = 0; ///< of all objects

  Heap() { structCount(); } // constructs the definitions first: they must outlive the variables
};

Heap& heap() {
  static Heap all;
  return all;
}

void setMemory(HeapVar& object, std::int64_t bytes) noexcept {
  heap().memory += bytes - object.memory;
  object.memory = bytes;
}

ZEL_HeapVar* add(const ZEL_ObjDef* objdef) {
  auto& alive = heap().alive;
  auto& last = heap().last;
  do ++last;
  while (last == 0 || alive.contains(last));
  return &alive.try_emplace(last, last, objdef).first->second;
}

} // namespace

HeapCounts heapCounts() noexcept {
  const auto& alive = heap().alive;
  const auto objects = std::count_if(alive.begin(), alive.end(), [](const auto& hv) { return hv.second.objdef; });
  return {static_cast<std::int64_t>(alive.size()) - objects, objects};
}

std::int64_t objectMemory() noexcept { return heap().memory; }

ZEL_HeapVar* newObject(const ZEL_ObjDef* objdef) {
  ZEL_HeapVar* hv = add(objdef);
  makeStructs(hv->var, objdef->sdef, 1);
  return hv;
}

} // namespace zel::host

using namespace zel::host;

ZEL_HeapVar* ZEL_HeapVarNew(ZEL_Variable* value) {
  ZEL_HeapVar* hv = add(nullptr);
  ZEL_VarCopy(value, &hv->var);
  return hv;
}

ZEL_HeapVar* ZEL_HeapVarHashFind(ZEL_HVID hvid) noexcept {
  const auto found = heap().alive.find(hvid);
  return found == heap().alive.end() ? nullptr : &found->second;
}

void ZEL_HeapVarDelete(ZEL_HeapVar* hv) noexcept {
  if (hv == nullptr) return;
  const auto found = heap().alive.find(hv->hvid);
  setMemory(found->second, 0);
  heap().alive.erase(found);
}

void ZEL_ObjSetMemory(ZEL_HVID hvid, std::int64_t bytes) noexcept {
  const auto found = heap().alive.find(hvid);
  if (found != heap().alive.end()) setMemory(found->second, bytes);
}

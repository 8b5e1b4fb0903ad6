#include "host/objects.h"

#include "host/messages.h"
#include "host/strings.h"
#include "host/structs.h"

#include <algorithm>
#include <unordered_map>

namespace zel::host {

namespace {

using Classes = std::unordered_map<const ZEL_StructDef*, ZEL_ObjDef>;

Classes& classes() {
  static Classes defined;
  return defined;
}

void addLine(const ZEL_StructDef* sdef, std::vector<std::string_view>& line) {
  line.push_back(sdef->name);
  for (const ZEL_StructDef* parent : sdef->parents) addLine(parent, line);
}

bool inherits(const ZEL_StructDef* sdef, std::string_view name) noexcept {
  return sdef->name == name || std::any_of(sdef->parents.begin(), sdef->parents.end(),
                                           [name](const ZEL_StructDef* parent) { return inherits(parent, name); });
}

} // namespace

const ZEL_ObjDef* findClass(std::string_view name) noexcept {
  const ZEL_StructDef* sdef = findStruct(upper(name));
  return sdef ? ZEL_ObjDefOfStruct(sdef) : nullptr;
}

const std::string& className(const ZEL_ObjDef* objdef) noexcept { return objdef->sdef->name; }

std::vector<std::string_view> classLine(const ZEL_ObjDef* objdef) {
  std::vector<std::string_view> line;
  addLine(objdef->sdef, line);
  return line;
}

} // namespace zel::host

using zel::host::classes;
using zel::host::raise;

extern "C" {

const ZEL_ObjDef* ZEL_ObjDefOfStruct(const ZEL_StructDef* sdef) noexcept {
  const auto found = classes().find(sdef);
  return found == classes().end() ? nullptr : &found->second;
}

const ZEL_ObjDef* ZEL_ObjInsertDef(const ZEL_StructDef* sdef) {
  if (!sdef || sdef->name.empty()) raise("An object class needs a named structure.");
  return &classes().try_emplace(sdef, ZEL_ObjDef{sdef}).first->second;
}

ZEL_HeapVar* ZEL_ObjReference(ZEL_Variable* v) {
  if (v->type != ZEL_TYP_OBJREF || (v->flags & ZEL_V_ARR)) ZEL_MessageVE_REQOBJREF(v);
  if (v->value.hvid == 0) raise("The object reference is null.");
  ZEL_HeapVar* hv = ZEL_HeapVarHashFind(v->value.hvid);
  if (!hv || !hv->objdef) raise("The object is gone: it was closed.");
  return hv;
}

int ZEL_ObjContainsClassByStr(const ZEL_HeapVar* object, const char* className) noexcept {
  return object && object->objdef && className &&
         zel::host::inherits(object->objdef->sdef, zel::host::upper(className));
}

} // extern "C"

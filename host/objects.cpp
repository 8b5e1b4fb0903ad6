#include "host/objects.h"

#include "host/messages.h"
#include "host/strings.h"
#include "host/structs.h"

#include <algorithm>
#include <list>
#include <strings.h>

namespace zel::host {

namespace {

/// The classes in the order of their definition. Their addresses do not change.
std::list<ZEL_ObjDef> g_classes;

void addLine(const ZEL_StructDef* sdef, std::vector<std::string_view>& line) {
  line.push_back(sdef->name);
  for (const ZEL_StructDef* parent : sdef->parents) addLine(parent, line);
}

bool inherits(const ZEL_StructDef* sdef, const char* name) noexcept {
  return strcasecmp(sdef->name.c_str(), name) == 0 ||
         std::any_of(sdef->parents.begin(), sdef->parents.end(),
                     [name](const ZEL_StructDef* parent) { return inherits(parent, name); });
}

} // namespace

const ZEL_ObjDef* findClass(std::string_view name) {
  const ZEL_StructDef* sdef = findStruct(upper(name));
  return sdef != nullptr ? ZEL_ObjDefOfStruct(sdef) : nullptr;
}

std::size_t classCount() noexcept { return g_classes.size(); }

void forgetClassesAfter(std::size_t count) { g_classes.resize(count); }

std::vector<std::string> classNames() {
  std::vector<std::string> names;
  for (const auto& objdef : g_classes) names.push_back(className(&objdef));
  return names;
}

const std::string& className(const ZEL_ObjDef* objdef) noexcept { return objdef->sdef->name; }

std::vector<std::string_view> classLine(const ZEL_ObjDef* objdef) {
  std::vector<std::string_view> line;
  addLine(objdef->sdef, line);
  return line;
}

} // namespace zel::host

using namespace zel::host;

const ZEL_ObjDef* ZEL_ObjDefOfStruct(const ZEL_StructDef* sdef) noexcept {
  const auto found = std::ranges::find(g_classes, sdef, &ZEL_ObjDef::sdef);
  return found == g_classes.end() ? nullptr : &*found;
}

const ZEL_ObjDef* ZEL_ObjInsertDef(const ZEL_StructDef* sdef) {
  if (sdef == nullptr || sdef->name.empty()) raise("An object class needs a named structure.");
  const ZEL_ObjDef* known = ZEL_ObjDefOfStruct(sdef);
  return known != nullptr ? known : &g_classes.emplace_back(ZEL_ObjDef{sdef});
}

ZEL_HeapVar* ZEL_ObjReference(ZEL_Variable* v) {
  if (v->type != ZEL_TYP_OBJREF || (v->flags & ZEL_V_ARR) != 0) ZEL_MessageVE_REQOBJREF(v);
  if (v->value.hvid == 0) raise("The object reference is null.");
  ZEL_HeapVar* hv = ZEL_HeapVarHashFind(v->value.hvid);
  if (hv == nullptr || hv->objdef == nullptr) raise("The object no longer exists: it was closed.");
  return hv;
}

int ZEL_ObjContainsClassByStr(const ZEL_HeapVar* object, const char* className) noexcept {
  const bool known = object != nullptr && object->objdef != nullptr && className != nullptr;
  return known && inherits(object->objdef->sdef, className) ? 1 : 0;
}

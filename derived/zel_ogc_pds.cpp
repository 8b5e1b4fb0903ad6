#include "zel_ogc_pds.h"

namespace {

const ZEL_StructDef* wcsDef = nullptr;
const ZEL_StructDef* wmsDef = nullptr;

constexpr ZEL_StructTagDef tag(const char* name) noexcept { return {name, ZEL_TYP_LONG64, 0, nullptr, 0}; }

constexpr ZEL_StructTagDef wcsTags[] = {tag("ZELNETOGCWCS_TOP"), tag("COGCWCSPTR"), tag("ZELNETOGCWCS_BOTTOM"), {}};
constexpr ZEL_StructTagDef wmsTags[] = {tag("ZELNETOGCWMS_TOP"), tag("COGCWMSPTR"), tag("ZELNETOGCWMS_BOTTOM"), {}};

const ZEL_StructDef* defineClass(const char* name, const ZEL_StructTagDef* tags) {
  const ZEL_StructDef* def = ZEL_MakeStructInternal(name, tags);
  if (ZEL_ObjDefOfStruct(def) == nullptr) ZEL_ObjInsertDef(def);
  return def;
}

} // namespace

void ZEL_PDSInit_zel_ogc() {
  wcsDef = defineClass("ZELNETOGCWCS", wcsTags);
  wmsDef = defineClass("ZELNETOGCWMS", wmsTags);
}

const ZEL_StructDef* ZEL_StructDefPtr_ZELNETOGCWCS() noexcept { return wcsDef; }
const ZEL_StructDef* ZEL_StructDefPtr_ZELNETOGCWMS() noexcept { return wmsDef; }

#include "routines/binding.h"

#include "routines/errors.h"

std::int64_t* _ZEL_OGCWCSGetInstanceData(ZEL_Variable* object) { return ogc::instanceSlot(ogc::wcsService, object); }
std::int64_t* _ZEL_OGCWMSGetInstanceData(ZEL_Variable* object) { return ogc::instanceSlot(ogc::wmsService, object); }

namespace ogc {

std::int64_t* instanceSlot(const Service& service, ZEL_Variable* object) {
  if (object->type != ZEL_TYP_OBJREF) ZEL_MessageVE_REQOBJREF(object);
  const ZEL_HeapVar* hv = ZEL_ObjReference(object);
  if (ZEL_ObjContainsClassByStr(hv, service.className) == 0) fail(service.wrongObject);
  const std::int64_t offset = ZEL_StructTagInfoByName(hv->var.sdef, service.pointerTag, ZEL_MSG_ERROR, nullptr);
  return reinterpret_cast<std::int64_t*>(hv->var.data + offset);
}

COgcBase* clientAt(const std::int64_t* slot) noexcept {
  return reinterpret_cast<COgcBase*>(*slot); // NOLINT(performance-no-int-to-ptr): the tag holds an address
}

COgcBase& clientIn(const Service& service, const std::int64_t* slot) {
  if (*slot == 0) fail(service.noClient);
  return *clientAt(slot);
}

} // namespace ogc

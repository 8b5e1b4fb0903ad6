#include "routines/binding.h"

#include "routines/errors.h"
#include "routines/properties.h"
#include "routines/user_directory.h"

#include <array>
#include <string>

namespace {

ZEL_HeapVar* objectOf(ZEL_Variable* v) {
  if (v->type != ZEL_TYP_OBJREF) ZEL_MessageVE_REQOBJREF(v);
  return ZEL_ObjReference(v);
}

COgcBase* clientIn(const std::int64_t* slot) noexcept {
  return reinterpret_cast<COgcBase*>(*slot); // NOLINT(performance-no-int-to-ptr): the tag holds an address
}

void releaseClient(const OgcService& service, std::int64_t* slot) {
  COgcBase* client = clientIn(slot);
  *slot = 0;
  ogcReleaseCallbackData(*client);
  service.destroy(client);
}

/// Certificate bundle of the installation.
std::string certificateBundle() {
  const zel::Temp root(ZEL_SysvDirFunc());
  constexpr std::array dirs{"bin", "bin.linux.x86_64"};
  std::array<char, ogcPathSize> dir{};
  ZEL_FilePathFromRoot(dir.data(), dir.size(), root->value.str.s, dirs.data(), dirs.size(), nullptr, nullptr);
  return formatLimited(ogcPathSize - 1, "%sca-bundle.crt", dir.data());
}

} // namespace

std::int64_t* ogcInstanceSlot(const OgcService& service, ZEL_Variable* object) {
  const ZEL_HeapVar* hv = objectOf(object);
  if (ZEL_ObjContainsClassByStr(hv, service.className) == 0) ogcError(service.wrongObject);
  const std::int64_t offset = ZEL_StructTagInfoByName(hv->var.sdef, service.pointerTag, ZEL_MSG_ERROR, nullptr);
  return reinterpret_cast<std::int64_t*>(hv->var.data + offset);
}

std::int64_t* _ZEL_OGCWCSGetInstanceData(ZEL_Variable* object) { return ogcInstanceSlot(ogcWcsService, object); }
std::int64_t* _ZEL_OGCWMSGetInstanceData(ZEL_Variable* object) { return ogcInstanceSlot(ogcWmsService, object); }

COgcBase& ogcClientIn(const OgcService& service, const std::int64_t* slot) {
  if (*slot == 0) ogcError(service.noClient);
  return *clientIn(slot);
}

ZEL_Variable* ogcInit(const OgcService& service, int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  const bool done = ogcGuard(ZEL_MSG_INFO, [&] {
    objectOf(argv[0])->flags |= 1;
    std::int64_t* slot = ogcInstanceSlot(service, argv[0]);
    if (*slot != 0) {
      clientIn(slot)->OgcBaseRequireIdle("INIT");
      releaseClient(service, slot);
    }
    COgcBase* client = service.make();
    if (client == nullptr) ogcError(service.noMemory);
    *slot = reinterpret_cast<std::int64_t>(client);
    ogcSetDefaultFiles(service, *client);
    client->CurlSetSslCAInfo(certificateBundle().c_str());
    service.setProperties(argc, argv, argk, 1, slot);
  });
  return ZEL_GettmpInt(done ? 1 : 0);
}

void ogcCleanup(const OgcService& service, ZEL_Variable** argv) {
  ogcProcedure([&] {
    std::int64_t* slot = ogcInstanceSlot(service, argv[0]);
    if (*slot == 0) return;
    clientIn(slot)->OgcBaseRequireIdle("CLEANUP");
    releaseClient(service, slot);
  });
}

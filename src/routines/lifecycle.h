/// \file
/// The life of an object's client: INIT and CLEANUP.
#pragma once

#include "routines/binding.h"
#include "routines/errors.h"
#include "routines/properties.h"

#include <cstdint>
#include <memory>
#include <new>

namespace ogc {

/// Destroys the client in a slot with its callback data. Errors, naming `what`, while it is in a request. An empty slot
/// is left alone.
template <typename Client, auto CleanUp>
void release(std::int64_t* slot, const char* what) {
  auto* client = static_cast<Client*>(clientAt(slot));
  if (client == nullptr) return;
  client->requireIdle(what);
  const std::unique_ptr<Client> owned(client);
  *slot = 0;
  releaseCallbackData(*client);
  (client->*CleanUp)();
}

/// INIT: gives the object a new client with its defaults and applies the property keywords. An older client is released
/// first. \return 1, or 0 after an informational message.
template <typename Client, auto CleanUp, auto SetProperties>
ZEL_Variable* init(const Service& service, int argc, ZEL_Variable** argv, const ZEL_Keywords* argk) {
  const bool done = guard(ZEL_MSG_INFO, [&] {
    if (argv[0]->type != ZEL_TYP_OBJREF) ZEL_MessageVE_REQOBJREF(argv[0]);
    ZEL_ObjReference(argv[0])->flags |= 1;
    std::int64_t* slot = instanceSlot(service, argv[0]);
    release<Client, CleanUp>(slot, "INIT");
    try {
      COgcBase* client = std::make_unique<Client>().release(); // the slot owns it
      *slot = reinterpret_cast<std::int64_t>(client);
    } catch (const std::bad_alloc&) {
      fail(service.noMemory);
    }
    setDefaults(service, *clientAt(slot));
    SetProperties(argc, argv, argk, 1, slot);
  });
  return ZEL_GettmpInt(done ? 1 : 0);
}

/// CLEANUP: releases the client.
template <typename Client, auto CleanUp>
void cleanup(const Service& service, ZEL_Variable** argv) {
  runProcedure([&] { release<Client, CleanUp>(instanceSlot(service, argv[0]), "CLEANUP"); });
}

} // namespace ogc

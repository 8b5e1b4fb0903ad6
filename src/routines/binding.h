/// \file
/// From a script object to its native client, and the client's life: INIT and CLEANUP.
#pragma once

#include "client/base.h"
#include "routines/service.h"

#include <cstdint>

/// Address of the client-pointer tag in an object's instance data; errors for anything but an object of the service's
/// class. \return never null; the tag is 0 when the object has no client.
std::int64_t* ogcInstanceSlot(const OgcService& service, ZEL_Variable* object);
std::int64_t* _ZEL_OGCWCSGetInstanceData(ZEL_Variable* object);
std::int64_t* _ZEL_OGCWMSGetInstanceData(ZEL_Variable* object);

/// The client that a tag holds; errors when it holds none.
COgcBase& ogcClientIn(const OgcService& service, const std::int64_t* slot);

/// The client of an object; errors when it has none.
template <typename Client>
Client& ogcClient(const OgcService& service, ZEL_Variable* object) {
  return static_cast<Client&>(ogcClientIn(service, ogcInstanceSlot(service, object)));
}

namespace ogc {

/// Says to the host, at its end, how large the records of a client have become.
template <typename Client>
class RecordsReport {
public:
  RecordsReport(const ZEL_Variable* object, const Client& client) noexcept
      : m_object(object->value.hvid), m_client(client) {}
  ~RecordsReport() { ZEL_ObjSetMemory(m_object, static_cast<std::int64_t>(m_client.RecordSize())); }
  RecordsReport(const RecordsReport&) = delete;
  RecordsReport& operator=(const RecordsReport&) = delete;

private:
  ZEL_HVID m_object;
  const Client& m_client;
};

} // namespace ogc

/// INIT: gives the object a new client with its defaults and applies the property keywords. An older client is released
/// with its callback data, or stays when it is in a request. \return 1, or 0 after an informational message.
ZEL_Variable* ogcInit(const OgcService& service, int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);

/// CLEANUP: releases the client and its callback data. Errors while the client is in a request.
void ogcCleanup(const OgcService& service, ZEL_Variable** argv);

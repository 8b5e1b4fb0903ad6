/// \file
/// From a script object to its native client.
#pragma once

#include "client/base.h"
#include "routines/service.h"
#include "zel_module.h"

#include <cstdint>

/// Address of the client-pointer tag in an object's instance data; errors for anything but an object of the class.
/// \return never null; the tag is 0 when the object has no client.
std::int64_t* _ZEL_OGCWCSGetInstanceData(ZEL_Variable* object);
std::int64_t* _ZEL_OGCWMSGetInstanceData(ZEL_Variable* object);

namespace ogc {

/// The same for the class of a service.
std::int64_t* instanceSlot(const Service& service, ZEL_Variable* object);

/// The client whose address is in a slot, null if there is none.
COgcBase* clientAt(const std::int64_t* slot) noexcept;

/// The client whose address is in a slot; errors if there is none.
COgcBase& clientIn(const Service& service, const std::int64_t* slot);

/// The client of an object; errors when it has none.
template <typename Client>
Client& clientOf(const Service& service, ZEL_Variable* object) {
  return static_cast<Client&>(clientIn(service, instanceSlot(service, object)));
}

/// Reports to the host, at its end, how large the records of a client have become.
template <typename Client>
class RecordsReport {
public:
  RecordsReport(const ZEL_Variable* object, const Client& client) noexcept
      : m_object(object->value.hvid), m_client(client) {}
  ~RecordsReport() { ZEL_ObjSetMemory(m_object, static_cast<std::int64_t>(m_client.recordSize())); }
  RecordsReport(const RecordsReport&) = delete;
  RecordsReport& operator=(const RecordsReport&) = delete;

private:
  ZEL_HVID m_object;
  const Client& m_client;
};

} // namespace ogc

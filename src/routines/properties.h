/// \file
/// Properties of the objects.
#pragma once

#include "client/base.h"
#include "routines/service.h"
#include "zel_module.h"

#include <cstdint>

/// Applies the property keywords of a call, in a fixed order, to the client in a slot. If one fails, those before it
/// stay applied. \param initialise nonzero if the client is new and must be initialised first
void OGCWCSProcessSetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, int initialise,
                                const std::int64_t* clientSlot);
void OGCWMSProcessSetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, int initialise,
                                const std::int64_t* clientSlot);
/// Stores the values of properties in the variables of the keywords of a call.
void OGCWCSProcessGetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk,
                                const std::int64_t* clientSlot);
void OGCWMSProcessGetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk,
                                const std::int64_t* clientSlot);

namespace ogc {

/// Points the response files of a new client into the user file store, and its certificates to those of the
/// installation.
void setDefaults(const Service& service, COgcBase& client);

/// Deletes the heap variable that holds a client's callback data.
void releaseCallbackData(COgcBase& client);

} // namespace ogc

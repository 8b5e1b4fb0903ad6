/// \file
/// Properties of the objects: what SETPROPERTY, GETPROPERTY and PARSEURL do, and the defaults that INIT gives.
#pragma once

#include "client/base.h"
#include "routines/service.h"
#include "zel_module.h"

#include <cstdint>

/// Applies the property keywords of a call, in a fixed order, to the client that the slot holds. What was applied
/// before one that fails stays. \param initialise nonzero: the client is new and is prepared first
void OGCWCSProcessSetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, int initialise,
                                const std::int64_t* clientSlot);
void OGCWMSProcessSetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, int initialise,
                                const std::int64_t* clientSlot);
/// Fills the variables of the property keywords of a call.
void OGCWCSProcessGetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk,
                                const std::int64_t* clientSlot);
void OGCWMSProcessGetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk,
                                const std::int64_t* clientSlot);

namespace ogc {

/// Points the response files of a client into the user file store.
void setDefaultFiles(const Service& service, COgcBase& client);

/// Deletes the heap variable that holds a client's callback data.
void releaseCallbackData(COgcBase& client);

} // namespace ogc

/// \file
/// Host routines of the class ZELnetOGCWMS. `argv[0]` is the object.
#pragma once

#include "zel_module.h"

/// \name Functions
/// @{
ZEL_Variable* ZEL_OgcWmsGetCapabilities(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWmsGetFeatureInfo(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWmsGetLayers(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWmsGetMap(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWmsGetServiceSection(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWmsInit(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
/// @}

/// \name Procedures
/// @{
void ZEL_OgcWmsCleanup(int argc, ZEL_Variable** argv);
void ZEL_OgcWmsGetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
void ZEL_OgcWmsParseURL(int argc, ZEL_Variable** argv);
void ZEL_OgcWmsSetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
/// @}

/// \file
/// Host routines of the class ZELnetOGCWCS. `argv[0]` is the object.
#pragma once

#include "zel_module.h"

/// \name Functions
/// @{
ZEL_Variable* ZEL_OgcWcsDescribeCoverage(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWcsGetCapabilities(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWcsGetCoverage(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWcsGetCoverageOffering(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWcsGetCoverageOfferingBriefs(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWcsGetServiceSection(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
ZEL_Variable* ZEL_OgcWcsInit(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
/// @}

/// \name Procedures
/// @{
void ZEL_OgcWcsCleanup(int argc, ZEL_Variable** argv);
void ZEL_OgcWcsGetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
void ZEL_OgcWcsParseURL(int argc, ZEL_Variable** argv);
void ZEL_OgcWcsSetProperty(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk);
/// @}

/// \file
/// The instance structures of the object classes.
#pragma once

#include "zel_module.h"

/// Defines both instance structures and makes them object classes.
void ZEL_PDSInit_zel_ogc();

/// The definitions, for native code that makes objects of the classes; null before ZEL_PDSInit_zel_ogc().
[[nodiscard]] const ZEL_StructDef* ZEL_StructDefPtr_ZELNETOGCWCS() noexcept;
[[nodiscard]] const ZEL_StructDef* ZEL_StructDefPtr_ZELNETOGCWMS() noexcept;

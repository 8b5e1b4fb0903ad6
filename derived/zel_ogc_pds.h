/// \file
/// The instance structures behind the object classes.
#pragma once

#include "zel_module.h"

/// Defines both instance structures and makes them usable as object classes.
void ZEL_PDSInit_zel_ogc();

/// The definitions; null until ZEL_PDSInit_zel_ogc ran.
[[nodiscard]] const ZEL_StructDef* ZEL_StructDefPtr_ZELNETOGCWCS() noexcept;
[[nodiscard]] const ZEL_StructDef* ZEL_StructDefPtr_ZELNETOGCWMS() noexcept;

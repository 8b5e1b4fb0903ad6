/// \file
/// The table of the system routines.
#pragma once

/// Registers the functions, then the procedures. \return nonzero on success.
[[nodiscard]] int _ZEL_zel_ogc_rtn_init();

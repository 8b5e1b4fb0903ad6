/// \file
/// The module's messages.
#pragma once

#include "zel_module.h"

/// Codes of the messages: one text to six. ERRS2 prints its texts side by side, the others put commas between the
/// second and the later ones.
enum ZEL_OgcMessage : int {
  ZEL_M_OGC_ERRS1 = 0,
  ZEL_M_OGC_ERRS2 = -1,
  ZEL_M_OGC_ERRS3 = -2,
  ZEL_M_OGC_ERRS4 = -3,
  ZEL_M_OGC_ERRS5 = -4,
  ZEL_M_OGC_ERRS6 = -5
};

/// The message block, through which the module issues all its messages.
extern ZEL_MsgBlock zel_ogc_msg_block;

/// Defines the message block. \return its handle, null on failure.
[[nodiscard]] ZEL_MsgBlock _ZEL_zel_ogc_msg_init();

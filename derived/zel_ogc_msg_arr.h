/// \file
/// The module's messages.
#pragma once

#include "zel_module.h"

/// Codes of the messages, which take one to six texts. From the third on, a text follows a comma.
enum ZEL_OgcMessage : int {
  ZEL_M_OGC_ERRS1 = 0,
  ZEL_M_OGC_ERRS2 = -1,
  ZEL_M_OGC_ERRS3 = -2,
  ZEL_M_OGC_ERRS4 = -3,
  ZEL_M_OGC_ERRS5 = -4,
  ZEL_M_OGC_ERRS6 = -5
};

/// The block of all messages of the module.
extern ZEL_MsgBlock zel_ogc_msg_block;

/// Defines the message block. \return its handle; null on failure.
[[nodiscard]] ZEL_MsgBlock _ZEL_zel_ogc_msg_init();

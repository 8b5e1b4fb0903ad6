#include "zel_ogc_msg_arr.h"

#include <iterator>

ZEL_MsgBlock zel_ogc_msg_block = nullptr;

ZEL_MsgBlock _ZEL_zel_ogc_msg_init() {
  static constexpr ZEL_MsgDef messages[] = {
      {"ZEL_M_OGC_ERRS1", "%N %s"},
      {"ZEL_M_OGC_ERRS2", "%N %s %s"},
      {"ZEL_M_OGC_ERRS3", "%N %s %s, %s"},
      {"ZEL_M_OGC_ERRS4", "%N %s %s, %s, %s"},
      {"ZEL_M_OGC_ERRS5", "%N %s %s, %s, %s, %s"},
      {"ZEL_M_OGC_ERRS6", "%N %s %s, %s, %s, %s, %s"},
  };
  return ZEL_MessageDefineBlock("ZEL_MBLK_OGC", std::size(messages), messages);
}

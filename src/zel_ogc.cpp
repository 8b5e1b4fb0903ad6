#include "zel_ogc.h"

#include "client/bridge.h"
#include "xml/parse.h"
#include "zel_curl_obj.h"
#include "zel_module.h"
#include "zel_ogc_msg_arr.h"
#include "zel_ogc_pds.h"
#include "zel_ogc_rtn_tbl.h"

[[gnu::visibility("default")]] int ZEL_Load() {
  ZEL_PDSInit_zel_ogc();
  g_iOgcBaseSaxInitialized = 0;
  if (CCurl::CurlStartup() == 0) return 0;
  CCurl::setInterruptFunc(ZEL_InterpInterrupted);
  zel_ogc_msg_block = _ZEL_zel_ogc_msg_init();
  if (zel_ogc_msg_block == nullptr) return 0;
  if (_ZEL_zel_ogc_rtn_init() == 0) return 0;
  ZEL_SessionResetAdd(ZEL_ResetSession);
  return 1;
}

int ZEL_ResetSession() {
  if (CCurl::transferRunning() != 0) {
    OgcInfoMsg("Error: The session cannot be reset while a transfer is running.");
    return 0;
  }
  CCurl::CurlShutdown();
  return CCurl::CurlStartup();
}

void ZEL_OgcResetSession() {}

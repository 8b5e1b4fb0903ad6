#include "routines/errors.h"

#include "zel_curl_shown.h"
#include "zel_curl_text.h"
#include "zel_ogc_msg_arr.h"

namespace ogc {

void fail(const std::string& text) {
  ZEL_MessageFromBlock(zel_ogc_msg_block, ZEL_M_OGC_ERRS1, ZEL_MSG_ERROR,
                       std::string(transfer::cutAt(transfer::shown(text), transfer::messageLimit)).c_str());
  throw ZEL_Unwind{};
}

void report(const std::optional<CCurlException>& failure, int action) {
  if (failure)
    ZEL_MessageFromBlock(zel_ogc_msg_block, ZEL_M_OGC_ERRS2, action, "CCurlException: ", failure->ErrMsg());
  else
    ZEL_MessageFromBlock(zel_ogc_msg_block, ZEL_M_OGC_ERRS1, action, "Error: Unknown Exception caught.");
}

} // namespace ogc

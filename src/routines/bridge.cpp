#include "client/bridge.h"

#include "routines/keywords.h"
#include "zel_curl_obj.h"
#include "zel_module.h"
#include "zel_ogc_msg_arr.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

namespace {

/// The integer part of a transfer figure, limited to the range of the type; 0 for NaN.
std::int64_t wholePart(double figure) noexcept {
  constexpr double limit = 9223372036854775808.0; // 2 to the 63rd
  if (figure >= limit) return std::numeric_limits<std::int64_t>::max();
  if (figure < -limit) return std::numeric_limits<std::int64_t>::min();
  return std::isnan(figure) ? 0 : static_cast<std::int64_t>(figure);
}

zel::Temp progressArray(const xProgressValues& progress) {
  char* data = nullptr;
  zel::Temp array(ZEL_MakeTempVector(ZEL_TYP_LONG64, 5, &data));
  auto* figures = reinterpret_cast<std::int64_t*>(data);
  figures[0] = static_cast<std::int32_t>(progress.isValid);
  figures[1] = wholePart(progress.dlTotal);
  figures[2] = wholePart(progress.dlNow);
  figures[3] = wholePart(progress.ulTotal);
  figures[4] = wholePart(progress.ulNow);
  return array;
}

/// A copy of the value of a heap variable; null if there is none with that identifier.
zel::Temp dataCopy(unsigned long callbackData) {
  ZEL_HeapVar* hv = callbackData != 0 ? ZEL_HeapVarHashFind(static_cast<ZEL_HVID>(callbackData)) : nullptr;
  zel::Temp copy(hv != nullptr ? ZEL_Gettmp() : nullptr);
  if (copy) ZEL_VarCopy(&hv->var, copy.get());
  return copy;
}

} // namespace

int OgcCallback(char* callbackName, unsigned long callbackData, const char* status, xProgressValues* progress) {
  if (callbackName == nullptr || *callbackName == '\0') return 1;
  const zel::Temp text(ZEL_StrToSTRING(status));
  const zel::Temp figures = progressArray(progress != nullptr ? *progress : xProgressValues{});
  const zel::Temp data = dataCopy(callbackData);
  const zel::Temp answer(ZEL_Gettmp());
  std::array<ZEL_Variable*, 3> arguments{text.get(), figures.get(), data.get()};
  ZEL_CallDesc call{1, ZEL_IdentHash(callbackName), data ? 3 : 2, arguments.data(), answer.get()};
  ZEL_InterpCallFromSysproc(&call);
  return ogc::fixOf(answer.get());
}

void OgcInfoMsg(const char* text) { ZEL_MessageFromBlock(zel_ogc_msg_block, ZEL_M_OGC_ERRS1, ZEL_MSG_INFO, text); }

void copyXMLFile(const char* source, const char* targetBase) {
  const zel::Temp from(ZEL_StrToSTRING(source));
  const zel::Temp to(ZEL_StrToSTRING((std::string(targetBase) + ".xml").c_str()));
  const zel::Temp overwrite(ZEL_GettmpInt(1));
  ZEL_FileCopy(from.get(), to.get(), overwrite.get());
  ZEL_FileOpChmod(to.get(), 0666);
}

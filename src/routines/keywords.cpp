#include "routines/keywords.h"

namespace ogc {

std::pair<const ZEL_STRING*, std::int64_t> Converted::texts() const noexcept {
  std::int64_t n = 0;
  char* data = nullptr;
  ZEL_VarGetData(m_value, &n, &data);
  return {reinterpret_cast<const ZEL_STRING*>(data), n};
}

void requireScalar(const ZEL_Variable* v) {
  if ((v->flags & ZEL_V_ARR) != 0) ZEL_MessageVE_NOTSCALAR(v);
}

std::string textOf(ZEL_Variable* v) {
  if (v->type != ZEL_TYP_STRING) ZEL_MessageVE_REQSTR(v);
  requireScalar(v);
  return cString(v->value.str);
}

std::int16_t fixOf(ZEL_Variable* v) {
  requireScalar(v);
  return Converted(v, ZEL_TYP_INT)->value.i;
}

std::int32_t longOf(ZEL_Variable* v) {
  requireScalar(v);
  return Converted(v, ZEL_TYP_LONG)->value.l;
}

std::vector<std::string> textsOf(ZEL_Variable* v) {
  if (v->type != ZEL_TYP_STRING) ZEL_MessageVE_REQSTR(v);
  const auto [first, n] = Converted(v, ZEL_TYP_STRING).texts();
  std::vector<std::string> texts;
  std::transform(first, first + n, std::back_inserter(texts), cString);
  return texts;
}

void store(ZEL_Variable* output, std::int32_t value) {
  if (output != nullptr) ZEL_StoreScalar(output, ZEL_TYP_LONG, &value);
}

} // namespace ogc

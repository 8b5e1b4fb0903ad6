#include "host/strings.h"

#include "host/memory.h"
#include "host/messages.h"

#include <algorithm>
#include <cstring>

namespace zel::host {

void store(ZEL_STRING& dst, std::string_view text) {
  char* copy = text.empty() ? nullptr : copyText(text);
  release(dst.s);
  dst = {static_cast<std::int64_t>(text.size()), copy};
}

ZEL_Variable* makeTempString(std::string_view text) {
  Temp v(ZEL_Gettmp());
  v->type = ZEL_TYP_STRING;
  store(v->value.str, text);
  return v.release();
}

std::string scalarText(ZEL_Variable* v) {
  if (v->type != ZEL_TYP_STRING) ZEL_MessageVE_REQSTR(v);
  if ((v->flags & ZEL_V_ARR) != 0) ZEL_MessageVE_NOTSCALAR(v);
  return std::string(text(v->value.str));
}

std::string upper(std::string_view name) {
  std::string out(name);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
  return out;
}

} // namespace zel::host

void ZEL_StrStore(ZEL_STRING* dst, const char* text) { zel::host::store(*dst, text != nullptr ? text : ""); }

void ZEL_StrDelete(ZEL_STRING* s, std::int64_t n) noexcept {
  for (ZEL_STRING* end = s + n; s != end; ++s) {
    if (s->s != nullptr) zel::host::release(s->s);
    *s = {0, nullptr};
  }
}

ZEL_Variable* ZEL_StrToSTRING(const char* text) { return zel::host::makeTempString(text != nullptr ? text : ""); }

std::size_t ZEL_StrBase_strlcat(char* dst, const char* src, std::size_t size) noexcept {
  const std::size_t have = strnlen(dst, size);
  const std::size_t more = std::strlen(src);
  if (have < size) {
    const std::size_t fits = std::min(more, size - have - 1);
    std::memcpy(dst + have, src, fits);
    dst[have + fits] = '\0';
  }
  return have + more;
}

#include "host/variables.h"

#include "host/memory.h"
#include "host/messages.h"
#include "host/strings.h"
#include "host/structs.h"

#include <array>
#include <cstring>
#include <utility>

namespace zel::host {

namespace {

struct TypeRow {
  std::int64_t size;
  const char* name;
};

constexpr std::array<TypeRow, 15> typeRows{{{0, "undefined"},
                                            {1, "byte"},
                                            {2, "16-bit integer"},
                                            {2, "unsigned 16-bit integer"},
                                            {4, "32-bit integer"},
                                            {4, "unsigned 32-bit integer"},
                                            {sizeof(float), "float"},
                                            {sizeof(double), "double"},
                                            {sizeof(ZEL_STRING), "string"},
                                            {0, "structure"},
                                            {sizeof(ZEL_HVID), "pointer"},
                                            {sizeof(ZEL_HVID), "object"},
                                            {0, "type 12"},
                                            {8, "unsigned 64-bit integer"},
                                            {8, "64-bit integer"}}};

/// Calls `f(texts, count)` for every run of host strings in `n` elements.
template <typename F>
void forTexts(ZEL_Type type, const ZEL_StructDef* sdef, std::int64_t n, char* data, F&& f) {
  if (type == ZEL_TYP_STRING) {
    f(reinterpret_cast<ZEL_STRING*>(data), n);
  } else if (type == ZEL_TYP_STRUCT) {
    for (char* element = data; n > 0; --n, element += sdef->size)
      for (const TextRun& run : sdef->texts) f(reinterpret_cast<ZEL_STRING*>(element + run.offset), run.count);
  }
}

std::int64_t elementSize(const ZEL_Variable& v) noexcept { return v.sdef != nullptr ? v.sdef->size : typeSize(v.type); }

/// Copies the value of a variable into one that is undefined.
void copyValue(const ZEL_Variable& src, ZEL_Variable& dst) {
  if (src.data == nullptr) {
    if (src.type == ZEL_TYP_STRING)
      store(dst.value.str, text(src.value.str));
    else
      dst.value = src.value;
  } else {
    const std::int64_t size = elementSize(src);
    char* data = allocate(src.n, size);
    std::memcpy(data, src.data, static_cast<std::size_t>(src.n * size));
    forTexts(src.type, src.sdef, src.n, data, [](ZEL_STRING* s, std::int64_t count) {
      for (ZEL_STRING* end = s + count; s != end; ++s)
        if (s->s != nullptr) s->s = copyText(text(*s));
    });
    dst.data = data;
    dst.n = src.n;
    dst.sdef = src.sdef;
    hold(dst.sdef);
  }
  dst.type = src.type;
  dst.flags = static_cast<std::uint8_t>((dst.flags & ZEL_V_TEMP) | (src.flags & ZEL_V_ARR));
}

/// Moves the value of a variable into one that is undefined.
void moveValue(ZEL_Variable& src, ZEL_Variable& dst) noexcept {
  const auto dstTemp = static_cast<std::uint8_t>(dst.flags & ZEL_V_TEMP);
  const auto srcTemp = static_cast<std::uint8_t>(src.flags & ZEL_V_TEMP);
  dst = src;
  dst.flags = static_cast<std::uint8_t>(dstTemp | (src.flags & ZEL_V_ARR));
  src = ZEL_Variable{};
  src.flags = srcTemp;
}

} // namespace

std::int64_t typeSize(ZEL_Type type) noexcept { return type < typeRows.size() ? typeRows[type].size : 0; }

const char* typeName(ZEL_Type type) noexcept { return type < typeRows.size() ? typeRows[type].name : "unknown type"; }

std::string describe(const ZEL_Variable* v) {
  if (v == nullptr || v->type == ZEL_TYP_UNDEF) return "an undefined variable";
  std::string name = typeName(v->type);
  if ((v->flags & ZEL_V_ARR) != 0) return "an array of " + std::to_string(v->n) + " (" + name + ')';
  if (v->type == ZEL_TYP_STRING) return name + " \"" + std::string(text(v->value.str)) + '"';
  if (v->type == ZEL_TYP_STRUCT || v->type == ZEL_TYP_PTR || v->type == ZEL_TYP_OBJREF) return name;
  const Temp number(ZEL_CvtString(const_cast<ZEL_Variable*>(v)));
  const std::string_view digits = text(number->value.str);
  return name + ' ' + std::string(digits.substr(digits.find_first_not_of(' ')));
}

void clear(ZEL_Variable& v) noexcept {
  std::int64_t n = 0;
  char* data = nullptr;
  ZEL_VarGetData(&v, &n, &data);
  forTexts(v.type, v.sdef, n, data, [](ZEL_STRING* s, std::int64_t count) { ZEL_StrDelete(s, count); });
  release(v.data);
  drop(v.sdef);
  const auto flags = static_cast<std::uint8_t>(v.flags & ZEL_V_TEMP);
  v = ZEL_Variable{};
  v.flags = flags;
}

char* makeArray(ZEL_Variable& v, ZEL_Type type, std::int64_t n) {
  const std::int64_t size = typeSize(type);
  if (size == 0) raise(std::string("An array cannot have elements of this type: ") + typeName(type) + '.');
  if (n < 1) raise("An array needs at least one element.");
  v.data = allocate(n, size);
  v.n = n;
  v.type = type;
  v.flags |= ZEL_V_ARR;
  return v.data;
}

char* makeStructs(ZEL_Variable& v, const ZEL_StructDef* sdef, std::int64_t n) {
  if (sdef == nullptr) raise("A structure needs a definition.");
  if (n < 1) raise("An array of structures needs at least one element.");
  v.data = allocate(n, sdef->size);
  v.n = n;
  v.type = ZEL_TYP_STRUCT;
  v.flags |= ZEL_V_ARR;
  v.sdef = sdef;
  hold(sdef);
  return v.data;
}

} // namespace zel::host

using namespace zel::host;

void ZEL_VarCopy(ZEL_Variable* src, ZEL_Variable* dst) {
  if (src == dst) return;
  if ((src->flags & ZEL_V_TEMP) != 0) {
    clear(*dst);
    moveValue(*src, *dst);
    ZEL_Deltmp(src);
    return;
  }
  Variable copy;
  copyValue(*src, *copy);
  clear(*dst);
  moveValue(*copy, *dst);
}

void ZEL_StoreScalar(ZEL_Variable* dst, ZEL_Type type, const void* value) {
  const std::int64_t size = typeSize(type);
  if (size == 0) raise(std::string("A scalar cannot have this type: ") + typeName(type) + '.');
  Variable scalar;
  if (type == ZEL_TYP_STRING)
    store(scalar->value.str, text(*static_cast<const ZEL_STRING*>(value)));
  else
    std::memcpy(&scalar->value, value, static_cast<std::size_t>(size));
  scalar->type = type;
  clear(*dst);
  moveValue(*scalar, *dst);
}

void ZEL_VarGetData(ZEL_Variable* v, std::int64_t* n, char** data) noexcept {
  const bool scalar = v->data == nullptr && v->type != ZEL_TYP_UNDEF;
  *n = scalar ? 1 : v->n;
  *data = scalar ? reinterpret_cast<char*>(&v->value) : v->data;
}

// Conversion of variables from type to type.
#include "host/messages.h"
#include "host/routines.h"
#include "host/strings.h"
#include "host/variables.h"
#include "zel_module.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <type_traits>

namespace zel::host {

namespace {

[[noreturn]] void refuse(const ZEL_Variable* v, ZEL_Type to) {
  raise(argumentLabel(v) + "Unable to convert " + describe(v) + " to type " + typeName(to) + '.');
}

/// Calls `f` with the C++ type of a number type. \return false when it is no number type.
template <typename F>
bool withNumberType(ZEL_Type type, F&& f) {
  const auto call = [&f]<typename T>(std::type_identity<T> identity) {
    f(identity);
    return true;
  };
  switch (type) {
  case ZEL_TYP_BYTE: return call(std::type_identity<std::uint8_t>{});
  case ZEL_TYP_INT: return call(std::type_identity<std::int16_t>{});
  case ZEL_TYP_UINT: return call(std::type_identity<std::uint16_t>{});
  case ZEL_TYP_LONG: return call(std::type_identity<std::int32_t>{});
  case ZEL_TYP_ULONG: return call(std::type_identity<std::uint32_t>{});
  case ZEL_TYP_FLOAT: return call(std::type_identity<float>{});
  case ZEL_TYP_DOUBLE: return call(std::type_identity<double>{});
  case ZEL_TYP_ULONG64: return call(std::type_identity<std::uint64_t>{});
  case ZEL_TYP_LONG64: return call(std::type_identity<std::int64_t>{});
  default: return false;
  }
}

/// A floating-point number as an integer: without its fraction, limited to the range of the type; 0 for NaN.
template <typename To>
To truncate(double x) {
  if (std::isnan(x)) return 0;
  if (x >= static_cast<double>(std::numeric_limits<To>::max())) return std::numeric_limits<To>::max();
  if (x <= static_cast<double>(std::numeric_limits<To>::min())) return std::numeric_limits<To>::min();
  return static_cast<To>(x);
}

/// A number as another number type; integers wrap to the width of the target.
template <typename To, typename From>
To wrap(From x) {
  if constexpr (std::is_integral_v<To> && std::is_floating_point_v<From>) {
    if (std::is_same_v<To, std::uint64_t> && x >= 0) return static_cast<To>(truncate<std::uint64_t>(x));
    return static_cast<To>(truncate<std::int64_t>(x));
  } else {
    return static_cast<To>(x);
  }
}

template <typename T>
std::optional<T> readWhole(std::string_view text) {
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

template <typename To>
std::optional<To> readNumber(std::string_view given) {
  constexpr std::string_view spaces = " \t\r\n";
  std::string_view text = given;
  text.remove_prefix(std::min(text.find_first_not_of(spaces), text.size()));
  text.remove_suffix(text.size() - (text.find_last_not_of(spaces) + 1));
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  if constexpr (std::is_integral_v<To>) {
    if (const auto value = readWhole<std::int64_t>(text)) return wrap<To>(*value);
    if (const auto value = readWhole<std::uint64_t>(text)) return wrap<To>(*value);
  }
  const auto value = readWhole<double>(text);
  if (!value || (std::is_integral_v<To> && !std::isfinite(*value))) return std::nullopt;
  return wrap<To>(*value);
}

/// Width in characters of a number as text: that of the widest value of its type and at least one leading space.
template <typename T>
constexpr std::size_t textWidth() {
  if (std::is_floating_point_v<T>) return sizeof(T) == sizeof(double) ? 25 : 16;
  constexpr std::size_t ofIntegers[] = {0, 4, 8, 0, 12, 0, 0, 0, 22}; // by their size in bytes
  return ofIntegers[sizeof(T)];
}

template <typename T>
void writeNumber(T value, ZEL_STRING& out) {
  std::array<char, 32> digits{};
  char* const end = digits.data() + digits.size();
  const auto length = static_cast<std::size_t>(std::to_chars(digits.data(), end, value).ptr - digits.data());
  std::string padded(textWidth<T>() > length ? textWidth<T>() - length : 0, ' ');
  padded.append(digits.data(), length);
  store(out, padded);
}

template <typename From>
bool convertFrom(const From* from, std::int64_t n, ZEL_Type type, char* out) {
  if (type == ZEL_TYP_STRING) {
    auto* texts = reinterpret_cast<ZEL_STRING*>(out);
    for (std::int64_t k = 0; k < n; ++k) writeNumber(from[k], texts[k]);
    return true;
  }
  return withNumberType(type, [&]<typename To>(std::type_identity<To>) {
    auto* to = reinterpret_cast<To*>(out);
    for (std::int64_t k = 0; k < n; ++k) to[k] = wrap<To>(from[k]);
  });
}

bool convertTexts(const ZEL_Variable* v, const ZEL_STRING* from, std::int64_t n, ZEL_Type type, char* out) {
  return withNumberType(type, [&]<typename To>(std::type_identity<To>) {
    auto* to = reinterpret_cast<To*>(out);
    for (std::int64_t k = 0; k < n; ++k) {
      const auto number = readNumber<To>(text(from[k]));
      if (!number)
        raise(argumentLabel(v) + "Unable to read the text \"" + std::string(text(from[k])) + "\" as a number.");
      to[k] = *number;
    }
  });
}

bool convertElements(const ZEL_Variable* v, const char* from, std::int64_t n, ZEL_Type toType, char* out) {
  if (v->type == ZEL_TYP_STRING) return convertTexts(v, reinterpret_cast<const ZEL_STRING*>(from), n, toType, out);
  bool done = false;
  withNumberType(v->type, [&]<typename From>(std::type_identity<From>) {
    done = convertFrom(reinterpret_cast<const From*>(from), n, toType, out);
  });
  return done;
}

} // namespace

std::int64_t scalarInteger(ZEL_Variable* v) {
  if ((v->flags & ZEL_V_ARR) != 0) ZEL_MessageVE_NOTSCALAR(v);
  ZEL_Variable* integer = ZEL_VarTypeConvert(v, ZEL_TYP_LONG64);
  const Temp converted(integer == v ? nullptr : integer);
  return integer->value.l64;
}

} // namespace zel::host

using namespace zel::host;

ZEL_Variable* ZEL_VarTypeConvert(ZEL_Variable* v, ZEL_Type type) {
  if (v->type == ZEL_TYP_UNDEF || typeSize(type) == 0) refuse(v, type);
  if (v->type == type) return v;
  std::int64_t n = 0;
  char* from = nullptr;
  ZEL_VarGetData(v, &n, &from);
  zel::Temp out(ZEL_Gettmp());
  char* to = nullptr;
  if ((v->flags & ZEL_V_ARR) != 0) {
    to = makeArray(*out, type, n);
  } else {
    out->type = type;
    to = reinterpret_cast<char*>(&out->value);
  }
  if (!convertElements(v, from, n, type, to)) refuse(v, type);
  return out.release();
}

ZEL_Variable* ZEL_CvtString(ZEL_Variable* v) { return ZEL_VarTypeConvert(v, ZEL_TYP_STRING); }

ZEL_Variable* ZEL_CvtFix(ZEL_Variable* v) { return ZEL_VarTypeConvert(v, ZEL_TYP_INT); }

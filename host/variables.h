/// \file
/// Variables: their elements, their lifetime, and how messages describe them.
#pragma once

#include "zel_module.h"

#include <cstdint>
#include <string>

namespace zel::host {

/// Size in bytes of an element of a type; 0 for undefined and for structures, whose size is in their definition.
std::int64_t typeSize(ZEL_Type type) noexcept;
/// A type as messages name it, such as "16-bit integer".
const char* typeName(ZEL_Type type) noexcept;
/// A variable as messages describe it: its type with the value of a scalar or the size of an array, such as
/// "string \"x\"".
std::string describe(const ZEL_Variable* v);

/// The value of a variable as an integer.
std::int64_t scalarInteger(ZEL_Variable* v);

/// Releases what a variable owns and leaves it undefined.
void clear(ZEL_Variable& v) noexcept;
/// Makes an undefined variable an array of `n` zero-filled elements. \return the address of the first.
char* makeArray(ZEL_Variable& v, ZEL_Type type, std::int64_t n);
/// Makes an undefined variable an array of `n` zero-filled structures. \return the address of the first.
char* makeStructs(ZEL_Variable& v, const ZEL_StructDef* sdef, std::int64_t n);

/// Owns a variable, at first undefined.
class Variable {
public:
  Variable() noexcept = default;
  ~Variable() { clear(m_variable); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

  ZEL_Variable* get() noexcept { return &m_variable; }
  ZEL_Variable* operator->() noexcept { return &m_variable; }
  ZEL_Variable& operator*() noexcept { return m_variable; }

private:
  ZEL_Variable m_variable{};
};

} // namespace zel::host

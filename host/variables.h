/// \file
/// Variables: their elements, their life, and how they are named to users.
#pragma once

#include "zel_module.h"

#include <cstdint>
#include <string>

namespace zel::host {

/// Bytes of one element of a type; 0 for undefined and for structures, whose definition tells.
std::int64_t typeSize(ZEL_Type type) noexcept;
/// A type as users are told of it ("16-bit integer").
const char* typeName(ZEL_Type type) noexcept;
/// A variable as users are told of it: type, size, and the value of a text or number ("string \"x\"").
std::string describe(const ZEL_Variable* v);

/// The value of a variable as an integer.
std::int64_t scalarInteger(ZEL_Variable* v);

/// Releases what a variable owns and leaves it undefined.
void clear(ZEL_Variable& v) noexcept;
/// Makes an undefined variable an array of `n` zeroed elements. \return the first.
char* makeArray(ZEL_Variable& v, ZEL_Type type, std::int64_t n);
/// Makes an undefined variable an array of `n` zeroed structures. \return the first.
char* makeStructs(ZEL_Variable& v, const ZEL_StructDef* sdef, std::int64_t n);

/// A variable of the front end's: empty at first, released at the end.
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

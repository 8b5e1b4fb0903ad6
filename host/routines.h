/// \file
/// System routines: their registration, and the frame in which one runs.
#pragma once

#include "zel_module.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zel::host {

/// A registered routine. Lives as long as the process.
struct Routine {
  std::string name;
  ZEL_SysRtnPtr code;
  bool isFunction;
  int argMin;
  int argMax;
  bool takesKeywords;
};

/// The routine of that name (upper case); null when there is none.
const Routine* findRoutine(std::string_view name);
/// The method of a class or of what it inherits (upper case); null when there is none.
const Routine* findMethod(const ZEL_ObjDef* objdef, std::string_view method);
/// Names of the methods of a class, sorted, without the class name.
std::vector<std::string> methodNames(const ZEL_ObjDef* objdef);

/// Runs a routine: checks the arguments, calls its code and releases, and counts as leaked, temporaries that it left.
/// \return the result of a function, empty for a procedure.
Temp callRoutine(const Routine& routine, int argc, ZEL_Variable** argv, const ZEL_Keywords& keywords);

/// How many routines are running, one called from the status routine of another.
int routineDepth() noexcept;
/// "NAME:" of the running routine; empty when none runs.
std::string routinePrefix();
/// "keyword NAME: " or "argument N: " when the value is one of the running routine's; otherwise empty.
std::string argumentLabel(const ZEL_Variable* v);
/// Temporaries that routines have left so far.
std::int64_t leakedTemporaries() noexcept;

/// Keeps temporaries of the running routine's keywords until they are released. \return number for releaseKept().
std::int32_t keepForKeywords(std::vector<Temp> temporaries);
/// Releases what keepForKeywords() was given.
void releaseKept(std::int32_t number) noexcept;

} // namespace zel::host

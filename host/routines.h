/// \file
/// System routines: how they are registered and called.
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

/// The routine with a name (upper case); null if there is none.
const Routine* findRoutine(std::string_view name);
/// A method (upper case) of a class or of those that it inherits; null if there is none.
const Routine* findMethod(const ZEL_ObjDef* objdef, std::string_view method);
/// Names of the methods of a class, sorted, without the class name.
std::vector<std::string> methodNames(const ZEL_ObjDef* objdef);

/// Checks the arguments and calls the code of a routine. Temporaries that it left over are released and counted as
/// leaked. \return the result of a function, empty for a procedure.
Temp callRoutine(const Routine& routine, int argc, ZEL_Variable** argv, const ZEL_Keywords& keywords);

/// How many routines are running: more than one if a status routine calls another.
int routineDepth() noexcept;
/// "NAME:" for the running routine; empty if there is none.
std::string routinePrefix();
/// "keyword NAME: " or "argument N: " if the variable is one of the running routine's, otherwise empty.
std::string argumentLabel(const ZEL_Variable* v);
/// How many temporaries routines have left over so far.
std::int64_t leakedTemporaries() noexcept;

/// Keeps temporaries made for the keywords of the running routine. \return the number to release them with.
std::int32_t keepForKeywords(std::vector<Temp> temporaries);
/// Releases the temporaries that keepForKeywords() numbered.
void releaseKept(std::int32_t number) noexcept;

} // namespace zel::host

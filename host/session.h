/// \file
/// What connects native code and the interpreter: calls to script routines, session reset, interrupts.
#pragma once

#include "zel_module.h"

#include <string>

namespace zel::host {

/// The interpreter: runs the scripts.
class FrontEnd {
public:
  virtual ~FrontEnd() = default;

  /// Calls a script routine and stores its value in `result`, unless that is null. If the routine returns nothing, the
  /// value is 1; if it returns `false`, 0. Raises an error if the call fails.
  virtual void callScript(const std::string& routine, int argc, ZEL_Variable** argv, ZEL_Variable* result) = 0;
};

/// Sets the interpreter; null for none.
void setFrontEnd(FrontEnd* frontEnd) noexcept;

/// Runs all registered session resets. Raises an error if a routine is running or a reset reports that it failed.
void resetSession();

/// Records that the user asked to interrupt. May be called in a signal handler.
void requestInterrupt() noexcept;
/// Has the user asked to interrupt since the last call?
bool takeInterrupt() noexcept;

} // namespace zel::host

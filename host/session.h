/// \file
/// What lies between native code and the interpreter: calls of script routines, session reset, interrupts.
#pragma once

#include "zel_module.h"

#include <string>

namespace zel::host {

/// The interpreter behind the host: what runs the scripts.
class FrontEnd {
public:
  FrontEnd() = default;
  virtual ~FrontEnd() = default;
  FrontEnd(const FrontEnd&) = delete;
  FrontEnd& operator=(const FrontEnd&) = delete;

  /// Calls a script routine and stores its value into `result` (null: not wanted). Nothing returned counts as 1,
  /// `false` as 0. Raises what goes wrong.
  virtual void callScript(const std::string& routine, int argc, ZEL_Variable** argv, ZEL_Variable* result) = 0;
};

/// Sets the interpreter; null takes it away.
void setFrontEnd(FrontEnd* frontEnd) noexcept;

/// Runs all registered session resets; raises when one reports that it could not.
void resetSession();

/// Notes that the user asked to interrupt. Safe in a signal handler.
void requestInterrupt() noexcept;
/// Whether an interrupt was asked for since the last call.
bool takeInterrupt() noexcept;

} // namespace zel::host

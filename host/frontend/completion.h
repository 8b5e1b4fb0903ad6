/// \file
/// Completion of names at the prompt.
#pragma once

#include "frontend/support.h"

#include <string>

namespace zel::lua {

/// Has readline complete names during its lifetime, with the Lua module zel.complete, which runs no code of a script.
/// If that fails, nothing is offered: no error reaches readline.
class Completion {
public:
  explicit Completion(lua_State* L);
  ~Completion();
  Completion(const Completion&) = delete;
  Completion& operator=(const Completion&) = delete;

  /// Sets the lines of the statement above the one that is edited.
  static void setAbove(const std::string& lines);
};

} // namespace zel::lua

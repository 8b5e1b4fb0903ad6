/// \file
/// The two ways to stop a script from outside: os.exit called below native code, and Ctrl-C.
#pragma once

#include "frontend/support.h"

#include <csignal>

namespace zel::lua {

/// Replaces os.exit by one that lets running native code unwind first, whichever coroutine calls it.
void openStop(lua_State* L);

/// Sets the states that Ctrl-C stops: the main one, and the running coroutine if it is known.
void setInterruptible(lua_State* main, lua_State* current) noexcept;

/// During its lifetime, Ctrl-C raises "interrupted!" in the script. A second one unwinds the whole script, whatever it
/// catches. One that comes before the script has reacted to the last, or after the second, ends the process. An ignored
/// signal stays ignored.
class Interruptible {
public:
  Interruptible() noexcept;
  ~Interruptible();
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;

private:
  struct sigaction m_outer {};
};

} // namespace zel::lua

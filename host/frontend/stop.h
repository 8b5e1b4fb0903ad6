/// \file
/// The two ways in which a script is stopped from outside its own flow: os.exit below native code, and Ctrl-C.
#pragma once

#include "frontend/support.h"

#include <csignal>

namespace zel::lua {

/// Replaces os.exit by one that lets running native code unwind first, whichever coroutine calls it.
void openStop(lua_State* L);

/// Tells which states Ctrl-C stops: the main one, and the coroutine that runs as far as it is known.
void setInterruptible(lua_State* main, lua_State* current) noexcept;

/// While it lives, Ctrl-C raises "interrupted!" in the script. A second one unwinds the whole script, whatever it
/// catches. One that comes before the script has seen the last, or later than the second, ends the process. An ignored
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

/// \file
/// The script interpreter: a Lua state with the `zel` library, and the host's way to call scripts.
#pragma once

#include "frontend/support.h"
#include "host/session.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zel::lua {

/// One interpreter; only one is alive at a time.
class Interpreter final : public host::FrontEnd {
public:
  Interpreter();
  ~Interpreter() override;

  lua_State* state() const noexcept { return m_main; }
  /// The interpreter of a state or coroutine.
  static Interpreter& of(lua_State* L) noexcept;

  void callScript(const std::string& routine, int argc, ZEL_Variable** argv, ZEL_Variable* result) override;

  /// Runs the collector if the memory of all objects is twice what was left after the last run. By itself the
  /// collector sees only the userdata.
  void collectObjects(lua_State* L);

  /// Ends the script with an exit code as soon as no native code runs.
  struct Exit {
    int code;
    bool close;
  };
  std::optional<Exit> exitAsked;
  /// The object whose method failed last.
  ZEL_HVID failedObject = 0;

  /// Makes a coroutine the one that native code calls back into during the result's lifetime.
  [[nodiscard]] static auto calling(lua_State* L) noexcept {
    Interpreter& self = of(L);
    return AtEnd([&self, outer = self.setCurrent(L)] { self.setCurrent(outer); });
  }

private:
  lua_State* setCurrent(lua_State* L) noexcept; ///< \return the one before

  lua_State* m_main;
  lua_State* m_current;
  std::int64_t m_collectAt = 0; ///< bytes of objects at which to run the collector
};

} // namespace zel::lua

/// \file
/// Errors of the host routines: how they are raised, and the one rule that turns native exceptions into messages.
#pragma once

#include "zel_curl_exception.h"
#include "zel_module.h"

#include <optional>
#include <string>
#include <utility>

namespace ogc {

/// Raises a text as the routine's error.
[[noreturn]] void fail(const std::string& text);

/// Reports a native exception: the message of a CCurlException, the same text for every other (nothing given).
void report(const std::optional<CCurlException>& failure, int action);

/// Runs the body of a host routine. What it throws is reported with `action` (ZEL_MsgAction), once its frames are gone;
/// an error of the host passes through. \return whether the body came to its end.
template <typename Body>
bool guard(int action, Body&& body) {
  std::optional<CCurlException> failure;
  try {
    std::forward<Body>(body)();
    return true;
  } catch (const ZEL_Unwind&) {
    throw;
  } catch (const CCurlException& e) {
    failure = e;
  } catch (...) {
    failure.reset();
  }
  report(failure, action);
  return false;
}

/// Runs the body of a function, which returns a zel::Temp, and hands its result on.
template <typename Body>
ZEL_Variable* runFunction(Body&& body) {
  zel::Temp result;
  guard(ZEL_MSG_ERROR, [&] { result = std::forward<Body>(body)(); });
  return result.release();
}

/// Runs the body of a procedure.
template <typename Body>
void runProcedure(Body&& body) {
  guard(ZEL_MSG_ERROR, std::forward<Body>(body));
}

} // namespace ogc

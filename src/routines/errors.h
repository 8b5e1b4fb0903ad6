/// \file
/// Errors of the host routines: how they are raised, and how native exceptions become messages.
#pragma once

#include "zel_curl_exception.h"
#include "zel_module.h"

#include <optional>
#include <string>
#include <utility>

namespace ogc {

/// Raises a text as the routine's error.
[[noreturn]] void fail(const std::string& text);

/// Reports a native exception: the message of a CCurlException, or the one text for all others if `failure` is empty.
void report(const std::optional<CCurlException>& failure, int action);

/// Runs the body of a host routine and reports what it throws with `action` (ZEL_MsgAction), after its stack has been
/// unwound. Errors of the host pass through. \return true if the body did not throw.
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

/// Runs the body of a function, which returns a zel::Temp. \return its result.
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

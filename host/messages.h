/// \file
/// Errors and informational messages. The text of an error is kept here while ZEL_Unwind unwinds the stack.
#pragma once

#include <functional>
#include <string>

namespace zel::host {

struct Error {
  std::string text;
  bool fromScript = false; ///< raised by a script that a routine called; the front end holds the error value
};

/// Raises an error: keeps the text, prefixed by the name of the running routine, and throws ZEL_Unwind.
[[noreturn]] void raise(const std::string& text);
/// The same for a system error: appends the description of `errnum`.
[[noreturn]] void raiseErrno(const std::string& text, int errnum);
/// Raises an error without a prefix: one that a script raised, or the result of takeError().
[[noreturn]] void raise(Error error);
/// The error of a ZEL_Unwind that was caught.
Error takeError();

/// Receives the lines of informational messages.
using InfoSink = std::function<void(const std::string&)>;
void inform(const std::string& text);

/// Redirects informational messages during its lifetime. Otherwise they go to standard error.
class InfoRedirect {
public:
  explicit InfoRedirect(InfoSink sink);
  ~InfoRedirect();
  InfoRedirect(const InfoRedirect&) = delete;
  InfoRedirect& operator=(const InfoRedirect&) = delete;

private:
  InfoSink m_outer;
};

} // namespace zel::host

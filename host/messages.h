/// \file
/// Errors and informational messages. The text of an error is kept here while ZEL_Unwind carries control back.
#pragma once

#include <functional>
#include <string>

namespace zel::host {

/// What the last error said.
struct Error {
  std::string text;
  bool fromScript = false; ///< raised by script code that a routine called; the front end holds the error value
};

/// Raises an error: the text, prefixed by the name of the running routine, is kept and ZEL_Unwind thrown.
[[noreturn]] void raise(const std::string& text);
/// The same for an error of the system: adds what `errnum` means.
[[noreturn]] void raiseErrno(const std::string& text, int errnum);
/// Raises an error as it is, without prefix: one that script code raised below a routine, or one taken before.
[[noreturn]] void raise(Error error);
/// The error that a caught ZEL_Unwind stands for.
Error takeError();

/// Receives the lines of informational messages.
using InfoSink = std::function<void(const std::string&)>;
/// Prints an informational message through the sink.
void inform(const std::string& text);

/// Redirects informational messages while it lives. Without redirection they go to standard error.
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

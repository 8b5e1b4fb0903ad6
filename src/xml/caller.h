/// \file
/// What the reader needs from its caller.
#pragma once

#include <cstddef>
#include <string>

namespace ogc::xml {

/// Receives reports on a document while it is read.
class Reporter {
public:
  virtual void reportStatus(const char* text) = 0;
  /// The same for a warning.
  virtual void reportWarning(const char* text) = 0;

  /// Reports a warning, cut to the length of a message.
  void warn(const std::string& text);
  /// Reports a text composed as by `printf`, cut to the length of a message, and throws it as a CCurlException.
  [[noreturn]] [[gnu::format(printf, 2, 3)]] void fail(const char* format, ...);

protected:
  ~Reporter() = default;
};

/// Fetches the DTD and schemas that are on a server.
class Fetcher {
public:
  /// \throws Refusal if it is unavailable or larger than `limit` bytes.
  virtual std::string fetchGrammar(const std::string& url, std::size_t limit) = 0;

protected:
  ~Fetcher() = default;
};

} // namespace ogc::xml

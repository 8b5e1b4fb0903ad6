/// \file
/// The one exception type of the module.
#pragma once

/// A failure with a message of at most 1023 characters, always terminated. Both constructors end the message with a
/// point of their own, also behind a text that already ends in one.
class CCurlException {
public:
  /// The message is "%s.".
  explicit CCurlException(char const* msg) noexcept;
  /// The message is "%s %s."; a null detail prints as nothing.
  CCurlException(char const* msg, char const* detail) noexcept;

  [[nodiscard]] const char* ErrMsg() const noexcept { return m_msg; }

private:
  char m_msg[1024];
};

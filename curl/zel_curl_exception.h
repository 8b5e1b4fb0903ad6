/// \file
/// The one exception type of the module.
#pragma once

/// A failure with a message of at most 1023 bytes, always terminated, without secrets and control characters (`shown`).
/// Both constructors add a full stop, also after a text that already ends in one.
class CCurlException {
public:
  /// The message is "%s.".
  explicit CCurlException(const char* msg);
  /// The message is "%s %s."; a null detail prints as nothing.
  CCurlException(const char* msg, const char* detail);

  [[nodiscard]] const char* ErrMsg() const noexcept { return m_msg; }

private:
  char m_msg[1024];
};

#include "zel_curl_exception.h"

#include <cstdio>

CCurlException::CCurlException(char const* msg) noexcept {
  std::snprintf(m_msg, sizeof m_msg, "%s.", msg != nullptr ? msg : "");
}

CCurlException::CCurlException(char const* msg, char const* detail) noexcept {
  std::snprintf(m_msg, sizeof m_msg, "%s %s.", msg != nullptr ? msg : "", detail != nullptr ? detail : "");
}

#include "zel_curl_exception.h"

#include "zel_curl_shown.h"
#include "zel_curl_text.h"

CCurlException::CCurlException(const char* msg) {
  transfer::copyTruncated(m_msg, sizeof m_msg, transfer::shown(msg != nullptr ? msg : "") + '.');
}

CCurlException::CCurlException(const char* msg, const char* detail) {
  const std::string text = std::string(msg != nullptr ? msg : "") + ' ' + (detail != nullptr ? detail : "") + '.';
  transfer::copyTruncated(m_msg, sizeof m_msg, transfer::shown(text));
}

#include "xml/caller.h"

#include "zel_curl_exception.h"
#include "zel_curl_text.h"

#include <cstdarg>

namespace ogc::xml {

void Reporter::warn(const std::string& text) {
  reportWarning(std::string(transfer::cutAt(text, transfer::messageLimit)).c_str());
}

void Reporter::fail(const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  const std::string text = transfer::formatLimited(transfer::messageLimit, format, args);
  va_end(args);
  reportStatus(text.c_str());
  throw CCurlException(text.c_str());
}

} // namespace ogc::xml

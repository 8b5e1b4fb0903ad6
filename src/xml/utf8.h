/// \file
/// Between the parser's characters and UTF-8.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <xercesc/util/TransService.hpp>

namespace ogc::xml {

using String = std::basic_string<XMLCh>;

/// The parser's characters of a UTF-8 text. A text that is not UTF-8 is taken byte by byte.
[[nodiscard]] String fromUtf8(std::string_view text);
/// UTF-8 of a text, "" for null.
[[nodiscard]] std::string toUtf8(const XMLCh* text);

/// Converts the parser's characters to UTF-8.
class Utf8 {
public:
  /// UTF-8 of `length` characters; valid until the next call.
  [[nodiscard]] std::string_view operator()(const XMLCh* chars, XMLSize_t length);
  [[nodiscard]] std::string_view operator()(const XMLCh* text);

private:
  std::unique_ptr<xercesc::XMLTranscoder> m_transcoder;
  std::string m_buffer;
};

} // namespace ogc::xml

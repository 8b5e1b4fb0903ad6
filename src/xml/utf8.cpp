#include "xml/utf8.h"

#include <algorithm>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUTF8Transcoder.hpp>

namespace ogc::xml {

namespace {

/// Copies the ASCII characters that a text begins with. \return their number
std::size_t copyAscii(char* to, const XMLCh* chars, std::size_t length) noexcept {
  constexpr std::size_t block = 8; // becomes a few vector instructions
  std::size_t done = 0;
  for (; done + block <= length; done += block) {
    XMLCh bits = 0;
    for (std::size_t i = 0; i < block; ++i) bits |= chars[done + i];
    if (bits >= 0x80) break;
    for (std::size_t i = 0; i < block; ++i) to[done + i] = static_cast<char>(chars[done + i]);
  }
  for (; done < length && chars[done] < 0x80; ++done) to[done] = static_cast<char>(chars[done]);
  return done;
}

/// The length of a text up to its first half of a surrogate pair.
std::size_t wholeLength(const XMLCh* chars, std::size_t length) noexcept {
  const auto isHigh = [](XMLCh c) { return c >= 0xD800 && c < 0xDC00; };
  const auto isLow = [](XMLCh c) { return c >= 0xDC00 && c < 0xE000; };
  std::size_t done = 0;
  while (done < length && !isLow(chars[done])) {
    if (!isHigh(chars[done]))
      ++done;
    else if (done + 1 < length && isLow(chars[done + 1]))
      done += 2;
    else
      break;
  }
  return done;
}

} // namespace

String fromUtf8(std::string_view text) {
  try {
    const xercesc::TranscodeFromStr chars(reinterpret_cast<const XMLByte*>(text.data()), text.size(), "UTF-8");
    return {chars.str(), chars.length()};
  } catch (const xercesc::XMLException&) {
    String chars;
    for (const char c : text) chars += static_cast<unsigned char>(c);
    return chars;
  }
}

std::string toUtf8(const XMLCh* text) { return std::string(Utf8()(text)); }

std::string_view Utf8::operator()(const XMLCh* text) {
  return text == nullptr ? std::string_view{} : (*this)(text, xercesc::XMLString::stringLen(text));
}

std::string_view Utf8::operator()(const XMLCh* chars, XMLSize_t length) {
  constexpr std::size_t longestSequence = 4;
  if (m_buffer.size() < length) m_buffer.resize(length);
  std::size_t done = copyAscii(m_buffer.data(), chars, length);
  std::size_t used = done;
  if (done < length && m_transcoder == nullptr) {
    m_transcoder = std::make_unique<xercesc::XMLUTF8Transcoder>(xercesc::XMLUni::fgUTF8EncodingString, 1024,
                                                                xercesc::XMLPlatformUtils::fgMemoryManager);
  }
  while (done < length) {
    m_buffer.resize(std::max(m_buffer.size(), used + longestSequence * (length - done)));
    XMLSize_t eaten = 1;
    if (const std::size_t whole = wholeLength(chars + done, length - done); whole == 0)
      used += std::string_view("\xEF\xBF\xBD").copy(m_buffer.data() + used, longestSequence);
    else
      used += m_transcoder->transcodeTo(chars + done, whole, reinterpret_cast<XMLByte*>(m_buffer.data()) + used,
                                        m_buffer.size() - used, eaten, xercesc::XMLTranscoder::UnRep_RepChar);
    done += eaten;
  }
  return {m_buffer.data(), used};
}

} // namespace ogc::xml

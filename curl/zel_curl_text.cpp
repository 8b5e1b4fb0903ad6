#include "zel_curl_text.h"

#include <algorithm>
#include <cstdio>

namespace transfer {

namespace {
bool isContinuation(char c) noexcept { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

/// Bytes of the character that begins with this byte.
std::size_t sizeFrom(char first) noexcept {
  std::size_t size = 1;
  for (const int least : {0xc2, 0xe0, 0xf0}) size += static_cast<unsigned char>(first) >= least ? 1 : 0;
  return size;
}
} // namespace

void TextList::append(std::string_view text) {
  auto* node = new (m_arena.allocate(sizeof(xNodeStr_t), alignof(xNodeStr_t))) xNodeStr_t{nullptr, nullptr};
  if (!text.empty()) {
    auto* copy = static_cast<char*>(m_arena.allocate(text.size() + 1, 1));
    copy[text.copy(copy, text.size())] = '\0';
    node->str = copy;
  }
  (m_tail != nullptr ? m_tail->next : m_head) = node;
  m_tail = node;
}

void TextList::clear() noexcept {
  m_head = m_tail = nullptr;
  m_arena.release();
}

std::size_t utf8Size(std::string_view text) noexcept {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const std::size_t size = sizeFrom(text[0]);
  if (byte(0) >= 0xf5 || size > text.size()) return 1;
  if ((byte(0) == 0xe0 && byte(1) < 0xa0) || (byte(0) == 0xf0 && byte(1) < 0x90)) return 1; // longer than needed
  for (std::size_t i = 1; i < size; ++i)
    if (!isContinuation(text[i])) return 1;
  return size;
}

std::string_view cutAt(std::string_view text, std::size_t limit) noexcept {
  if (text.size() <= limit) return text;
  std::size_t start = limit; // of the character at the cut
  while (start > 0 && limit - start < 3 && isContinuation(text[start])) --start;
  return text.substr(0, start + utf8Size(text.substr(start)) > limit ? start : limit);
}

std::string_view wholeCharacters(std::string_view text) noexcept {
  std::size_t start = text.size(); // of the last character
  while (start > 0 && text.size() - start < 3 && isContinuation(text[start - 1])) --start;
  return start > 0 && start - 1 + sizeFrom(text[start - 1]) > text.size() ? text.substr(0, start - 1) : text;
}

int copyTruncated(char* out, int size, std::string_view text) noexcept {
  if (size > 0) out[cutAt(text, static_cast<std::size_t>(size) - 1).copy(out, text.size())] = '\0';
  return static_cast<int>(text.size());
}

std::string formatLimited(std::size_t limit, const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  std::string text = formatLimited(limit, format, args);
  va_end(args);
  return text;
}

std::string formatLimited(std::size_t limit, const char* format, std::va_list args) {
  std::va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  std::string text(static_cast<std::size_t>(std::max(length, 0)) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, again);
  va_end(again);
  text.pop_back();
  text.resize(cutAt(text, limit).size());
  return text;
}

} // namespace transfer

#include "zel_curl_text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

void CTextList::append(std::string_view text) {
  auto* node = new (m_arena.allocate(sizeof(xNodeStr_t), alignof(xNodeStr_t))) xNodeStr_t{nullptr, nullptr};
  if (!text.empty()) {
    auto* copy = static_cast<char*>(m_arena.allocate(text.size() + 1, 1));
    copy[text.copy(copy, text.size())] = '\0';
    node->str = copy;
  }
  (m_tail != nullptr ? m_tail->next : m_head) = node;
  m_tail = node;
}

void CTextList::clear() noexcept {
  m_head = m_tail = nullptr;
  m_arena.release();
}

std::string formatLimited(std::size_t limit, const char* format, ...) {
  std::va_list args;
  std::va_list again;
  va_start(args, format);
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  std::string text(static_cast<std::size_t>(std::max(length, 0)) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, again);
  va_end(again);
  text.resize(std::min(text.size() - 1, limit));
  return text;
}

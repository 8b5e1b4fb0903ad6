/// \file
/// Texts of the transfer layer: owned texts that can be absent, and lists of them.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <memory_resource>
#include <string>
#include <string_view>

/// Node of a list of texts. A null text is an absent one. Nodes and texts belong to the arena they were made in.
struct xNodeStr_t {
  const char* str;
  xNodeStr_t* next;
};

namespace transfer {

/// A setting or response text that can be absent. An empty text counts as absent.
class Text {
public:
  Text() = default;
  explicit Text(std::string_view text) : m_text(text) {}

  /// Stores a copy; null or empty makes it absent.
  void set(const char* text) { m_text = text != nullptr ? text : ""; }
  void set(std::string_view text) { m_text = text; }
  void clear() noexcept { m_text.clear(); }
  /// Appends a piece, joined to a text that is already there by one space; an empty piece changes nothing.
  void join(std::string_view piece) {
    if (piece.empty()) return;
    if (!m_text.empty()) m_text += ' ';
    m_text += piece;
  }

  [[nodiscard]] bool present() const noexcept { return !m_text.empty(); }
  /// The text, null when absent.
  [[nodiscard]] const char* get() const noexcept { return m_text.empty() ? nullptr : m_text.c_str(); }
  /// The text, "" when absent.
  [[nodiscard]] const char* c_str() const noexcept { return m_text.c_str(); }
  [[nodiscard]] const std::string& str() const noexcept { return m_text; }

private:
  std::string m_text;
};

/// Item `n` of a list that is linked by `next`, null after its end; the first for an `n` below 1.
template <typename T>
[[nodiscard]] T* itemAt(T* head, int n) noexcept {
  for (; n > 0 && head != nullptr; --n) head = head->next;
  return head;
}
/// Number of items of a list that is linked by `next`.
template <typename T>
[[nodiscard]] int length(const T* head) noexcept {
  int n = 0;
  for (; head != nullptr; head = head->next) ++n;
  return n;
}

/// A list of texts that owns its nodes.
class TextList {
public:
  /// Appends a node; an empty text appends a node whose text is absent.
  void append(std::string_view text);
  void clear() noexcept;
  [[nodiscard]] xNodeStr_t* head() const noexcept { return m_head; }

private:
  std::pmr::monotonic_buffer_resource m_arena;
  xNodeStr_t* m_head = nullptr;
  xNodeStr_t* m_tail = nullptr;
};

/// Bytes of the UTF-8 character that a text begins with, 1 when it begins with none. \pre not empty
[[nodiscard]] std::size_t utf8Size(std::string_view text) noexcept;

/// The first `limit` bytes of a text, less those of a character that does not fit whole.
[[nodiscard]] std::string_view cutAt(std::string_view text, std::size_t limit) noexcept;

/// A text that was cut by others, less the part of a character that it ends with.
[[nodiscard]] std::string_view wholeCharacters(std::string_view text) noexcept;

/// Copies a text to a buffer of `size` bytes, cut to it and terminated. \return length without the cut.
int copyTruncated(char* out, int size, std::string_view text) noexcept;

/// A text composed as by `printf` and cut at `limit` bytes. A null text prints as nothing: pass Text::c_str().
[[nodiscard]] [[gnu::format(printf, 2, 3)]] std::string formatLimited(std::size_t limit, const char* format, ...);
[[nodiscard]] std::string formatLimited(std::size_t limit, const char* format, std::va_list args);

/// Bytes of a message, as exceptions and the host take them.
constexpr std::size_t messageLimit = 1023;

} // namespace transfer

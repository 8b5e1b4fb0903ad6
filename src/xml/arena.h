/// \file
/// The arena of a parsed document: many small records and texts, one owner.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace ogc::xml {

/// Hands out zero-filled records and texts that live until release() or the arena's end. Nothing is freed on its own.
class Arena {
public:
  Arena() = default;
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  /// New zero-filled record, or `n` consecutive ones.
  template <typename T>
  [[nodiscard]] T* make(std::size_t n = 1) {
    static_assert(std::is_trivially_default_constructible_v<T> && std::is_trivially_destructible_v<T>);
    return static_cast<T*>(std::memset(allocate(sizeof(T) * n, alignof(T)), 0, sizeof(T) * n));
  }

  /// Stores a copy of `text`, also of an empty one.
  [[nodiscard]] const char* copy(std::string_view text);

  /// Appends `text` to the arena text `*dst`, after `separator` when `*dst` is not null. Appending is linear over all
  /// appends to one text, even if several texts are extended in turn.
  void append(const char** dst, std::string_view text, std::string_view separator);

  /// Makes `*dst` a text that another place has, too: appending to either leaves the other as it is.
  /// \pre `*dst` is null, and something was made after the text
  void share(const char** dst, const char* text) {
    *dst = text;
    m_grown.erase(text);
  }

  /// Bytes taken from the system.
  [[nodiscard]] std::size_t size() const noexcept { return m_size; }

  /// Forgets everything that was handed out and returns the memory.
  void release() noexcept;

private:
  struct Extent {
    std::size_t length;
    std::size_t capacity;
  };

  void* allocate(std::size_t bytes, std::size_t align);
  char* reserve(std::size_t bytes);

  std::vector<std::unique_ptr<std::byte[]>> m_chunks;
  std::byte* m_top = nullptr;
  std::byte* m_end = nullptr;
  std::size_t m_nextChunk = 0;
  std::size_t m_size = 0;
  const char* m_open = nullptr; ///< the last allocation, when it is a text: extended in place
  std::size_t m_openLength = 0;
  std::unordered_map<const char*, Extent> m_grown; ///< texts that had to move; they have room to grow
};

} // namespace ogc::xml

#include "xml/arena.h"

#include <algorithm>
#include <cstring>

namespace ogc::xml {

namespace {
constexpr std::size_t firstChunk = std::size_t{16} * 1024;
constexpr std::size_t largestChunk = std::size_t{1024} * 1024;
} // namespace

char* Arena::reserve(std::size_t bytes) { return static_cast<char*>(allocate(bytes, 1)); }

void* Arena::allocate(std::size_t bytes, std::size_t align) {
  m_open = nullptr;
  auto room = static_cast<std::size_t>(m_end - m_top);
  void* place = m_top;
  if (m_top == nullptr || std::align(align, bytes, place, room) == nullptr) {
    const std::size_t wanted = std::clamp(m_nextChunk, firstChunk, largestChunk);
    const std::size_t size = std::max(wanted, bytes);
    m_chunks.push_back(std::make_unique_for_overwrite<std::byte[]>(size));
    place = m_chunks.back().get();
    m_end = m_chunks.back().get() + size;
    m_nextChunk = wanted * 2;
    m_size += size;
  }
  m_top = static_cast<std::byte*>(place) + bytes;
  return place;
}

const char* Arena::copy(std::string_view text) {
  char* place = reserve(text.size() + 1);
  place[text.copy(place, text.size())] = '\0';
  m_open = place;
  m_openLength = text.size();
  return place;
}

void Arena::append(const char** dst, std::string_view text, std::string_view separator) {
  if (*dst == nullptr) {
    *dst = copy(text);
    return;
  }
  const std::size_t added = separator.size() + text.size();
  const auto write = [&](char* end) {
    end += separator.copy(end, separator.size());
    end[text.copy(end, text.size())] = '\0';
  };
  if (*dst == m_open && static_cast<std::size_t>(m_end - m_top) >= added) {
    write(reinterpret_cast<char*>(m_top) - 1);
    m_top += added;
    m_openLength += added;
    return;
  }
  auto grown = m_grown.find(*dst);
  const std::size_t length = grown != m_grown.end() ? grown->second.length
                             : *dst == m_open       ? m_openLength
                                                    : std::strlen(*dst);
  if (grown == m_grown.end() || grown->second.capacity < length + added + 1) {
    const std::size_t capacity = 2 * (length + added + 1);
    char* place = reserve(capacity);
    std::memcpy(place, *dst, length);
    if (grown != m_grown.end()) m_grown.erase(grown);
    grown = m_grown.emplace(place, Extent{length, capacity}).first;
    *dst = place;
  }
  write(const_cast<char*>(*dst) + length);
  grown->second.length += added;
}

void Arena::release() noexcept {
  m_chunks.clear();
  m_grown.clear();
  m_top = m_end = nullptr;
  m_nextChunk = 0;
  m_size = 0;
  m_open = nullptr;
}

} // namespace ogc::xml

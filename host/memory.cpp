#include "host/memory.h"

#include "host/messages.h"

#include <cstdlib>
#include <cstring>
#include <string>

// NOLINTBEGIN(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory): this file owns memory

namespace zel::host {

// Fresh pages from calloc are zero without being written, which makes large arrays of structures cheap.
char* allocate(std::int64_t n, std::int64_t size) {
  void* memory = std::calloc(static_cast<std::size_t>(n), static_cast<std::size_t>(size));
  if (memory == nullptr)
    raise("Unable to allocate memory: " + std::to_string(n) + " elements of " + std::to_string(size) + " bytes.");
  return static_cast<char*>(memory);
}

char* copyText(std::string_view text) {
  auto* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) raise("Unable to allocate memory: a text of " + std::to_string(text.size()) + " bytes.");
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

void release(void* memory) noexcept { std::free(memory); }

} // namespace zel::host

// NOLINTEND(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)

#include "xml/element_names.h"

#include <bit>

namespace ogc::xml {

namespace {

constexpr XMLCh lower(XMLCh c) noexcept { return c >= u'A' && c <= u'Z' ? static_cast<XMLCh>(c + 32) : c; }

/// FNV-1a over the lower-case characters, http://www.isthe.com/chongo/tech/comp/fnv/.
template <typename Char>
std::uint32_t hashOf(const Char* name) noexcept {
  std::uint32_t hash = 2166136261U;
  for (; *name != 0; ++name) hash = (hash ^ lower(static_cast<XMLCh>(*name))) * 16777619U;
  return hash;
}

} // namespace

bool equalsIgnoringCase(const XMLCh* name, const char* ascii) noexcept {
  for (; *ascii != '\0'; ++name, ++ascii) {
    if (lower(*name) != static_cast<XMLCh>(*ascii)) return false;
  }
  return *name == 0;
}

std::string lowerCase(const char* ascii) {
  std::string name(ascii);
  for (char& c : name) c = static_cast<char>(lower(static_cast<XMLCh>(c)));
  return name;
}

ElementNames::ElementNames(const std::vector<std::string>& names) : m_slots(std::bit_ceil(2 * names.size() + 1)) {
  for (std::size_t position = 1; const std::string& name : names) {
    const std::uint32_t hash = hashOf(name.c_str());
    std::size_t at = hash & (m_slots.size() - 1);
    while (m_slots[at].position != 0) at = (at + 1) & (m_slots.size() - 1);
    m_slots[at] = {hash, position++, lowerCase(name.c_str())};
  }
}

std::size_t ElementNames::find(const XMLCh* name) const noexcept {
  const std::uint32_t hash = hashOf(name);
  for (std::size_t at = hash & (m_slots.size() - 1); m_slots[at].position != 0; at = (at + 1) & (m_slots.size() - 1)) {
    if (m_slots[at].hash == hash && equalsIgnoringCase(name, m_slots[at].name.c_str())) return m_slots[at].position;
  }
  return 0;
}

} // namespace ogc::xml

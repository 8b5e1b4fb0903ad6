/// \file
/// Recognising XML names without transcoding them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>
#include <xercesc/util/XercesDefs.hpp>

namespace ogc::xml {

/// A table of names, looked up with the parser's own characters in any letter case. The cost of a look-up is
/// one hash over the name and one comparison, whatever the size of the table.
class ElementNames {
public:
  /// \param names  ASCII, any case
  explicit ElementNames(const std::vector<std::string>& names = {});

  /// Position of a name from 1, 0 when the table does not hold it.
  [[nodiscard]] std::size_t find(const XMLCh* name) const noexcept;

private:
  struct Slot {
    std::uint32_t hash;
    std::size_t position; ///< 0 for an empty slot
    std::string name;     ///< lower case
  };

  std::vector<Slot> m_slots; ///< open addressing, a power of two, at most half full
};

/// True when the two names are equal without regard to case; `ascii` is lower case.
[[nodiscard]] bool equalsIgnoringCase(const XMLCh* name, const char* ascii) noexcept;
[[nodiscard]] std::string lowerCase(const char* ascii);

} // namespace ogc::xml

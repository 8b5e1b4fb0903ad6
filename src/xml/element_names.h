/// \file
/// Recognising XML names without transcoding them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>
#include <xercesc/util/XercesDefs.hpp>

namespace ogc::xml {

/// A table from names to codes, looked up with the parser's own characters in any letter case. The cost of a look-up is
/// one hash over the name and one comparison, whatever the size of the table.
class ElementNames {
public:
  struct Entry {
    const char* name; ///< ASCII, any case
    int code;         ///< not 0
  };

  explicit ElementNames(const std::vector<Entry>& entries = {});

  /// Code of a name, 0 when the table does not hold it.
  [[nodiscard]] int find(const XMLCh* name) const noexcept;

private:
  struct Slot {
    std::uint32_t hash;
    int code;
    std::string name; ///< lower case
  };

  std::vector<Slot> m_slots; ///< open addressing, a power of two, at most half full
};

/// True when the two names are equal without regard to case; `ascii` is lower case.
[[nodiscard]] bool equalsIgnoringCase(const XMLCh* name, const char* ascii) noexcept;
[[nodiscard]] std::string lowerCase(const char* ascii);

} // namespace ogc::xml

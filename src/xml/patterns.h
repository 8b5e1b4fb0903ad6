/// \file
/// What it costs to match a value against a pattern of a schema.
/// Patterns: XML Schema Part 2, appendix F, https://www.w3.org/TR/xmlschema-2/#regexs.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <string>
#include <vector>
#include <xercesc/util/XercesDefs.hpp>

namespace ogc::xml {

/// ASCII characters, and one for all others.
constexpr std::size_t charKinds = 129;
constexpr std::size_t charKind(XMLCh c) noexcept { return c < charKinds - 1 ? c : charKinds - 1; }
using CharSet = std::bitset<charKinds>;

/// A summary of some values: how many there are, and the maxima over all of them.
struct ValueExtent {
  std::size_t count = 0;
  std::size_t longest = 0;
  std::array<std::size_t, charKinds> most{}; ///< of each kind of character

  void add(const XMLCh* chars, std::size_t length);
};

/// The ways that a matcher which backtracks can take through a value, at worst: one for each choice, for each place
/// where a repetition can end, and again for each time that a repetition is repeated.
struct PatternCost {
  /// A repetition of what varies itself begins again only at one of these characters.
  struct Repeated;

  double choiceBits = 0; ///< binary logarithm of the choices that do not depend on the value
  std::size_t loops = 0; ///< repetitions without an end, one after the other
  std::vector<Repeated> repeated;

  /// Binary logarithm of the number of ways.
  [[nodiscard]] double bits(const ValueExtent& values) const;
  /// Adds the cost of what follows, so many times.
  void add(const PatternCost& next, std::size_t times);
};
struct PatternCost::Repeated {
  CharSet first;
  std::size_t times;
  PatternCost inner;
};

/// \throws Refusal for a pattern that no value can be matched against in reasonable time: too long, nested too
/// deep, or with a repetition without an end of what can be empty.
[[nodiscard]] PatternCost patternCost(const std::basic_string<XMLCh>& pattern);

} // namespace ogc::xml

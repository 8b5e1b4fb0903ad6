#include "xml/patterns.h"

#include "xml/limits.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace ogc::xml {

namespace {

constexpr std::size_t patternLimit = 2'000;   // characters
constexpr std::size_t nestingLimit = 100;     // nested parentheses
constexpr std::size_t expandedLimit = 10'000; // atoms, those of a counted repetition as often as it counts
constexpr std::size_t noEnd = static_cast<std::size_t>(-1);

/// What a part of a pattern matches, and at what cost.
struct Part {
  PatternCost cost;
  CharSet first; ///< characters that it can begin with
  std::size_t atoms = 0;
  bool canBeEmpty = true;
  bool repeats = false; ///< a part of it may match a varying number of times
  bool chooses = false;
  bool ambiguous = false; ///< chooses between alternatives that begin alike
};

class Parser {
public:
  explicit Parser(const String& pattern) : m_pattern(pattern) {}

  Part alternatives(std::size_t depth) {
    if (depth > nestingLimit)
      throw Refusal("parentheses are nested more than " + std::to_string(nestingLimit) + " deep");
    Part all = branch(depth);
    std::size_t count = 1;
    for (; peek() == u'|'; ++count) {
      ++m_at;
      const Part other = branch(depth);
      all.chooses = true;
      all.ambiguous = all.ambiguous || other.ambiguous || other.canBeEmpty || (all.first & other.first).any();
      all.first |= other.first;
      all.atoms += other.atoms;
      all.canBeEmpty = all.canBeEmpty || other.canBeEmpty;
      all.repeats = all.repeats || other.repeats;
      all.cost.choiceBits = std::max(all.cost.choiceBits, other.cost.choiceBits);
      all.cost.loops = std::max(all.cost.loops, other.cost.loops);
      all.cost.repeated.insert(all.cost.repeated.end(), other.cost.repeated.begin(), other.cost.repeated.end());
    }
    if (all.ambiguous) all.cost.choiceBits += std::log2(count);
    return all;
  }

private:
  [[nodiscard]] XMLCh peek() const noexcept { return m_at < m_pattern.size() ? m_pattern[m_at] : u'\0'; }
  XMLCh take() noexcept { return m_at < m_pattern.size() ? m_pattern[m_at++] : u'\0'; }

  Part branch(std::size_t depth) {
    Part all;
    while (m_at < m_pattern.size() && peek() != u'|' && peek() != u')') {
      const Part next = piece(depth);
      if (all.canBeEmpty) all.first |= next.first;
      all.canBeEmpty = all.canBeEmpty && next.canBeEmpty;
      all.atoms += next.atoms;
      all.repeats = all.repeats || next.repeats;
      all.chooses = all.chooses || next.chooses;
      all.ambiguous = all.ambiguous || next.ambiguous;
      all.cost.add(next.cost, 1);
    }
    return all;
  }

  Part piece(std::size_t depth) {
    Part part = atom(depth);
    const auto [least, most] = quantity();
    const PatternCost once = std::exchange(part.cost, {});
    if (most != noEnd) {
      part.cost.add(once, most);
      part.cost.choiceBits += std::log2(most - std::min(least, most) + 1);
    } else if (part.canBeEmpty) {
      throw Refusal("a repetition contains what can be empty");
    } else if (part.repeats || part.ambiguous) {
      part.cost.repeated.push_back({part.first, 1, once});
    } else {
      part.cost.loops = part.chooses ? 2 : 1; // choices cost the matcher another walk over the rest
    }
    part.atoms *= most == noEnd ? least + 1 : most;
    part.repeats = part.repeats || least != most;
    part.canBeEmpty = part.canBeEmpty || least == 0;
    if (part.atoms > expandedLimit) throw Refusal("its repetitions are too large");
    return part;
  }

  std::pair<std::size_t, std::size_t> quantity() {
    switch (peek()) {
    case u'?': ++m_at; return {0, 1};
    case u'*': ++m_at; return {0, noEnd};
    case u'+': ++m_at; return {1, noEnd};
    case u'{': ++m_at; break;
    default: return {1, 1};
    }
    const std::size_t least = number();
    std::size_t most = least;
    if (peek() == u',') {
      ++m_at;
      most = peek() == u'}' ? noEnd : number();
    }
    if (take() != u'}') throw Refusal("a repetition is not understood");
    return {least, most};
  }

  std::size_t number() {
    std::size_t value = 0;
    while (peek() >= u'0' && peek() <= u'9') {
      value = value * 10 + (take() - u'0');
      if (value > expandedLimit) throw Refusal("its repetitions are too large");
    }
    return value;
  }

  Part atom(std::size_t depth) {
    const XMLCh c = take();
    if (c == u'(') {
      Part inner = alternatives(depth + 1);
      if (take() != u')') throw Refusal("a parenthesis is not closed");
      return inner;
    }
    Part part;
    part.atoms = 1;
    part.canBeEmpty = false;
    if (c == u'[')
      part.first = charClass(depth);
    else if (c == u'\\')
      part.first = escape();
    else if (c == u'.')
      part.first.set();
    else
      add(part.first, c, c);
    return part;
  }

  static void add(CharSet& set, XMLCh from, XMLCh to) {
    for (std::size_t c = charKind(from); c <= charKind(to); ++c) set.set(c);
  }

  /// The characters of an escape after its backslash. Those that name a set, except digits and spaces, count as all.
  CharSet escape() {
    CharSet set;
    const XMLCh c = take();
    if (c == u'p' || c == u'P') {
      while (m_at < m_pattern.size() && take() != u'}') {
      }
      return set.set();
    }
    if (String(u"DSwWiIcC").find(c) != String::npos) return set.set();
    if (c == u'd') {
      add(set, u'0', u'9');
      set.set(charKinds - 1);
    } else if (c == u's') {
      for (const XMLCh space : {u' ', u'\t', u'\n', u'\r'}) add(set, space, space);
    } else {
      const XMLCh meant = c == u'n' ? u'\n' : c == u'r' ? u'\r' : c == u't' ? u'\t' : c;
      add(set, meant, meant);
    }
    return set;
  }

  /// The characters of a class after its opening bracket. Subtracted ones are included.
  CharSet charClass(std::size_t depth) {
    if (depth > nestingLimit) throw Refusal("classes are nested too deep");
    CharSet set;
    const bool negated = peek() == u'^';
    if (negated) ++m_at;
    while (peek() != u']') {
      if (m_at >= m_pattern.size()) throw Refusal("a class is not closed");
      const XMLCh from = take();
      if (from == u'\\') {
        set |= escape();
      } else if (from == u'-' && peek() == u'[') {
        ++m_at;
        static_cast<void>(charClass(depth + 1));
      } else if (peek() == u'-' && m_at + 1 < m_pattern.size() && m_pattern[m_at + 1] != u']' &&
                 m_pattern[m_at + 1] != u'[') {
        ++m_at;
        const XMLCh to = take();
        add(set, from, to == u'\\' ? take() : to);
      } else {
        add(set, from, from);
      }
    }
    ++m_at;
    if (negated) set.set();
    return set;
  }

  const String& m_pattern;
  std::size_t m_at = 0;
};

} // namespace

void ValueExtent::add(const XMLCh* chars, std::size_t length) {
  ++count;
  longest = std::max(longest, length);
  std::array<std::size_t, charKinds> these{};
  for (std::size_t i = 0; i < length; ++i) ++these[charKind(chars[i])];
  for (std::size_t kind = 0; kind < charKinds; ++kind) most[kind] = std::max(most[kind], these[kind]);
}

double PatternCost::bits(const ValueExtent& values) const {
  double all = choiceBits;
  // A single loop is left only once.
  if (loops > 1) all += static_cast<double>(loops) * std::log2(std::max<std::size_t>(values.longest, 1));
  for (const Repeated& part : repeated) {
    std::size_t begins = 0;
    for (std::size_t kind = 0; kind < charKinds; ++kind) begins += part.first[kind] ? values.most[kind] : 0;
    all += static_cast<double>(part.times * begins) * std::max(part.inner.bits(values), 1.0);
  }
  return all;
}

void PatternCost::add(const PatternCost& next, std::size_t times) {
  choiceBits += next.choiceBits * static_cast<double>(times);
  loops += next.loops * times;
  for (const Repeated& part : next.repeated) repeated.push_back({part.first, part.times * times, part.inner});
}

PatternCost patternCost(const String& pattern) {
  if (pattern.size() > patternLimit) throw Refusal("it has more than " + std::to_string(patternLimit) + " characters");
  return Parser(pattern).alternatives(0).cost;
}

} // namespace ogc::xml

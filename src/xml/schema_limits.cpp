#include "xml/schema_limits.h"

#include <algorithm>
#include <cmath>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/validators/schema/SchemaSymbols.hpp>

namespace ogc::xml {

namespace {

using xercesc::SchemaSymbols;
using xercesc::XMLString;

// The largest real set of schemas, GML 3.2.1 with ISO 19139, has 1,714 components.
constexpr std::size_t componentLimit = 4'000;
// The parser recurses from component to component: 24,000 levels fill a stack of 8 MiB.
constexpr std::size_t levelLimit = 12'000;
// A type is compared with what it is derived from, a substitution with all that it replaces: the time grows with the
// square of what a component has, its bases included. So many steps take about a second.
constexpr std::size_t workLimit = 16'000'000;
constexpr std::size_t sizeLimit = 1 << 20;
// Names in a document whose values are counted separately.
constexpr std::size_t nameLimit = 10'000;
// Binary logarithms of the ways to match one value, and all values of one name: about a second, and some more.
constexpr double valueBits = 27;
constexpr double documentBits = 31;

// Kinds of nodes.
constexpr XMLCh typeKind = u't', elementKind = u'e', groupKind = u'g', attributeGroupKind = u'a', otherKind = u'o',
                valueKind = u'v';

XMLCh kindOf(const XMLCh* localname) noexcept {
  const auto is = [&](const XMLCh* name) { return XMLString::equals(localname, name); };
  if (is(SchemaSymbols::fgELT_COMPLEXTYPE) || is(SchemaSymbols::fgELT_SIMPLETYPE)) return typeKind;
  if (is(SchemaSymbols::fgELT_ELEMENT)) return elementKind;
  if (is(SchemaSymbols::fgELT_GROUP)) return groupKind;
  if (is(SchemaSymbols::fgELT_ATTRIBUTEGROUP)) return attributeGroupKind;
  return otherKind;
}

String localPart(const String& name) { return name.substr(name.find(u':') + 1); }

String key(XMLCh kind, const String& name) { return kind + name; }

} // namespace

DocumentValues::Named& DocumentValues::named(const XMLCh* name) {
  const auto known = m_named.find(name);
  if (known != m_named.end()) return known->second;
  return m_named[m_named.size() < nameLimit ? name : u""];
}

const DocumentValues::Named* DocumentValues::find(const String& name) const {
  auto known = m_named.find(name);
  if (known == m_named.end()) known = m_named.find({});
  return known != m_named.end() ? &known->second : nullptr;
}

void DocumentValues::startElement(const XMLCh*, const XMLCh* localname, const XMLCh*,
                                  const xercesc::Attributes& attrs) {
  for (XMLSize_t i = 0; i < attrs.getLength(); ++i) {
    named(attrs.getLocalName(i)).values.add(attrs.getValue(i), XMLString::stringLen(attrs.getValue(i)));
  }
  m_open = &named(localname);
  const XMLCh* type = attrs.getValue(SchemaSymbols::fgURI_XSI, SchemaSymbols::fgATT_TYPE);
  if (type == nullptr) return;
  const String name = localPart(type);
  if (std::ranges::find(m_open->types, name) == m_open->types.end()) m_open->types.push_back(name);
}

void DocumentValues::characters(const XMLCh* chars, XMLSize_t length) {
  if (m_open != nullptr) m_open->values.add(chars, length);
}

void SchemaLimits::startDocument() {
  m_open.clear();
  m_annotation = 0;
  m_component = nullptr;
}

void SchemaLimits::startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh*,
                                const xercesc::Attributes& attrs) {
  const auto is = [&](const XMLCh* name) { return XMLString::equals(localname, name); };
  if (m_annotation > 0 || is(SchemaSymbols::fgELT_ANNOTATION) ||
      !XMLString::equals(uri, SchemaSymbols::fgURI_SCHEMAFORSCHEMA)) {
    ++m_annotation;
    return;
  }
  const bool redefines = is(SchemaSymbols::fgELT_REDEFINE);
  const std::size_t level = m_open.size();
  if ((level == 1 && !redefines) || (level == 2 && m_open.back().redefines)) openComponent(localname, attrs);

  const XMLCh* name = attrs.getValue(SchemaSymbols::fgATT_NAME);
  const bool isAttribute = is(SchemaSymbols::fgELT_ATTRIBUTE);
  const bool isValue = (isAttribute || is(SchemaSymbols::fgELT_ELEMENT)) && name != nullptr;
  m_open.push_back({redefines, isValue ? &m_nodes[key(valueKind, name)] : nullptr});
  if (m_component == nullptr) return;
  m_deepest = std::max(m_deepest, m_open.size() - m_componentLevel);

  if (isAttribute || is(SchemaSymbols::fgELT_ELEMENT) || is(SchemaSymbols::fgELT_ANY)) ++m_component->own;
  addUses(typeKind, attrs.getValue(SchemaSymbols::fgATT_BASE), false);
  addUses(typeKind, attrs.getValue(SchemaSymbols::fgATT_ITEMTYPE), false);
  addUses(typeKind, attrs.getValue(SchemaSymbols::fgATT_MEMBERTYPES), false);
  addUses(typeKind, attrs.getValue(SchemaSymbols::fgATT_TYPE), true);
  addUses(elementKind, attrs.getValue(SchemaSymbols::fgATT_SUBSTITUTIONGROUP), false);
  const XMLCh kind = kindOf(localname);
  if (kind == groupKind || kind == attributeGroupKind) addUses(kind, attrs.getValue(SchemaSymbols::fgATT_REF), false);

  const XMLCh* value = attrs.getValue(SchemaSymbols::fgATT_VALUE);
  if (is(SchemaSymbols::fgELT_PATTERN) && value != nullptr) return addPattern(value);
  for (const XMLCh* fixed :
       {value, attrs.getValue(SchemaSymbols::fgATT_DEFAULT), attrs.getValue(SchemaSymbols::fgATT_FIXED)}) {
    if (fixed == nullptr) continue;
    for (const Node* node : {m_component, declaredValues()}) m_fixed[node].add(fixed, XMLString::stringLen(fixed));
  }
}

void SchemaLimits::openComponent(const XMLCh* localname, const xercesc::Attributes& attrs) {
  if (++m_components > componentLimit) {
    throw Refusal("the schemas have more than " + std::to_string(componentLimit) + " components");
  }
  const XMLCh* name = attrs.getValue(SchemaSymbols::fgATT_NAME);
  m_component = &m_nodes[key(kindOf(localname), name != nullptr ? name : u"")];
  m_componentLevel = m_open.size();
  m_deepest = 0;
}

void SchemaLimits::endElement(const XMLCh*, const XMLCh*, const XMLCh*) {
  if (m_annotation > 0) {
    --m_annotation;
    return;
  }
  m_open.pop_back();
  if (m_component == nullptr || m_open.size() != m_componentLevel) return;
  m_component = nullptr;
  m_levels += m_deepest;
  if (m_levels > levelLimit) {
    throw Refusal("the schemas are nested too deep, more than " + std::to_string(levelLimit) +
                  " levels in all components together");
  }
}

SchemaLimits::Node* SchemaLimits::declaredValues() noexcept {
  const auto declared = std::find_if(m_open.rbegin(), m_open.rend(), [](const Open& o) { return o.values != nullptr; });
  return declared != m_open.rend() ? declared->values : nullptr;
}

/// \param ofValues  the values of the element or attribute have the type, the component does not contain it
void SchemaLimits::addUses(XMLCh kind, const XMLCh* names, bool ofValues) {
  if (names == nullptr) return;
  const String list(names);
  Node* values = kind == typeKind ? declaredValues() : nullptr;
  constexpr const XMLCh* spaces = u" \t\r\n";
  for (std::size_t at = list.find_first_not_of(spaces); at != list.npos;) {
    const std::size_t end = std::min(list.find_first_of(spaces, at), list.size());
    const String used = key(kind, localPart(list.substr(at, end - at)));
    if (!ofValues) m_component->uses.push_back(used);
    if (values != nullptr) values->uses.push_back(used);
    at = list.find_first_not_of(spaces, end);
  }
}

void SchemaLimits::addPattern(const XMLCh* pattern) {
  try {
    const PatternCost cost = patternCost(pattern);
    m_component->patterns.push_back(cost);
    if (Node* values = declaredValues()) values->patterns.push_back(cost);
    m_hasPatterns = true;
  } catch (const Refusal& refusal) {
    constexpr std::size_t shown = 60;
    throw Refusal("its pattern (" + toUtf8(String(pattern).substr(0, shown).c_str()) +
                  ") takes too long to match: " + refusal.reason);
  }
}

void SchemaLimits::endDocument() {
  for (auto& [name, node] : m_nodes) node.state = Node::unknown;
  std::size_t work = 0;
  for (auto& [name, node] : m_nodes) {
    if (name.front() == valueKind) continue;
    const std::size_t size = sizeOf(node);
    work += size * size;
    if (size < sizeLimit && work <= workLimit) continue;
    throw Refusal("too much in the schemas is derived from each other, or the groups are too large");
  }
  if (!m_hasPatterns) return;
  for (auto& [name, node] : m_nodes) {
    const auto fixed = m_fixed.find(&node);
    if (fixed != m_fixed.end()) checkPatterns(name, node, fixed->second);
    const auto* named = name.front() == valueKind ? m_document.find(name.substr(1)) : nullptr;
    if (named != nullptr) checkPatterns(name, node, named->values);
  }
  for (const auto& [name, named] : m_document.all()) {
    for (const String& type : named.types) {
      const auto used = m_nodes.find(key(typeKind, type));
      if (used != m_nodes.end()) checkPatterns(used->first, used->second, named.values);
    }
  }
}

std::size_t SchemaLimits::sizeOf(Node& node) {
  if (node.state == Node::open) return 0;
  if (node.state == Node::known) return node.size;
  node.state = Node::open;
  node.size = node.own;
  for (const String& use : node.uses) {
    const auto used = m_nodes.find(use);
    if (used != m_nodes.end()) node.size = std::min(node.size + sizeOf(used->second), sizeLimit);
  }
  node.state = Node::known;
  return node.size;
}

void SchemaLimits::checkPatterns(const String& name, Node& node, const ValueExtent& values) {
  const double bits = patternBits(node, values);
  if (bits > valueBits || bits + std::log2(std::max<std::size_t>(values.count, 1)) > documentBits) {
    throw Refusal("the values of (" + toUtf8(name.c_str() + 1) + ") are too long, or too many, for their pattern");
  }
}

/// Visits nodes that use each other in a cycle once.
double SchemaLimits::patternBits(Node& node, const ValueExtent& values) {
  if (node.state == Node::open) return 0;
  node.state = Node::open;
  double bits = 0;
  for (const PatternCost& pattern : node.patterns) bits = std::max(bits, pattern.bits(values));
  for (const String& use : node.uses) {
    const auto used = m_nodes.find(use);
    if (used != m_nodes.end()) bits = std::max(bits, patternBits(used->second, values));
  }
  node.state = Node::known;
  return bits;
}

void SchemaLimits::error(const xercesc::SAXParseException& e) {
  throw Refusal("line " + std::to_string(e.getLineNumber()) + ": " + toUtf8(e.getMessage()));
}

} // namespace ogc::xml

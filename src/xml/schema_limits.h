/// \file
/// Limits on what the schemas of one parse may make the parser do.
#pragma once

#include "xml/limits.h"
#include "xml/patterns.h"

#include <cstddef>
#include <unordered_map>
#include <vector>

namespace ogc::xml {

/// What a document has to be matched against patterns: its values by the names of their elements and attributes. Reads
/// the document as a content handler.
class DocumentValues final : public xercesc::DefaultHandler {
public:
  struct Named {
    ValueExtent values;
    std::vector<String> types; ///< that the document gives them by xsi:type
  };

  void startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname,
                    const xercesc::Attributes& attrs) override;
  void characters(const XMLCh* chars, XMLSize_t length) override;
  void fatalError(const xercesc::SAXParseException&) override {} // is reported when the document itself is read

  /// The values of the name. In a document with many names, those that appear late share one entry.
  [[nodiscard]] const Named* find(const String& name) const;
  [[nodiscard]] const std::unordered_map<String, Named>& all() const noexcept { return m_named; }

private:
  Named& named(const XMLCh* name);

  std::unordered_map<String, Named> m_named;
  Named* m_open = nullptr; ///< the element that began last
};

/// Reads the schemas of one parse one by one, before the parser works with them, and refuses what takes more time or
/// deeper recursion than a real schema needs. Components are known by their local names alone: those of the same name
/// in two namespaces count as one that has all that both have.
class SchemaLimits final : public xercesc::DefaultHandler {
public:
  explicit SchemaLimits(const DocumentValues& document) : m_document(document) {}

  /// \name One schema. \throws Refusal
  /// @{
  void startDocument() override;
  void startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname,
                    const xercesc::Attributes& attrs) override;
  void endElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname) override;
  void endDocument() override;
  void error(const xercesc::SAXParseException& e) override;
  void fatalError(const xercesc::SAXParseException& e) override { error(e); }
  /// @}

private:
  /// A component, or all elements and attributes of one name.
  struct Node {
    std::size_t own = 1;      ///< declarations in it
    std::vector<String> uses; ///< keys of the components that it contains, once for each use
    std::vector<PatternCost> patterns;
    std::size_t size = 0; ///< own declarations and those of all that it uses
    enum { unknown, open, known } state = unknown;
  };
  struct Open {
    bool redefines;
    Node* values; ///< of the element or attribute that is declared here
  };

  void openComponent(const XMLCh* localname, const xercesc::Attributes& attrs);
  void addUses(XMLCh kind, const XMLCh* names, bool ofValues);
  void addPattern(const XMLCh* pattern);
  [[nodiscard]] Node* declaredValues() noexcept;
  std::size_t sizeOf(Node& node);
  double patternBits(Node& node, const ValueExtent& values);
  void checkPatterns(const String& name, Node& node, const ValueExtent& values);

  const DocumentValues& m_document;
  std::unordered_map<String, Node> m_nodes; ///< by kind and local name
  std::size_t m_components = 0;
  std::size_t m_levels = 0; ///< of nested elements, those of all components one after the other
  bool m_hasPatterns = false;
  std::unordered_map<const Node*, ValueExtent> m_fixed; ///< the values that schemas give
  std::vector<Open> m_open;
  std::size_t m_annotation = 0; ///< open elements of an annotation
  Node* m_component = nullptr;
  std::size_t m_componentLevel = 0; ///< open elements around it
  std::size_t m_deepest = 0;
};

} // namespace ogc::xml

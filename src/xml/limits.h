/// \file
/// Reading XML from untrusted sources: limits on memory, entities and nesting.
#pragma once

#include "xml/utf8.h"

#include <cstddef>
#include <memory_resource>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/parsers/SAX2XMLReaderImpl.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>

namespace ogc::xml {

/// Thrown through the parser if a document demands more than the limits allow.
struct Refusal {
  explicit Refusal(std::string text) : reason(std::move(text)) {}
  std::string reason;
};

struct Limits {
  std::size_t memory; ///< bytes that the parser may hold at a time, without the grammars
  std::size_t depth;  ///< of nested elements
};

/// The parser keeps no document, only what it is reading: enough for texts of millions of characters.
constexpr Limits documentLimits{40UL << 20, 10'000};
/// Grammars, in contrast, are kept as a whole.
constexpr std::size_t grammarMemory = 88UL << 20;

/// All memory of one reader, freed with it: even what the parser leaks.
class Memory final : public xercesc::MemoryManager {
public:
  explicit Memory(std::size_t limit) : m_limit(limit) {}

  /// \throws Refusal once: above the limit, or if the expanded entities are too large.
  void* allocate(XMLSize_t size) override;
  void deallocate(void* block) noexcept override;
  MemoryManager* getExceptionMemoryManager() override;
  /// Everything until endGrammar() belongs to a grammar.
  void beginGrammar() noexcept;
  void endGrammar() noexcept;

private:
  struct Block {
    const std::byte* start = nullptr;
    XMLSize_t size = 0; ///< as requested
  };

  [[noreturn]] void refuse(std::string reason);

  std::pmr::unsynchronized_pool_resource m_pool;
  std::size_t m_limit;
  std::size_t m_held = 0;
  std::size_t m_grammars = 0;            ///< bytes of the grammars that were read
  std::optional<std::size_t> m_document; ///< bytes without the grammar that is being read
  std::size_t m_expanded = 0;            ///< characters of all expansions, and what setting them up costs
  Block m_last;                          ///< of the allocations
  bool m_refused = false;
};

/// Thrown through the parser when a DTD declares a namespace for elements, which the fast scanner would ignore.
struct NamespaceDeclared {};

/// How a document is to be read.
struct Reading {
  Limits limits;
  bool validates; ///< against a DTD: its content models cost time
  bool fast;      ///< with the scanner that is a quarter faster than the default one, but knows no schemas
};

/// Watches a document on its way to the handler: how deep its elements nest, how large its entities can get, and what
/// each element costs the parser besides its characters. Joins the pieces in which the parser delivers a text: the
/// handler gets all characters between two tags at once.
class LimitFilter final : public xercesc::DefaultHandler {
public:
  /// \param handler  gets the content
  LimitFilter(xercesc::ContentHandler& handler, Memory& memory, const Reading& reading);

  /// System identifier of the external DTD subset, empty when the document names none.
  [[nodiscard]] const String& dtd() const noexcept { return m_dtd; }

  /// \name Content, of which documents, elements and texts are handed on
  /// @{
  void startDocument() override { m_next.startDocument(); }
  void endDocument() override { m_next.endDocument(); }
  void startPrefixMapping(const XMLCh*, const XMLCh*) override { ++m_prefixes; }
  void endPrefixMapping(const XMLCh*) override { --m_prefixes; }
  void startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname,
                    const xercesc::Attributes& attrs) override;
  void endElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname) override;
  void characters(const XMLCh* chars, XMLSize_t length) override;
  /// @}

  /// \name Declarations
  /// @{
  void startDTD(const XMLCh* name, const XMLCh* publicId, const XMLCh* systemId) override;
  void internalEntityDecl(const XMLCh* name, const XMLCh* value) override;
  void elementDecl(const XMLCh* name, const XMLCh* model) override;
  void attributeDecl(const XMLCh* element, const XMLCh* name, const XMLCh* type, const XMLCh* mode,
                     const XMLCh* value) override;
  /// @}

private:
  struct Entity {
    std::size_t size = 0;       ///< characters of the full expansion, and one for each reference in it
    std::vector<Entity*> users; ///< whose values refer to it, once for each reference
  };

  void grow(Entity& entity, std::size_t by);
  void deliverText();
  void addModel(std::size_t length);

  xercesc::ContentHandler& m_next;
  Memory& m_memory;
  Reading m_reading;
  String m_text; ///< room for the text since the last tag
  std::size_t m_textLength = 0;
  std::size_t m_depth = 0;
  std::size_t m_elements = 0;
  std::size_t m_prefixes = 0; ///< in scope
  std::size_t m_work = 0;     ///< for all elements so far: what the parser does beyond reading their characters
  String m_dtd;
  std::unordered_map<String, Entity> m_entities; ///< by name, of parameter entities with the "%"
  std::size_t m_expandable = 0;                  ///< size of all together
  std::size_t m_modelWork = 0;                   ///< for the content models and the choices
  std::size_t m_longestModel = 0;
  std::unordered_map<String, std::size_t> m_attributeWork; ///< of an element of that name
};

/// A SAX2 reader with its limits. The caller sets resolver and features. Xerces itself opens nothing.
class Reader {
public:
  Reader(xercesc::ContentHandler& handler, const Reading& reading);

  xercesc::SAX2XMLReaderImpl* operator->() noexcept { return &m_reader; }
  [[nodiscard]] Memory& memory() noexcept { return m_memory; }
  [[nodiscard]] const LimitFilter& filter() const noexcept { return m_filter; }
  /// Was there a namespace prefix that nothing read so far declares?
  [[nodiscard]] bool foundUnknownPrefix() const noexcept { return m_reader.foundUnknownPrefix; }

private:
  struct Parser final : xercesc::SAX2XMLReaderImpl {
    using SAX2XMLReaderImpl::SAX2XMLReaderImpl;
    void error(unsigned int code, const XMLCh* domain, ErrTypes type, const XMLCh* text, const XMLCh* systemId,
               const XMLCh* publicId, XMLFileLoc line, XMLFileLoc column) override;

    bool foundUnknownPrefix = false;
  };

  Memory m_memory;
  LimitFilter m_filter;
  Parser m_reader;
};

} // namespace ogc::xml

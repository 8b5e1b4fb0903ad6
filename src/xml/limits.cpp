#include "xml/limits.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>
#include <xercesc/framework/XMLErrorCodes.hpp>
#include <xercesc/internal/XMLReader.hpp>
#include <xercesc/util/BinMemInputStream.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

namespace ogc::xml {

namespace {

constexpr std::size_t textLimit = 8 << 20;     // characters between two tags
constexpr std::size_t expandedLimit = 8 << 20; // characters of all expansions
constexpr std::size_t expansionCost = 400;     // characters that could be read while an expansion is set up
constexpr std::size_t entityLimit = 8 << 10;   // characters of one entity
constexpr std::size_t entitiesLimit = 1 << 20; // characters of all entities, each expanded once

// Work is counted in units of a few nanoseconds. Xerces looks names up one by one, so the elements of a document cost
//
//   sum over elements (depth + model / 4 + prefixes * (attributes + 1) / 8 + sum over declared attributes (8 + text))
//
// units, with model the characters of the longest content model, prefixes those in scope, and text the characters of an
// attribute's declared type, which may list its values, and of its default. A document of n elements may cost
// 50,000,000 + 200 n; real ones need a few dozen for each.
constexpr std::size_t workAllowance = 50'000'000;
constexpr std::size_t workPerElement = 200;
constexpr std::size_t workPerAttribute = 8;
constexpr std::size_t modelCharsPerUnit = 4;
constexpr std::size_t prefixesPerUnit = 8;
// A content model becomes an automaton, and the values of an attribute are compared with each other: the cost of both
// grows with the square of their length.
constexpr std::size_t modelWork = 32'000'000;

// Each block starts with its size and is a multiple of this one: other pools hand out blocks that are not aligned.
constexpr std::size_t header = alignof(std::max_align_t);

// No callback reports expansions in attribute values or of parameter entities. But for every entity that it expands,
// of any kind and anywhere, Xerces makes a stream over the entity's characters, and right after it a reader of the
// stream.

/// Size of the block of an object, which begins with XMemory's own header.
template <typename T>
XMLSize_t blockSize() noexcept {
  return xercesc::XMLPlatformUtils::alignPointerForNewBlockAllocation(sizeof(xercesc::MemoryManager*)) + sizeof(T);
}

/// Characters of the stream in a block, 0 if it holds something else.
std::size_t streamLength(const std::byte* block, XMLSize_t size) noexcept {
  using Stream = xercesc::BinMemInputStream;
  if (block == nullptr || size != blockSize<Stream>()) return 0;
  static const Stream known(nullptr, 0, Stream::BufOpt_Reference);
  const std::byte* object = block + size - sizeof(Stream);
  const bool sameClass = std::memcmp(object, static_cast<const void*>(&known), sizeof(void*)) == 0;
  return sameClass ? reinterpret_cast<const Stream*>(object)->getSize() / sizeof(XMLCh) : 0;
}

} // namespace

xercesc::MemoryManager* Memory::getExceptionMemoryManager() { return xercesc::XMLPlatformUtils::fgMemoryManager; }

void* Memory::allocate(XMLSize_t size) {
  const std::size_t limit = m_limit + (m_document ? grammarMemory : m_grammars);
  if (size > limit - std::min(m_held, limit) && !m_refused) {
    refuse("reading it takes more than " + std::to_string((m_document ? limit : m_limit) >> 20) + " MiB of memory");
  }
  if (size == blockSize<xercesc::XMLReader>()) {
    m_expanded += expansionCost + streamLength(m_last.start, m_last.size);
    if (m_expanded > expandedLimit && !m_refused)
      refuse("it expands more than " + std::to_string(expandedLimit) + " characters of entities, or too many of them");
  }
  m_last.size = size;
  size = (size + 2 * header - 1) / header * header;
  auto* block = static_cast<std::byte*>(m_pool.allocate(size, header));
  *reinterpret_cast<std::size_t*>(block) = size;
  m_held += size;
  m_last.start = block + header;
  return block + header;
}

void Memory::beginGrammar() noexcept {
  if (!m_document) m_document = m_held - std::min(m_grammars, m_held);
}

void Memory::endGrammar() noexcept {
  if (!m_document) return;
  m_grammars = std::min(m_held - std::min(*m_document, m_held), grammarMemory);
  m_document.reset();
}

// The parser is left in the middle of something: what it frees on the way out may be a block that it has already freed.
// After a refusal nothing is freed until the end.
void Memory::refuse(std::string reason) {
  m_refused = true;
  throw Refusal(std::move(reason));
}

void Memory::deallocate(void* block) noexcept {
  if (block == nullptr || m_refused) return;
  if (block == m_last.start) m_last = {};
  auto* start = static_cast<std::byte*>(block) - header;
  const std::size_t size = *reinterpret_cast<std::size_t*>(start);
  m_held -= size;
  m_pool.deallocate(start, size, header);
}

LimitFilter::LimitFilter(xercesc::ContentHandler& handler, Memory& memory, const Reading& reading)
    : m_next(handler), m_memory(memory), m_reading(reading) {}

void LimitFilter::startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname,
                               const xercesc::Attributes& attrs) {
  deliverText();
  m_memory.endGrammar();
  if (++m_depth > m_reading.limits.depth) {
    throw Refusal("its elements are nested more than " + std::to_string(m_reading.limits.depth) + " deep");
  }
  m_work += m_depth + m_longestModel / modelCharsPerUnit + m_prefixes * (attrs.getLength() + 1) / prefixesPerUnit;
  if (!m_attributeWork.empty()) {
    const auto attributes = m_attributeWork.find(qname);
    if (attributes != m_attributeWork.end()) m_work += attributes->second;
  }
  if (m_work > workAllowance + workPerElement * ++m_elements) {
    throw Refusal("too many of its elements are deeply nested, have long default attributes or choices, or many "
                  "prefixes");
  }
  m_next.startElement(uri, localname, qname, attrs);
}

void LimitFilter::endElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname) {
  deliverText();
  --m_depth;
  m_next.endElement(uri, localname, qname);
}

void LimitFilter::characters(const XMLCh* chars, XMLSize_t length) {
  if (length > textLimit - m_textLength) {
    throw Refusal("it has a text of more than " + std::to_string(textLimit) + " characters");
  }
  if (m_text.size() < m_textLength + length) m_text.resize(2 * (m_textLength + length));
  std::copy_n(chars, length, m_text.data() + m_textLength);
  m_textLength += length;
}

void LimitFilter::deliverText() {
  if (m_textLength > 0) m_next.characters(m_text.data(), std::exchange(m_textLength, 0));
}

void LimitFilter::startDTD(const XMLCh*, const XMLCh*, const XMLCh* systemId) {
  if (systemId != nullptr) m_dtd = systemId;
}

void LimitFilter::internalEntityDecl(const XMLCh* name, const XMLCh* value) {
  Entity& entity = m_entities[name];
  const String text(value != nullptr ? value : u"");
  std::size_t size = 0;
  for (std::size_t at = 0; at < text.size(); ++size) {
    const std::size_t end = text[at] == u'&' || text[at] == u'%' ? text.find(u';', at) : text.npos;
    if (end == text.npos) {
      ++at;
      continue;
    }
    const bool general = text[at] == u'&';
    Entity& used = m_entities[text.substr(general ? at + 1 : at, end - at - (general ? 1 : 0))];
    used.users.push_back(&entity);
    size += used.size;
    at = end + 1;
  }
  try {
    grow(entity, size);
  } catch (const Refusal& refusal) {
    throw Refusal("with entity (" + toUtf8(name) + ") " + refusal.reason);
  }
}

void LimitFilter::grow(Entity& entity, std::size_t by) {
  if (by == 0) return;
  entity.size += by;
  m_expandable += by;
  if (entity.size > entityLimit) {
    throw Refusal("an entity expands to more than " + std::to_string(entityLimit) + " characters");
  }
  if (m_expandable > entitiesLimit) {
    throw Refusal("its entities expand to more than " + std::to_string(entitiesLimit) + " characters");
  }
  for (Entity* user : entity.users) grow(*user, by);
}

void LimitFilter::elementDecl(const XMLCh*, const XMLCh* model) {
  if (!m_reading.validates) return;
  const std::size_t length = xercesc::XMLString::stringLen(model);
  m_longestModel = std::max(m_longestModel, length);
  addModel(length);
}

void LimitFilter::attributeDecl(const XMLCh* element, const XMLCh* name, const XMLCh* type, const XMLCh*,
                                const XMLCh* value) {
  using xercesc::XMLString;
  const bool isNamespace = XMLString::equals(name, u"xmlns") || XMLString::startsWith(name, u"xmlns:");
  if (isNamespace && m_reading.fast) throw NamespaceDeclared{};
  const std::size_t length = m_reading.validates ? XMLString::stringLen(type) : 0;
  addModel(length);
  m_attributeWork[element] += workPerAttribute + length + XMLString::stringLen(value);
}

void LimitFilter::addModel(std::size_t length) {
  m_modelWork += length * length;
  if (m_modelWork > modelWork) throw Refusal("the content models or the choices in its DTD are too long");
}

Reader::Reader(xercesc::ContentHandler& handler, const Reading& reading)
    : m_memory(reading.limits.memory), m_filter(handler, m_memory, reading), m_reader(&m_memory) {
  m_reader.setContentHandler(&m_filter);
  m_reader.setLexicalHandler(&m_filter);
  m_reader.setDeclarationHandler(&m_filter);
  m_reader.setFeature(xercesc::XMLUni::fgXercesDisableDefaultEntityResolution, true);
  if (reading.fast) {
    m_reader.setProperty(xercesc::XMLUni::fgXercesScannerName, const_cast<XMLCh*>(xercesc::XMLUni::fgDGXMLScanner));
  }
}

void Reader::Parser::error(unsigned int code, const XMLCh* domain, ErrTypes type, const XMLCh* text,
                           const XMLCh* systemId, const XMLCh* publicId, XMLFileLoc line, XMLFileLoc column) {
  foundUnknownPrefix |=
      code == xercesc::XMLErrs::UnknownPrefix && xercesc::XMLString::equals(domain, xercesc::XMLUni::fgXMLErrDomain);
  SAX2XMLReaderImpl::error(code, domain, type, text, systemId, publicId, line, column);
}

} // namespace ogc::xml

#include "zel_ogc_xml_guard.h"

#include "zel_ogc_sax.h"

#include <memory>
#include <xercesc/internal/XMLReader.hpp>
#include <xercesc/util/BinFileInputStream.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

namespace {

constexpr std::size_t expansionLimit = 5'000;
constexpr std::size_t entityLimit = 8 * 1024;      // characters of one entity
constexpr std::size_t entitiesLimit = 1024 * 1024; // characters of all entities, each expanded once

// Each block begins with its size.
constexpr std::size_t header = alignof(std::max_align_t);

// Xerces makes a new XMLReader for every entity that it expands, of any kind and anywhere: what no callback tells of
// parameter entities and attribute values shows in the size of the allocation, with room for XMemory's own header.
bool isExpansion(XMLSize_t size) noexcept {
  return size >= sizeof(xercesc::XMLReader) && size <= sizeof(xercesc::XMLReader) + 4 * header;
}

} // namespace

OgcXmlString ogcXmlChars(std::string_view text) {
  try {
    const xercesc::TranscodeFromStr chars(reinterpret_cast<const XMLByte*>(text.data()), text.size(), "UTF-8");
    return {chars.str(), chars.length()};
  } catch (const xercesc::XMLException&) {
    OgcXmlString chars;
    for (const char c : text) chars += static_cast<unsigned char>(c);
    return chars;
  }
}

xercesc::MemoryManager* COgcXmlMemory::getExceptionMemoryManager() {
  return xercesc::XMLPlatformUtils::fgMemoryManager;
}

void* COgcXmlMemory::allocate(XMLSize_t size) {
  if (m_held + size > m_limit && !m_refused) {
    refuse("reading it takes more than " + std::to_string(m_limit >> 20) + " MiB of memory");
  }
  if (isExpansion(size) && ++m_expansions > expansionLimit && !m_refused) {
    refuse("it expands more than " + std::to_string(expansionLimit) + " entities");
  }
  auto* block = static_cast<std::byte*>(m_pool.allocate(size + header, header));
  *reinterpret_cast<std::size_t*>(block) = size;
  m_held += size;
  return block + header;
}

// The parser is left in the middle of something: what it frees on the way out may be a block that it has freed before.
// From the refusal on everything stays until the end.
void COgcXmlMemory::refuse(std::string reason) {
  m_refused = true;
  throw COgcXmlRefusal(std::move(reason));
}

void COgcXmlMemory::deallocate(void* block) noexcept {
  if (block == nullptr || m_refused) return;
  auto* start = static_cast<std::byte*>(block) - header;
  const std::size_t size = *reinterpret_cast<std::size_t*>(start);
  m_held -= size;
  m_pool.deallocate(start, size + header, header);
}

COgcXmlGuard::COgcXmlGuard(xercesc::ContentHandler* handler, std::size_t depthLimit)
    : m_next(handler != nullptr ? *handler : m_nobody), m_depthLimit(depthLimit) {}

void COgcXmlGuard::startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname,
                                const xercesc::Attributes& attrs) {
  if (++m_depth > m_depthLimit) {
    throw COgcXmlRefusal("its elements are nested more than " + std::to_string(m_depthLimit) + " deep");
  }
  m_next.startElement(uri, localname, qname, attrs);
}

void COgcXmlGuard::endElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname) {
  --m_depth;
  m_next.endElement(uri, localname, qname);
}

void COgcXmlGuard::startDTD(const XMLCh*, const XMLCh*, const XMLCh* systemId) {
  if (systemId != nullptr) m_dtd = systemId;
}

void COgcXmlGuard::internalEntityDecl(const XMLCh* name, const XMLCh* value) {
  Entity& entity = m_entities[name];
  const OgcXmlString text(value != nullptr ? value : u"");
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
  } catch (const COgcXmlRefusal& refusal) {
    COgcUtf8 utf8;
    throw COgcXmlRefusal("entity (" + std::string(utf8(name)) + ") " + refusal.reason());
  }
}

void COgcXmlGuard::grow(Entity& entity, std::size_t by) {
  if (by == 0) return;
  entity.size += by;
  m_expandable += by;
  if (entity.size > entityLimit || m_expandable > entitiesLimit) throw COgcXmlRefusal("expands to too much text");
  for (Entity* user : entity.users) grow(*user, by);
}

COgcXmlReader::COgcXmlReader(xercesc::ContentHandler* handler, const OgcXmlLimits& limits)
    : m_memory(limits.memory), m_guard(handler, limits.depth), m_reader(&m_memory) {
  m_expansions.setEntityExpansionLimit(expansionLimit);
  m_reader.setContentHandler(&m_guard);
  m_reader.setLexicalHandler(&m_guard);
  m_reader.setDeclarationHandler(&m_guard);
  m_reader.setProperty(xercesc::XMLUni::fgXercesSecurityManager, &m_expansions);
  m_reader.setFeature(xercesc::XMLUni::fgXercesDisableDefaultEntityResolution, true);
}

COgcXmlFile::COgcXmlFile(std::string path) : InputSource(ogcXmlChars(path).c_str()), m_path(std::move(path)) {}

xercesc::BinInputStream* COgcXmlFile::makeStream() const {
  xercesc::MemoryManager* memory = getMemoryManager();
  std::unique_ptr<xercesc::BinFileInputStream> stream(new (memory) xercesc::BinFileInputStream(m_path.c_str(), memory));
  return stream->getIsOpen() ? stream.release() : nullptr;
}

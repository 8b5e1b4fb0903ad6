#include "xml/resolver.h"

#include "xml/url.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/util/XMLUni.hpp>

namespace ogc::xml {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t sizeLimit = 8UL << 20; // of all grammars together
constexpr std::size_t countLimit = 256;
// The parser walks through a schema by recursion.
constexpr Limits schemaTextLimits{48UL << 20, 256};

/// The directory of a file in its shortest form. "a/.." is resolved as the file system does, even if "a" is a link.
fs::path directoryOf(const fs::path& file) {
  const fs::path directory = file.parent_path();
  fs::path shortest = directory.lexically_normal();
  std::error_code none;
  return fs::equivalent(directory, shortest, none) ? shortest : fs::weakly_canonical(directory, none);
}

} // namespace

Resolver::Resolver(Reporter& reporter, Fetcher& fetcher, const std::string& path, WantedGrammars wanted,
                   const DocumentValues& values)
    : m_reporter(reporter),
      m_fetcher(fetcher),
      m_directory(directoryOf(path)),
      m_document(Url::ofFile(m_directory / fs::path(path).filename())),
      m_wanted(wanted),
      m_limits(values) {}

xercesc::InputSource* Resolver::resolveEntity(xercesc::XMLResourceIdentifier* resource) {
  using Resource = xercesc::XMLResourceIdentifier;
  const std::string name = toUtf8(resource->getSystemId());
  const std::string base = toUtf8(resource->getBaseURI());
  const auto type = resource->getResourceIdentifierType();
  if (type != Resource::ExternalEntity && type != Resource::UnKnown) {
    return m_wanted.schema && !name.empty() ? schema(name, base) : nullptr;
  }
  if (m_schemas.contains(base)) return source({}, name); // not needed by schemas
  if (name != toUtf8(m_reader->filter().dtd().c_str())) {
    throw Refusal("it refers to the external entity (" + name + "), which is never read");
  }
  if (!m_wanted.dtd) return source({}, name);
  try {
    const std::string id = locate(name, base);
    return source(load(id), id);
  } catch (const Refusal& refusal) {
    throw Refusal("its DTD cannot be read: " + refusal.reason + ". VALIDATION_MODE 0 does without it");
  }
}

xercesc::InputSource* Resolver::schema(const std::string& name, const std::string& base) {
  std::string id = name;
  try {
    id = locate(name, base);
    if (m_unused.contains(id)) return nullptr;
    const std::string& content = load(id);
    if (m_schemas.insert(id).second) check(content, id);
    m_reader->memory().beginGrammar();
    return source(content, id);
  } catch (const Refusal& refusal) {
    if (!m_unused.insert(id).second) return nullptr;
    m_reporter.warn("Warning: XML Schema is not used: " + refusal.reason + '.');
    return nullptr;
  }
}

// The parser reads schemas with a reader without limits, and the same scanner.
void Resolver::check(const std::string& content, const std::string& id) {
  Reader reader(m_limits, {schemaTextLimits, false, false});
  reader->setErrorHandler(&m_limits);
  reader->setFeature(xercesc::XMLUni::fgSAX2CoreValidation, false);
  reader->setFeature(xercesc::XMLUni::fgXercesSchema, false);
  reader->setXMLEntityResolver(this);
  const std::unique_ptr<xercesc::InputSource> input(source(content, id));
  try {
    reader->parse(*input);
  } catch (const Refusal& refusal) {
    throw Refusal("(" + id + ") is not safe to read: " + refusal.reason);
  }
}

xercesc::InputSource* Resolver::source(const std::string& content, const std::string& id) {
  xercesc::MemoryManager* memory = &m_reader->memory();
  return new (memory) xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(content.data()), content.size(),
                                                 fromUtf8(id).c_str(), false, memory);
}

std::string Resolver::locate(const std::string& name, const std::string& base) const {
  Url url(m_schemas.contains(base) ? base : m_document);
  url.apply(name);
  const std::string scheme = url.get(CURLUPART_SCHEME);
  if (url.isFile()) {
    const fs::path path = url.get(CURLUPART_PATH, CURLU_URLDECODE);
    if (*path.lexically_normal().lexically_relative(m_directory).begin() == "..") {
      throw Refusal("(" + path.string() + ") is outside the document's directory. Put it beside the document");
    }
  } else if (scheme != "http" && scheme != "https") {
    throw Refusal("(" + name + ") is neither a local file nor on an HTTP server");
  }
  url.dropFragment();
  return url.get(CURLUPART_URL);
}

const std::string& Resolver::load(const std::string& id) {
  const auto known = m_contents.find(id);
  if (known != m_contents.end()) return known->second;
  const Url url(id);
  std::string content =
      url.isFile() ? readFile(url.get(CURLUPART_PATH, CURLU_URLDECODE)) : m_fetcher.fetchGrammar(id, sizeLimit);
  m_loaded += content.size();
  if (m_loaded > sizeLimit || m_contents.size() == countLimit) {
    throw Refusal("(" + id + ") is too much: at most " + std::to_string(sizeLimit >> 20) + " MiB in " +
                  std::to_string(countLimit) + " files are read");
  }
  return m_contents.emplace(id, std::move(content)).first->second;
}

std::string Resolver::readFile(const std::string& path) {
  std::error_code none;
  if (!fs::is_regular_file(path, none)) throw Refusal("(" + path + ") is not there, or not a file");
  std::string content(std::min<std::uintmax_t>(fs::file_size(path, none), sizeLimit + 1), '\0');
  std::ifstream file(path, std::ios::binary);
  if (!file.read(content.data(), static_cast<std::streamsize>(content.size()))) {
    throw Refusal("(" + path + ") cannot be read");
  }
  return content;
}

} // namespace ogc::xml

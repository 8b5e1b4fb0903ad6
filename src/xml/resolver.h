/// \file
/// What a document may make the parser read besides itself.
#pragma once

#include "xml/caller.h"
#include "xml/limits.h"
#include "xml/schema_limits.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <xercesc/util/XMLEntityResolver.hpp>
#include <xercesc/util/XMLResourceIdentifier.hpp>

namespace ogc::xml {

/// What the caller asked the parser to validate against.
struct WantedGrammars {
  bool dtd;
  bool schema;
};

/// Gives the parser the DTD and the schemas of one document if the caller asked for them, and nothing else: no entity,
/// no other file. A relative name is that of a file next to the document, or next to the schema that uses it.
/// Local files are read from the document's own directory and below, so that a document from elsewhere cannot reach
/// into the rest of the machine. What lies on a server is fetched by the caller.
class Resolver final : public xercesc::XMLEntityResolver {
public:
  /// \param path  the document, absolute. \param values  what is in it
  Resolver(Reporter& reporter, Fetcher& fetcher, const std::string& path, WantedGrammars wanted,
           const DocumentValues& values);

  /// Gives the sources to `reader` from now on. Nothing is loaded twice.
  void serve(Reader& reader) noexcept { m_reader = &reader; }

  /// \return the source, an empty one, or, after a warning, null for a schema that is unavailable.
  /// \throws Refusal for an entity, and for a DTD that is unavailable.
  xercesc::InputSource* resolveEntity(xercesc::XMLResourceIdentifier* resource) override;

private:
  xercesc::InputSource* source(const std::string& content, const std::string& id);
  xercesc::InputSource* schema(const std::string& name, const std::string& base);
  void check(const std::string& content, const std::string& id);
  const std::string& load(const std::string& id);
  std::string locate(const std::string& name, const std::string& base) const;
  static std::string readFile(const std::string& path);

  Reporter& m_reporter;
  Fetcher& m_fetcher;
  Reader* m_reader = nullptr;
  std::filesystem::path m_directory; ///< of the document
  std::string m_document;            ///< its URL
  WantedGrammars m_wanted;
  std::map<std::string, std::string> m_contents; ///< of DTD and schemas, by URL
  std::size_t m_loaded = 0;                      ///< their bytes
  std::set<std::string> m_schemas;               ///< URLs of what was read as a schema
  std::set<std::string> m_unused;                ///< URLs of schemas that are unavailable
  SchemaLimits m_limits;
};

} // namespace ogc::xml

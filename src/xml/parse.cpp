#include "xml/parse.h"

#include "xml/limits.h"
#include "xml/resolver.h"
#include "zel_curl_exception.h"
#include "zel_curl_file.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <new>
#include <utility>
#include <xercesc/sax/ErrorHandler.hpp>
#include <xercesc/sax/InputSource.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/BinFileInputStream.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

int g_iOgcBaseSaxInitialized = 0;

namespace ogc::xml {

namespace {

using xercesc::XMLUni;

constexpr std::size_t parserMessageLimit = 255;

struct DtdMode {
  bool validate; ///< by a DTD that is loaded
  bool dynamic;
  const char* status;
};
constexpr DtdMode dtdModes[] = {{false, false, "XML DTD validation is off. "},
                                {true, true, "XML DTD validation is on, if DTD is present. "},
                                {true, false, "XML DTD validation is on. "}};

struct SchemaMode {
  bool process;
  bool full;
  const char* status;
};
constexpr SchemaMode schemaModes[] = {{false, false, "XML Schema validation is off. "},
                                      {true, false, "XML Schema validation is on. "},
                                      {true, true, "XML Full Schema validation is on. "}};

/// Passes the parser's reports on. Reports that a second reading repeats are not passed on again.
class Reports final : public xercesc::ErrorHandler {
public:
  explicit Reports(xercesc::ErrorHandler& handler) : m_handler(handler) {}
  void warning(const xercesc::SAXParseException& e) override {
    if (isNew()) m_handler.warning(e);
  }
  void error(const xercesc::SAXParseException& e) override {
    if (isNew()) m_handler.error(e);
  }
  void fatalError(const xercesc::SAXParseException& e) override { m_handler.fatalError(e); }
  void resetErrors() override {}
  void startOver() noexcept { m_known = std::exchange(m_seen, 0); }

private:
  bool isNew() noexcept { return ++m_seen > m_known; }

  xercesc::ErrorHandler& m_handler;
  std::size_t m_seen = 0;
  std::size_t m_known = 0; ///< reports of the first reading
};

/// A local file as the parser's input. Its name is in the bytes of the file system, whatever the locale.
class FileSource final : public xercesc::InputSource {
public:
  explicit FileSource(std::string path) : InputSource(fromUtf8(path).c_str()), m_path(std::move(path)) {}
  [[nodiscard]] xercesc::BinInputStream* makeStream() const override {
    xercesc::MemoryManager* memory = getMemoryManager();
    transfer::FilePtr file(std::fopen(m_path.c_str(), "rbe")); // like the parser, but not inherited by child processes
    if (!file) return nullptr;
    auto* stream = new (memory) xercesc::BinFileInputStream(static_cast<xercesc::FileHandle>(file.get()), memory);
    static_cast<void>(file.release());
    return stream;
  }

private:
  std::string m_path;
};

[[noreturn]] void failForMemory(const char* file, Reporter& reporter) {
  reporter.warn("Error: memory ran out while XML document (" + std::string(file) + ") was read.");
  throw CCurlException("Error: unknown parse error");
}

[[noreturn]] void failParse(const char* kind, const XMLCh* message) {
  const std::string text(transfer::cutAt(toUtf8(message), parserMessageLimit));
  throw CCurlException(kind, text.c_str());
}

void read(Handler& handler, const char* file, const Validation& validation, Reporter& reporter, Fetcher& fetcher) {
  if (g_iOgcBaseSaxInitialized == 0) {
    xercesc::XMLPlatformUtils::Initialize();
    g_iOgcBaseSaxInitialized = 1;
  }
  const auto dtdMode = static_cast<std::size_t>(validation.dtdMode);
  const DtdMode* dtd = dtdMode < std::size(dtdModes) ? &dtdModes[dtdMode] : nullptr;
  const SchemaMode& schema = schemaModes[std::min(static_cast<unsigned>(validation.schemaChecking), 2U)];
  const std::string path = std::filesystem::absolute(file).string();
  if (dtd != nullptr) reporter.reportStatus(dtd->status);
  reporter.reportStatus(schema.status);

  Reading reading{documentLimits, dtd == nullptr || dtd->validate, !schema.process};
  DocumentValues values;
  const bool loadsDtd = dtd != nullptr && dtd->validate;
  Resolver resolver(reporter, fetcher, path, {loadsDtd, schema.process}, values);
  const auto prepare = [&](Reader& reader, xercesc::ErrorHandler& errors) {
    resolver.serve(reader);
    reader->setXMLEntityResolver(&resolver);
    reader->setErrorHandler(&errors);
    if (dtd != nullptr) reader->setFeature(XMLUni::fgXercesLoadExternalDTD, dtd->validate);
  };
  if (schema.process && reading.validates) {
    Reader reader(values, reading);
    prepare(reader, values);
    reader->setFeature(XMLUni::fgSAX2CoreValidation, false);
    reader->setFeature(XMLUni::fgXercesSchema, false);
    reader->parse(FileSource(path));
  }
  Reports reports(handler);
  const auto readContent = [&] {
    Reader reader(handler, reading);
    prepare(reader, reports);
    if (dtd != nullptr) {
      reader->setFeature(XMLUni::fgSAX2CoreValidation, dtd->validate);
      reader->setFeature(XMLUni::fgXercesDynamic, dtd->dynamic);
    }
    reader->setFeature(XMLUni::fgXercesSchema, schema.process);
    reader->setFeature(XMLUni::fgXercesSchemaFullChecking, schema.full);
    try {
      reader->parse(FileSource(path));
    } catch (const CCurlException&) {
      if (reader.foundUnknownPrefix() && !loadsDtd && !reader.filter().dtd().empty()) {
        reporter.warn("Warning: the prefix may be declared in the DTD (" + toUtf8(reader.filter().dtd().c_str()) +
                      "), which was not read. VALIDATION_MODE 1 reads it.");
      }
      throw;
    }
  };
  try {
    readContent();
  } catch (const NamespaceDeclared&) { // from the DTD, so before any content
    reading.fast = false;
    reports.startOver();
    readContent();
  }
}

} // namespace

void parse(Handler& handler, const char* file, const Validation& validation, Reporter& reporter, Fetcher& fetcher) {
  try {
    read(handler, file, validation, reporter, fetcher);
  } catch (const CCurlException&) {
    throw;
  } catch (const Refusal& refusal) {
    reporter.fail("Error: XML document (%s) refused: %s", file, refusal.reason.c_str());
  } catch (const xercesc::XMLException& e) {
    failParse("Error: XML parse error", e.getMessage());
  } catch (const xercesc::SAXParseException& e) {
    failParse("Error: SAX parse error", e.getMessage());
  } catch (const std::bad_alloc&) {
    failForMemory(file, reporter);
  } catch (const xercesc::OutOfMemoryException&) {
    failForMemory(file, reporter);
  } catch (...) {
    throw CCurlException("Error: unknown parse error");
  }
}

} // namespace ogc::xml

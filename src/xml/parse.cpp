// The XML parse driver of COgcBase: one guarded reader a document, every failure one CCurlException.
#include "client/base.h"
#include "xml/handler.h"
#include "xml/limits.h"
#include "xml/resolver.h"

#include <filesystem>
#include <new>
#include <utility>
#include <xercesc/sax/ErrorHandler.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

int g_iOgcBaseSaxInitialized = 0;

namespace {

using xercesc::XMLUni;
using namespace ogc::xml;

constexpr std::size_t parserMessageLimit = 255;

struct DtdMode {
  bool load;
  bool validate;
  bool dynamic;
  const char* status;
};
constexpr DtdMode dtdModes[] = {{false, false, false, "XML DTD validation is off. "},
                                {true, true, true, "XML DTD validation is on, if DTD is present. "},
                                {true, true, false, "XML DTD validation is on. "}};

struct SchemaMode {
  bool process;
  bool full;
  const char* status;
};
constexpr SchemaMode schemaModes[] = {{false, false, "XML Schema validation is off. "},
                                      {true, false, "XML Schema validation is on. "},
                                      {true, true, "XML Full Schema validation is on. "}};

const SchemaMode& schemaMode(int checking) noexcept {
  return schemaModes[checking == 0 || checking == 1 ? checking : 2];
}

const DtdMode* dtdMode(int validation) noexcept {
  return validation >= 0 && validation <= 2 ? &dtdModes[validation] : nullptr;
}

/// Passes the parser's reports on; those that came before the reading began anew only once.
class Reports final : public xercesc::ErrorHandler {
public:
  explicit Reports(xercesc::ErrorHandler* handler) : m_handler(handler) {}
  void warning(const xercesc::SAXParseException& e) override {
    if (isNew()) m_handler->warning(e);
  }
  void error(const xercesc::SAXParseException& e) override {
    if (isNew()) m_handler->error(e);
  }
  void fatalError(const xercesc::SAXParseException& e) override {
    if (m_handler != nullptr) m_handler->fatalError(e);
  }
  void resetErrors() override {}
  void beginAnew() noexcept { m_known = std::exchange(m_seen, 0); }

private:
  bool isNew() noexcept { return ++m_seen > m_known && m_handler != nullptr; }

  xercesc::ErrorHandler* m_handler;
  std::size_t m_seen = 0;
  std::size_t m_known = 0; ///< of the reports that come first
};

/// Is the exception that is being handled for want of memory?
bool isOutOfMemory() {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return true;
  } catch (const xercesc::OutOfMemoryException&) {
    return true;
  } catch (...) {
    return false;
  }
}

[[noreturn]] void failParser(const char* kind, const XMLCh* message) {
  Utf8 utf8;
  const std::string text(transfer::cutAt(utf8(message), parserMessageLimit));
  throw CCurlException(kind, text.c_str());
}

} // namespace

void COgcBase::OgcBaseParse(Handler* handler, const char* file, int schemaChecking, int validationMode) {
  m_hostError = nullptr;
  try {
    parse(handler, file, schemaChecking, validationMode);
    if (m_hostError != nullptr) std::rethrow_exception(m_hostError);
    OgcBaseServerErrorCheck();
  } catch (...) {
    failParse(file);
  }
}

void COgcBase::reportRefusal(const char* file) {
  Arena texts;
  ExceptionHandler handler(*this, texts);
  try {
    const Quiet quiet(*this);
    OgcBaseParse(&handler, file, 0, 0);
  } catch (const CCurlException&) { // a report, or no XML at all
  }
  try {
    OgcBaseServerErrorCheck();
  } catch (const CCurlException&) { // the status routine was told; the request's own error follows
  }
}

void COgcBase::parse(Handler* handler, const char* file, int schemaChecking, int validationMode) {
  if (g_iOgcBaseSaxInitialized == 0) {
    xercesc::XMLPlatformUtils::Initialize();
    g_iOgcBaseSaxInitialized = 1;
  }
  const DtdMode* dtd = dtdMode(validationMode);
  const SchemaMode& schema = schemaMode(schemaChecking);
  const std::string path = std::filesystem::absolute(file).string();
  if (dtd != nullptr) reportStatus(dtd->status);
  reportStatus(schema.status);

  const bool loadsDtd = dtd != nullptr && dtd->load;
  Reading reading{documentLimits, dtd == nullptr || dtd->validate, !schema.process};
  DocumentValues values;
  Resolver resolver(*this, path, {loadsDtd, schema.process}, values);
  if (schema.process && reading.validates) {
    Reader reader(&values, reading);
    resolver.serve(reader);
    reader->setXMLEntityResolver(&resolver);
    reader->setErrorHandler(&values);
    reader->setFeature(XMLUni::fgXercesLoadExternalDTD, loadsDtd);
    reader->setFeature(XMLUni::fgSAX2CoreValidation, false);
    reader->setFeature(XMLUni::fgXercesSchema, false);
    reader->parse(FileSource(path));
  }
  Reports reports(handler);
  const auto read = [&] {
    Reader reader(handler, reading);
    resolver.serve(reader);
    reader->setXMLEntityResolver(&resolver);
    reader->setErrorHandler(&reports);
    if (dtd != nullptr) {
      reader->setFeature(XMLUni::fgXercesLoadExternalDTD, dtd->load);
      reader->setFeature(XMLUni::fgSAX2CoreValidation, dtd->validate);
      reader->setFeature(XMLUni::fgXercesDynamic, dtd->dynamic);
    }
    reader->setFeature(XMLUni::fgXercesSchema, schema.process);
    reader->setFeature(XMLUni::fgXercesSchemaFullChecking, schema.full);
    try {
      reader->parse(FileSource(path));
    } catch (const CCurlException&) {
      if (reader.foundUnknownPrefix() && !loadsDtd && !reader.filter().dtd().empty()) {
        const std::string name(Utf8()(reader.filter().dtd().c_str()));
        warn(transfer::formatLimited(transfer::messageLimit,
                                     "Warning: the prefix may be declared in the DTD (%s), which was not read. "
                                     "VALIDATION_MODE 1 reads it.",
                                     name.c_str())
                 .c_str());
      }
      throw;
    }
  };
  try {
    read();
  } catch (const NamespaceDeclared&) { // a DTD comes before any content
    reading.fast = false;
    reports.beginAnew();
    read();
  }
}

void COgcBase::failParse(const char* file) {
  if (m_hostError != nullptr) std::rethrow_exception(std::exchange(m_hostError, nullptr));
  try {
    throw;
  } catch (const CCurlException&) {
    throw;
  } catch (const Refusal& refusal) {
    const std::string text = transfer::formatLimited(transfer::messageLimit, "Error: XML document (%s) refused: %s",
                                                     file, refusal.reason().c_str());
    reportStatus(text.c_str());
    throw CCurlException(text.c_str());
  } catch (const xercesc::XMLException& e) {
    failParser("Error: XML parse error", e.getMessage());
  } catch (const xercesc::SAXParseException& e) {
    failParser("Error: SAX parse error", e.getMessage());
  } catch (...) {
    if (isOutOfMemory())
      warn(transfer::formatLimited(transfer::messageLimit, "Error: memory ran out while XML document (%s) was read.",
                                   file)
               .c_str());
    throw CCurlException("Error: unknown parse error");
  }
}

// The XML parse driver of COgcBase: one guarded reader a document, every failure one CCurlException.
#include "client/base.h"
#include "xml/handler.h"
#include "xml/limits.h"
#include "xml/resolver.h"

#include <filesystem>
#include <utility>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

int g_iOgcBaseSaxInitialized = 0;

namespace {

using xercesc::XMLUni;

constexpr std::size_t messageLimit = 1023;
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

[[noreturn]] void failParser(const char* kind, const XMLCh* message) {
  COgcUtf8 utf8;
  const std::string text(utf8(message).substr(0, parserMessageLimit));
  throw CCurlException(kind, text.c_str());
}

} // namespace

void COgcBase::OgcBaseParse(COgcSaxHelper* handler, const char* file, int schemaChecking, int validationMode) {
  m_hostError = nullptr;
  try {
    parse(handler, file, schemaChecking, validationMode);
    if (m_hostError != nullptr) std::rethrow_exception(m_hostError);
    OgcBaseServerErrorCheck();
  } catch (...) {
    failParse(file);
  }
}

void COgcBase::OgcBaseTellRefusal(const char* file) {
  COgcArena texts;
  COgcSaxExceptionHandler handler(*this, texts);
  m_quiet = true;
  try {
    OgcBaseParse(&handler, file, 0, 0);
  } catch (const CCurlException&) { // a report, or no XML at all
  }
  m_quiet = false;
  try {
    OgcBaseServerErrorCheck();
  } catch (const CCurlException&) { // the status routine was told; the request's own error follows
  }
}

void COgcBase::parse(COgcSaxHelper* handler, const char* file, int schemaChecking, int validationMode) {
  if (g_iOgcBaseSaxInitialized == 0) {
    xercesc::XMLPlatformUtils::Initialize();
    g_iOgcBaseSaxInitialized = 1;
  }
  const DtdMode* dtd = dtdMode(validationMode);
  const SchemaMode& schema = schemaMode(schemaChecking);
  const std::string path = std::filesystem::absolute(file).string();

  COgcXmlReader reader(handler, schema.process ? ogcXmlSchemaLimits : ogcXmlDocumentLimits);
  COgcXmlResolver resolver(*this, reader, path, {dtd != nullptr && dtd->load, schema.process});
  reader->setXMLEntityResolver(&resolver);
  reader->setErrorHandler(handler);
  // A quarter faster than the default scanner, which alone knows schemas.
  if (!schema.process) {
    reader->setProperty(XMLUni::fgXercesScannerName, const_cast<XMLCh*>(XMLUni::fgDGXMLScanner));
  }
  if (dtd != nullptr) {
    reader->setFeature(XMLUni::fgXercesLoadExternalDTD, dtd->load);
    reader->setFeature(XMLUni::fgSAX2CoreValidation, dtd->validate);
    reader->setFeature(XMLUni::fgXercesDynamic, dtd->dynamic);
    OgcBaseStatus(dtd->status);
  }
  reader->setFeature(XMLUni::fgXercesSchema, schema.process);
  reader->setFeature(XMLUni::fgXercesSchemaFullChecking, schema.full);
  OgcBaseStatus(schema.status);
  reader->parse(COgcXmlFile(path));
}

void COgcBase::failParse(const char* file) {
  if (m_hostError != nullptr) std::rethrow_exception(std::exchange(m_hostError, nullptr));
  try {
    throw;
  } catch (const CCurlException&) {
    throw;
  } catch (const COgcXmlRefusal& refusal) {
    const std::string text =
        formatLimited(messageLimit, "Error: XML document (%s) refused: %s", file, refusal.reason().c_str());
    OgcBaseStatus(text.c_str());
    throw CCurlException(text.c_str());
  } catch (const xercesc::XMLException& e) {
    failParser("Error: XML parse error", e.getMessage());
  } catch (const xercesc::SAXParseException& e) {
    failParser("Error: SAX parse error", e.getMessage());
  } catch (...) {
    throw CCurlException("Error: unknown parse error");
  }
}

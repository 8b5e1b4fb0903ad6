/// \file
/// The lower bound of reading a document: a bare SAX2 scan with the parser's default scanner and an empty handler.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLUni.hpp>

using namespace xercesc;

namespace {

void scan(const char* file) {
  const std::unique_ptr<SAX2XMLReader> reader(XMLReaderFactory::createXMLReader());
  reader->setFeature(XMLUni::fgSAX2CoreValidation, false);
  reader->setFeature(XMLUni::fgXercesSchema, false);
  reader->setFeature(XMLUni::fgXercesLoadExternalDTD, false);
  DefaultHandler handler;
  reader->setContentHandler(&handler);
  reader->setErrorHandler(&handler);
  reader->parse(file);
}

} // namespace

int main(int argc, char** argv) {
  const int times = argc == 3 ? std::atoi(argv[2]) : 1;
  if (argc < 2 || argc > 3 || times < 1) {
    std::fprintf(stderr, "usage: %s FILE [REPEAT]\n", argv[0]);
    return 2;
  }
  XMLPlatformUtils::Initialize();
  try {
    for (int i = 0; i < times; ++i) scan(argv[1]);
  } catch (const SAXParseException& e) {
    std::fprintf(stderr, "%s: no well-formed XML in line %llu\n", argv[1],
                 static_cast<unsigned long long>(e.getLineNumber()));
    return 1;
  } catch (const XMLException&) {
    std::fprintf(stderr, "%s: cannot be read\n", argv[1]);
    return 1;
  }
  XMLPlatformUtils::Terminate();
}

// The parse driver: validation modes, failures, grammars, and what a document may reach.
#include "ogc_client.h"

#include <stdexcept>
#include <sys/stat.h>
#include <xercesc/sax/SAXParseException.hpp>

namespace {

/// What the host unwinds with, unknown to the clients.
struct Unwinding {
  int number;
};

/// Does something at the first element.
class ActingHandler : public ogc::xml::Handler {
public:
  ActingHandler(Client& client, std::function<void()> action)
      : Handler(client, arena, versions), m_action(std::move(action)) {}
  void startElement(const XMLCh*, const XMLCh*, const XMLCh*, const xercesc::Attributes&) override { m_action(); }

private:
  static constexpr ogc::xml::VersionRule versions{{}, "", ""};
  ogc::xml::Arena arena;
  std::function<void()> m_action;
};

TEST_F(Ogc, ModesAreAnnounced) {
  const std::string dtdOff = "XML DTD validation is off. ";
  const std::string dtdAuto = "XML DTD validation is on, if DTD is present. ";
  const std::string dtdOn = "XML DTD validation is on. ";
  const std::string schemaOff = "XML Schema validation is off. ";
  const std::string schemaOn = "XML Schema validation is on. ";
  const std::string schemaFull = "XML Full Schema validation is on. ";
  const struct {
    int schema;
    int validation;
    Lines lines;
  } cases[] = {{0, 0, {dtdOff, schemaOff}}, {1, 1, {dtdAuto, schemaOn}}, {2, 0, {dtdOff, schemaFull}},
               {7, 5, {schemaFull}},        {0, -1, {schemaOff}},        {0, 2, {dtdOn, schemaOff}}};
  for (const auto& c : cases) {
    fakeBridge() = {};
    EXPECT_EQ(parse("<a/>", c.schema, c.validation), "");
    Lines& lines = fakeBridge().status;
    const std::size_t reports = c.validation == 2 ? 1 : 0; // of the element that nothing declares
    ASSERT_EQ(lines.size(), c.lines.size() + reports);
    EXPECT_EQ(fakeBridge().info.size(), reports);
    lines.resize(c.lines.size());
    EXPECT_EQ(lines, c.lines);
  }
}

TEST_F(Ogc, FailuresOfTheParserAreOneKindOfException) {
  const std::string longText(400, 'x');
  const struct {
    std::function<void()> action;
    std::string error;
    std::string told = {};
  } cases[] = {
      {[&] { throw CCurlException("Error: as it is"); }, "Error: as it is."},
      {[&] { throw std::runtime_error("any"); }, "Error: unknown parse error."},
      {[&] { throw 1; }, "Error: unknown parse error."},
      {[&] { throw std::bad_alloc(); }, "Error: unknown parse error.", "Error: memory ran out while XML document ("},
      {[&] { throw xercesc::SAXParseException(u"m\u00fc", u"", u"", 1, 2); }, "Error: SAX parse error m\u00fc."},
      {[&] {
         const std::u16string message(longText.begin(), longText.end());
         throw xercesc::SAXParseException(message.c_str(), u"", u"", 1, 2);
       },
       "Error: SAX parse error " + longText.substr(0, 255) + "."}};
  const std::string file = write("a.xml", "<a/>");
  for (const auto& c : cases) {
    ActingHandler acting(client, c.action);
    fakeBridge() = {};
    EXPECT_EQ(errorOf([&] { client.OgcBaseParse(&acting, file.c_str(), 0, 0); }), c.error);
    EXPECT_EQ(fakeBridge().info.empty() ? "" : fakeBridge().info.front().substr(0, c.told.size()), c.told);
  }
}

TEST_F(Ogc, ErrorsOfTheHostPassUnchanged) {
  write("a.dtd", "<!ELEMENT a EMPTY>");
  const std::string file = write("a.xml", "<!DOCTYPE a SYSTEM 'a.dtd'><a><b/></a>");
  const std::string broken = write("broken.xml", "<a>");
  const struct {
    std::string file;
    const char* line;
  } cases[] = {{file, "XML DTD"}, {file, "XML Schema"}, {file, "Error SAX"}, {broken, "Fatal Error"}};
  int number = 0;
  for (const auto& c : cases) {
    ++number;
    fakeBridge().onStatus = [&](const std::string& line) -> int {
      if (line.find(c.line) == 0) throw Unwinding{number};
      return 1;
    };
    try {
      client.OgcBaseParse(&handler, c.file.c_str(), 0, 1);
      ADD_FAILURE() << c.line;
    } catch (const Unwinding& unwinding) {
      EXPECT_EQ(unwinding.number, number);
    }
  }
  fakeBridge() = {};
  fakeBridge().onInfo = [](const std::string&) { throw Unwinding{7}; };
  EXPECT_THROW(client.OgcBaseParse(&handler, file.c_str(), 0, 1), Unwinding);
  fakeBridge() = {};
  EXPECT_EQ(parse("<a/>"), "");
}

constexpr char schemaHead[] = "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'>";
constexpr char schemaOfA[] = "<xs:element name='a' type='xs:int'/>";

std::string withSchema(const std::string& location, const std::string& content) {
  return "<a xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xsi:noNamespaceSchemaLocation='" + location + "'>" +
         content + "</a>";
}

TEST_F(Ogc, DocumentsAreValidatedByGrammarsBesideThem) {
  write("own.dtd", "<!ELEMENT a (#PCDATA)><!ATTLIST a a CDATA 'default'>");
  write("my own/a.xsd", schemaHead + std::string(schemaOfA) + "</xs:schema>");
  write("including.xsd", schemaHead + std::string("<xs:include schemaLocation='my%20own/a.xsd'/></xs:schema>"));
  const std::string dtd = "<!DOCTYPE a SYSTEM 'own.dtd'>";
  const struct {
    std::string document;
    int schema;
    int validation;
    std::size_t errors;
  } cases[] = {{dtd + "<a>1</a>", 0, 1, 0},
               {dtd + "<a><b/></a>", 0, 1, 2},
               {dtd + "<a><b/></a>", 0, 2, 2},
               {dtd + "<a><b/></a>", 0, 0, 0},
               {"<a><b/></a>", 0, 1, 0},
               {withSchema("my%20own/a.xsd", "1"), 1, 1, 0},
               {withSchema("my%20own/a.xsd", "one"), 1, 1, 1},
               {withSchema("including.xsd", "one"), 1, 1, 1},
               {withSchema("including.xsd", "one"), 2, 2, 1},
               {withSchema("including.xsd", "one"), 1, 0, 0},
               {withSchema("including.xsd", "one"), 0, 1, 0}};
  for (const auto& c : cases) {
    fakeBridge() = {};
    EXPECT_EQ(parse(c.document, c.schema, c.validation), "") << c.document;
    EXPECT_EQ(fakeBridge().info.size(), c.errors) << c.document << c.schema << c.validation;
    for (const std::string& line : fakeBridge().info) EXPECT_EQ(line.find("Error SAX Parser: Message ("), 0U) << line;
  }
  handler.attribute = nullptr;
  EXPECT_EQ(parse(dtd + "<a>1</a>", 0, 1), "");
  EXPECT_EQ(shown(handler.attribute), "default");
  // Namespaces that a DTD declares count, and what was said before they were met is said once.
  write("prefix.dtd", "<!ELEMENT a ANY><!ELEMENT a ANY><!ELEMENT p:b ANY>"
                      "<!ATTLIST p:b xmlns:p CDATA #FIXED 'u' p:a CDATA 'of p'>");
  for (const int validation : {0, 1, 2}) {
    fakeBridge() = {};
    handler.attribute = nullptr;
    const std::string inside = "<!DOCTYPE a [<!ELEMENT a ANY><!ELEMENT a ANY><!ATTLIST p:b xmlns:p CDATA #FIXED 'u'>]>";
    EXPECT_EQ(parse((validation == 0 ? inside : "<!DOCTYPE a SYSTEM 'prefix.dtd'>") + "<a><p:b/></a>", 0, validation),
              "");
    EXPECT_EQ(shown(handler.attribute), validation == 0 ? "-" : "of p");
    EXPECT_EQ(fakeBridge().info.size(), validation == 2 ? 1 : 0) << validation;
    EXPECT_EQ(fakeBridge().status.size(), 2 + fakeBridge().info.size());
  }
  for (const char* broken : {"<a><p:b/></a>", "<a>"}) {
    EXPECT_NE(parse(std::string("<!DOCTYPE a SYSTEM 'prefix.dtd'>") + broken), "");
    EXPECT_EQ(fakeBridge().info.back().find("VALIDATION_MODE 1 reads it") != std::string::npos, broken[3] == '<');
    fakeBridge().info = {""};
  }
  // Relative to the working directory, as users name them.
  const std::string file = write("a.xml", dtd + "<a><b/></a>");
  fakeBridge() = {};
  client.OgcBaseParse(&handler, std::filesystem::relative(file).c_str(), 0, 1);
  EXPECT_EQ(fakeBridge().info.size(), 2U);
  // By ways that go round corners, a link among them.
  std::filesystem::create_directories(path("far/away"));
  std::filesystem::create_directory_symlink(path("far/away"), path("link"));
  write("far/own.dtd", "<!ELEMENT a EMPTY>");
  write("far/a.xml", dtd + "<a/>");
  for (const char* way : {"./far//../a.xml", "link//../a.xml"}) {
    fakeBridge() = {};
    client.OgcBaseParse(&handler, path(way).c_str(), 0, 1);
    EXPECT_EQ(fakeBridge().info.size(), *way == '.' ? 2U : 0U) << way;
  }
}

TEST_F(Ogc, NothingElseIsRead) {
  write("secret.txt", "secret");
  write("inside/x.dtd", "<!ELEMENT a ANY>");
  write("parts.dtd", "<!ENTITY % part SYSTEM 'inside/x.dtd'> %part;");
  ASSERT_EQ(mkfifo(path("inside/pipe").c_str(), 0600), 0);
  write("inside/long.dtd", std::string((8 << 20) + 1, ' '));
  const std::string outside = path("secret.txt");
  // Refused with the document.
  const struct {
    std::string document;
    int validation;
    const char* why;
  } refused[] = {
      {"<!DOCTYPE a [<!ENTITY e SYSTEM 'file://" + outside + "'>]><a>&e;</a>", 0, "external entity"},
      {"<!DOCTYPE a [<!ENTITY % e SYSTEM '" + outside + "'> %e;]><a/>", 0, "external entity"},
      {"<!DOCTYPE a SYSTEM '../secret.txt'><a/>", 1, "outside the document's directory"},
      {"<!DOCTYPE a SYSTEM '" + outside + "'><a/>", 2, "outside the document's directory"},
      {"<!DOCTYPE a SYSTEM 'x/%2e%2e/%2e%2e/secret.txt'><a/>", 1, "outside the document's directory"},
      {"<!DOCTYPE a SYSTEM 'pipe'><a/>", 1, "not a file"},
      {"<!DOCTYPE a SYSTEM 'none.dtd'><a/>", 1, "VALIDATION_MODE 0 does without it"},
      {"<!DOCTYPE a SYSTEM 'long.dtd'><a/>", 1, "at most 8 MiB"},
      {"<!DOCTYPE a SYSTEM 'ftp://127.0.0.1:1/x.dtd'><a/>", 1, "nor on an HTTP server"},
      {"<!DOCTYPE a SYSTEM 'gopher2://127.0.0.1:1/x.dtd'><a/>", 1, "neither a relative name"},
      {"<!DOCTYPE a SYSTEM 'http://127.0.0.1:1/x.dtd'><a/>", 1, "127.0.0.1"},
  };
  for (const auto& c : refused) {
    const std::string file = write("inside/a.xml", c.document);
    const std::string error = errorOf([&] { client.OgcBaseParse(&handler, file.c_str(), 0, c.validation); });
    EXPECT_NE(error.find(c.why), error.npos) << c.document << error;
    EXPECT_EQ(error.find("Error: XML document (" + file + ") refused: "), 0U) << error;
    EXPECT_EQ(fakeBridge().status.back(), error.substr(0, error.size() - 1));
  }
  EXPECT_NE(parse("<!DOCTYPE a SYSTEM 'parts.dtd'><a/>", 0, 1).find("external entity"), std::string::npos);
  // Not asked for, so not missed.
  EXPECT_EQ(parse("<!DOCTYPE a SYSTEM 'http://127.0.0.1:1/x.dtd'><a/>", 0, 0), "");
  EXPECT_EQ(parse("<!DOCTYPE a SYSTEM 'http://127.0.0.1:1/x.dtd'><a/>", 0, 5), "");
  EXPECT_EQ(parse(withSchema("../secret.txt", ""), 0, 1), "");
  // A schema that cannot be had is a warning.
  fakeBridge() = {};
  EXPECT_EQ(parse(withSchema("../secret.txt", ""), 1, 0), "");
  ASSERT_EQ(fakeBridge().info.size(), 1U);
  EXPECT_EQ(fakeBridge().info[0].find("Warning: XML Schema is not used: ("), 0U) << fakeBridge().info[0];
  EXPECT_EQ(shown(handler.text), "-");
}

TEST_F(Ogc, AnInterruptWhileAGrammarIsFetchedEndsTheParse) {
  CCurl::CurlSetInterruptFunc([] { return 1; });
  EXPECT_EQ(parse(withSchema("http://127.0.0.1:1/x.xsd", ""), 1, 0), "Cancel request detected...Operation canceled..");
  EXPECT_EQ(parse("<!DOCTYPE a SYSTEM 'http://127.0.0.1:1/x.dtd'><a/>", 0, 1),
            "Cancel request detected...Operation canceled..");
  CCurl::CurlSetInterruptFunc(nullptr);
}

TEST_F(Ogc, SchemasAreReadWithoutTheirDtd) {
  write("a.xsd", "<!DOCTYPE xs:schema SYSTEM 'http://127.0.0.1:1/XMLSchema.dtd' [<!ENTITY % p SYSTEM 'none'> %p;]>" +
                     std::string(schemaHead) + schemaOfA + "</xs:schema>");
  EXPECT_EQ(parse(withSchema("a.xsd", "one"), 1, 1), "");
  EXPECT_EQ(fakeBridge().info.size(), 1U);
}

TEST_F(Ogc, SchemasMayNotBeDeep) {
  write("deep.xsd", schemaHead + times(20'000, "<xs:sequence>") + times(20'000, "</xs:sequence>") + "</xs:schema>");
  EXPECT_EQ(parse(withSchema("deep.xsd", ""), 1, 0), "");
  EXPECT_NE(fakeBridge().info[0].find("nested more than 256 deep"), std::string::npos) << fakeBridge().info[0];
}

} // namespace

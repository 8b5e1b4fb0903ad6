// The parse driver: validation modes, failures, grammars, and what a document may reach.
#include "ogc_client.h"

#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <xercesc/sax/SAXParseException.hpp>

namespace {

TEST_F(Ogc, ModesAreAnnounced) {
  const std::string dtd = "XML DTD validation is ", schema = "XML Schema validation is ";
  const struct {
    int schema, validation;
    Lines lines;
  } cases[] = {{0, 0, {dtd + "off. ", schema + "off. "}},
               {1, 1, {dtd + "on, if DTD is present. ", schema + "on. "}},
               {2, 0, {dtd + "off. ", "XML Full Schema validation is on. "}},
               {7, 5, {"XML Full Schema validation is on. "}},
               {0, -1, {schema + "off. "}},
               {0, 2, {dtd + "on. ", schema + "off. "}}};
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
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[] { throw CCurlException("Error: as it is"); }, "Error: as it is."},
      {[] { throw std::runtime_error("any"); }, "Error: unknown parse error."},
      {[] { throw 1; }, "Error: unknown parse error."},
      {[] { throw xercesc::SAXParseException(std::u16string(400, u'\u00fc').c_str(), u"", u"", 1, 2); },
       "Error: SAX parse error " + times(127, "\u00fc") + "."}};
  for (const auto& [action, error] : cases) {
    handler.onElement = action;
    EXPECT_EQ(parse("<a/>"), error);
    EXPECT_TRUE(fakeBridge().info.empty());
  }
  handler.onElement = [] { throw std::bad_alloc(); };
  EXPECT_EQ(parse("<a/>"), "Error: unknown parse error.");
  EXPECT_TRUE(fakeBridge().info.at(0).starts_with("Error: memory ran out while XML document ("));
}

constexpr char schemaHead[] = "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'>";
constexpr char schemaOfA[] = "<xs:element name='a' type='xs:int'/>";

TEST_F(Ogc, DocumentsAreValidatedByGrammarsBesideThem) {
  write("own.dtd", "<!ELEMENT a (#PCDATA)><!ATTLIST a a CDATA 'default'>");
  write("my own/a.xsd", schemaHead + std::string(schemaOfA) + "</xs:schema>");
  write("including.xsd", schemaHead + std::string("<xs:include schemaLocation='my%20own/a.xsd'/></xs:schema>"));
  const std::string b = "<xs:element name='b'/>"; // which of two a document has is a question of full checking
  write("twice.xsd", schemaHead + ("<xs:element name='a'><xs:complexType><xs:choice>" + b + b) +
                         "</xs:choice></xs:complexType></xs:element></xs:schema>");
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
               {withSchema("including.xsd", "one"), 0, 1, 0},
               {withSchema("twice.xsd", "<b/>"), 1, 1, 0},
               {withSchema("twice.xsd", "<b/>"), 2, 1, 1}};
  for (const auto& c : cases) {
    fakeBridge() = {};
    EXPECT_EQ(parse(c.document, c.schema, c.validation), "") << c.document;
    EXPECT_EQ(fakeBridge().info.size(), c.errors) << c.document << c.schema << c.validation;
    for (const std::string& line : fakeBridge().info) EXPECT_EQ(line.find("Error SAX Parser: Message ("), 0U) << line;
  }
  EXPECT_EQ(read(dtd + "<a/>", 0, 1), "default");
  // Namespaces that a DTD declares count, and what was said before they were met is said once.
  write("prefix.dtd", "<!ELEMENT a ANY><!ELEMENT a ANY><!ELEMENT p:b ANY>"
                      "<!ATTLIST p:b xmlns:p CDATA #FIXED 'u' p:a CDATA 'of p'>");
  for (const int validation : {0, 1, 2}) {
    fakeBridge() = {};
    const std::string dtds[] = {"[<!ELEMENT a ANY><!ELEMENT a ANY><!ATTLIST p:b xmlns:p CDATA #FIXED 'u'>]",
                                "SYSTEM 'prefix.dtd'"};
    EXPECT_EQ(read("<!DOCTYPE a " + dtds[validation != 0] + "><a><p:b/></a>", 0, validation),
              validation == 0 ? "-" : "of p");
    EXPECT_EQ(fakeBridge().info.size(), validation == 2 ? 1 : 0) << validation;
    EXPECT_EQ(fakeBridge().status.size(), 2 + fakeBridge().info.size());
  }
  for (const auto& [broken, validation] : {std::pair{"<a><p:b/></a>", 0}, {"<a><q:b/></a>", 1}, {"<a>", 0}}) {
    EXPECT_NE(parse(std::string("<!DOCTYPE a SYSTEM 'prefix.dtd'>") + broken, 0, validation), "");
    EXPECT_EQ(fakeBridge().info.back().find("VALIDATION_MODE 1 reads it") != std::string::npos,
              std::string_view(broken).starts_with("<a><p:"));
    fakeBridge().info = {""};
  }
  // Relative to the working directory, as users name them, and by ways that go round corners, a link among them.
  std::filesystem::create_directories(path("far/away"));
  std::filesystem::create_directory_symlink(path("far/away"), path("link"));
  write("far/own.dtd", "<!ELEMENT a EMPTY>");
  write("far/a.xml", dtd + "<a>1</a>");
  const std::pair<std::string, std::size_t> ways[] = {
      {std::filesystem::relative(write("a.xml", dtd + "<a><b/></a>")), 2},
      {path("./far//../a.xml"), 2},
      {path("link//../a.xml"), 1}};
  for (const auto& [way, errors] : ways) {
    fakeBridge() = {};
    client.OgcBaseParse(&handler, way.c_str(), 0, 1);
    EXPECT_EQ(fakeBridge().info.size(), errors) << way;
  }
}

TEST_F(Ogc, NothingElseIsRead) {
  write("secret.txt", "secret");
  write("inside/x.dtd", "<!ELEMENT a ANY>");
  write("inside/parts.dtd", "<!ENTITY % part SYSTEM 'x.dtd'> %part;");
  ASSERT_EQ(mkfifo(path("inside/pipe").c_str(), 0600), 0);
  write("inside/long.dtd", std::string((8 << 20) + 1, ' '));
  const std::string nowhere = "'http://127.0.0.1:1/x.dtd'", outside = "outside the document's directory";
  const struct {
    std::string dtd;
    int validation;
    std::string why;
  } refused[] = {{"'../secret.txt'", 1, outside},
                 {std::string("'") + path("secret.txt") + "'", 2, outside},
                 {"'x/%2e%2e/%2e%2e/secret.txt'", 1, outside},
                 {"'pipe'", 1, "not a file"},
                 {"'none.dtd'", 1, "VALIDATION_MODE 0 does without it"},
                 {"'long.dtd'", 1, "at most 8 MiB"},
                 {"'parts.dtd'", 1, "external entity"},
                 {"'ftp://127.0.0.1:1/x.dtd'", 1, "nor on an HTTP server"},
                 {"'gopher2://127.0.0.1:1/x.dtd'", 1, "neither a relative name"},
                 {nowhere, 1, "127.0.0.1"}};
  for (const auto& c : refused) {
    const std::string file = write("inside/a.xml", "<!DOCTYPE a SYSTEM " + c.dtd + "><a/>");
    const std::string error = errorOf([&] { client.OgcBaseParse(&handler, file.c_str(), 0, c.validation); });
    EXPECT_NE(error.find(c.why), error.npos) << c.dtd << error;
    EXPECT_EQ(error.find("Error: XML document (" + file + ") refused: "), 0U) << error;
    EXPECT_EQ(fakeBridge().status.back() + ".", error);
  }
  // Not asked for, so not missed; and a schema that cannot be had is a warning.
  fakeBridge() = {};
  for (const int validation : {0, 5}) EXPECT_EQ(parse("<!DOCTYPE a SYSTEM " + nowhere + "><a/>", 0, validation), "");
  EXPECT_EQ(parse(withSchema("../secret.txt", ""), 0, 1), "");
  EXPECT_TRUE(fakeBridge().info.empty());
  EXPECT_EQ(read(withSchema("../secret.txt", ""), 1, 0), "-");
  ASSERT_EQ(fakeBridge().info.size(), 1U);
  EXPECT_TRUE(fakeBridge().info[0].starts_with("Warning: XML Schema is not used: (")) << fakeBridge().info[0];
}

TEST_F(Ogc, SchemasAreReadWithoutTheirDtd) {
  write("a.xsd", "<!DOCTYPE xs:schema SYSTEM 'http://127.0.0.1:1/XMLSchema.dtd' [<!ENTITY % p SYSTEM 'none'> %p;]>" +
                     std::string(schemaHead) + schemaOfA + "</xs:schema>");
  EXPECT_EQ(parse(withSchema("a.xsd", "one"), 1, 1), "");
  ASSERT_EQ(fakeBridge().info.size(), 1U);
  EXPECT_TRUE(fakeBridge().info[0].starts_with("Error SAX")) << fakeBridge().info[0];
}

} // namespace

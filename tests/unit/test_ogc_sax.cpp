// The helpers of the handlers: texts, lists, attributes, versions, exception reports, and what they stand on.
#include "ogc_client.h"

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>

namespace {

/// Opens the helpers to tests.
class Helper : public ogc::xml::Handler {
public:
  explicit Helper(Client& client, const ogc::xml::VersionRule& rule = versions) : Handler(client, arena, rule) {}
  using Handler::addCurrentNode;
  using Handler::AddStringNode;
  using Handler::AppendStrings;
  using Handler::iElement;
  using Handler::iSection;
  using Handler::ParseConcatenatedValues;
  using Handler::pCurNode;
  using Handler::szUpdateSequence;

  void startElement(const XMLCh*, const XMLCh*, const XMLCh*, const xercesc::Attributes& attrs) override {
    HandleVersion(attrs);
    found = GetAttributes(attrs, "href", &href);
  }

  static constexpr const char* supported[] = {"1.1.0", "1.1.1"};
  static constexpr ogc::xml::VersionRule versions{supported, "no version", "version (%s)"};
  ogc::xml::Arena arena;
  const char* href = nullptr;
  bool found = false;
};

TEST_F(Ogc, TextsGrowByRuns) {
  const struct {
    Lines runs;
    int trim;
    int commas;
    const char* result;
  } cases[] = {{{"a", "b", "c"}, 0, 0, "a b c"},  {{"a", "b", "c"}, 0, 1, "a, b, c"},
               {{"a ,\r\n", "b, "}, 1, 0, "a b"}, {{"a ,\r\n"}, 0, 0, "a ,\r\n"},
               {{"", "a", ""}, 0, 0, "a"},        {{"a", " ,\n", "b"}, 1, 0, "a  b"},
               {{" ", "a"}, 1, 0, " a"},          {{}, 0, 0, "-"}};
  Helper helper(client);
  for (const auto& c : cases) {
    const char* text = nullptr;
    for (const std::string& run : c.runs) helper.AppendStrings(&text, run, c.trim, c.commas);
    EXPECT_EQ(shown(text), c.result);
  }
}

TEST_F(Ogc, RunsOfNamesAreSplit) {
  const std::string name(1500, 'n');
  const struct {
    Lines runs;
    Lines names;
  } cases[] = {{{"EPSG:1 EPSG:2"}, {"EPSG:1", "EPSG:2"}},
               {{"image/png, image/gif,image/tiff"}, {"image/png", "image/gif", "image/tiff"}},
               {{"a   b  "}, {"a", "b"}},
               {{"a ,b"}, {"a"}},
               {{"a,,b"}, {"a"}},
               {{"  a"}, {"  a"}},
               {{"  a b"}, {"  a", "b"}},
               {{"   "}, {"   "}},
               {{",a"}, {"-", "a"}},
               {{"a b", "c d"}, {"a", "b c", "d"}},
               {{name + " " + name}, {name, name.substr(0, 1023)}}};
  for (const auto& c : cases) {
    Helper helper(client);
    xNodeStr_t* head = nullptr;
    helper.addCurrentNode(&head);
    for (const std::string& run : c.runs) helper.ParseConcatenatedValues(run, 0);
    Lines names;
    for (const xNodeStr_t* node = head; node != nullptr; node = node->next) names.push_back(shown(node->str));
    EXPECT_EQ(names, c.names) << c.runs[0];
  }
}

TEST_F(Ogc, RootsAreCheckedForTheirVersion) {
  const struct {
    std::string document;
    std::string error;
    std::string href;
  } cases[] = {{"<r Version='1.1.1' xmlns:x='u' x:HREF='h'/>", "", "h"},
               {"<r version='1.1.0'/>", "", "-"},
               {"<r version='2'/>", "version (2).", "-"},
               {"<r version='" + std::string(600, '9') + "'/>", "version (" + std::string(502, '9') + ".", "-"},
               {"<r version=''/>", "no version.", "-"},
               {"<r/>", "no version.", "-"}};
  for (const auto& c : cases) {
    Helper helper(client);
    const std::string file = write("root.xml", c.document);
    EXPECT_EQ(errorOf([&] { client.OgcBaseParse(&helper, file.c_str(), 0, 0); }), c.error);
    EXPECT_EQ(shown(helper.href), c.href);
    EXPECT_EQ(helper.found, c.href != "-");
    if (!c.error.empty()) {
      EXPECT_EQ(fakeBridge().status.back() + ".", c.error);
    }
  }
}

TEST(OgcUtf8, ConvertsEveryCharacterAndHalvesOfPairs) {
  xercesc::XMLPlatformUtils::Initialize();
  const struct {
    std::u16string chars;
    const char* utf8;
  } cases[] = {{u"", ""},
               {u"plain", "plain"},
               {u"h\u00e4 \u20ac \U0001F30D!", "h\u00e4 \u20ac \U0001F30D!"},
               {u"a\xD83C", "a\uFFFD"},
               {u"\xDF0D z", "\uFFFD z"}};
  ogc::xml::Utf8 utf8;
  for (const auto& c : cases) EXPECT_EQ(utf8(c.chars.c_str()), c.utf8);
  const std::u16string many(100'000, u'\u20ac');
  EXPECT_EQ(utf8(many.data(), many.size()).size(), 300'000U);
  EXPECT_EQ(utf8(nullptr), "");
}

TEST(OgcNames, AreFoundInAnyCase) {
  const ogc::xml::ElementNames names{{"Layer", 1}, {"srs", 2}, {"BoundingBox", 3}};
  EXPECT_EQ(names.find(u"layer"), 1);
  EXPECT_EQ(names.find(u"SRS"), 2);
  EXPECT_EQ(names.find(u"BOUNDINGbox"), 3);
  for (const char16_t* other : {u"", u"Layers", u"Laye", u"l\u00e4yer", u"\u212Aayer"}) EXPECT_EQ(names.find(other), 0);
}

TEST(OgcArena, TextsThatGrowInTurnKeepTheirContent) {
  ogc::xml::Arena arena;
  std::vector<const char*> texts(5, nullptr);
  std::vector<std::string> expected(texts.size());
  for (std::size_t round = 0; round < 3000; ++round) {
    const std::size_t at = (round + round / 3) % texts.size();
    const std::string piece(1 + round % 39, static_cast<char>('a' + at));
    arena.append(&texts[at], piece, "-");
    expected[at] += (expected[at].empty() ? "" : "-") + piece;
    ASSERT_EQ(*arena.make<int>(), 0);
  }
  for (std::size_t at = 0; at < texts.size(); ++at) EXPECT_TRUE(texts[at] == expected[at]) << at;
  arena.release();
  EXPECT_STREQ(arena.copy("anew"), "anew");
}

} // namespace

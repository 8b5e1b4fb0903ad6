// Documents that mean harm, or are broken, and those that only look so: what is read, what it costs, and that the
// client is as good as new afterwards.
#include "ogc_client.h"
#include "xml/limits.h"
#include "zel_ogcwms_obj.h"

#include <ctime>

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr double secondsAllowed = 10;
constexpr long kibibytesAllowed = 1'048'576;
#elif defined(NDEBUG)
constexpr double secondsAllowed = 1;
constexpr long kibibytesAllowed = 65'536;
#else
constexpr double secondsAllowed = 3;
constexpr long kibibytesAllowed = 65'536;
#endif

/// `count` times a text with a number: "@" stands for it, "~" for the next one.
std::string chain(int count, const std::string& part) {
  std::string all;
  for (int i = 0; i < count; ++i)
    for (const char c : part) all += c == '@' || c == '~' ? std::to_string(i + (c == '~')) : std::string(1, c);
  return all;
}

/// A figure of the process in KiB: VmRSS now, or VmHWM, the most since startPeak().
long kibibytes(const char* figure) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(figure)) return std::stol(line.substr(line.find(':') + 1));
  return 0;
}
void startPeak() { std::ofstream("/proc/self/clear_refs") << 5; }

bool isUtf8(const std::string& text) {
  for (std::size_t i = 0, size = 0; i < text.size(); i += size) {
    size = transfer::utf8Size(std::string_view(text).substr(i));
    if (size == 1 && static_cast<unsigned char>(text[i]) >= 0x80) return false;
  }
  return true;
}

/// Runs what must not take more than a second of processor time, nor 64 MiB of memory.
template <class Action>
void expectCheap(const char* name, Action action) {
  const long before = kibibytes("VmRSS");
  startPeak();
  const std::clock_t start = std::clock();
  action();
  EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, secondsAllowed) << name;
  EXPECT_LT(kibibytes("VmHWM") - before, kibibytesAllowed) << name;
}

using OgcHostile = Ogc;

TEST_F(OgcHostile, DocumentsMayEndAnywhereAndHaveOtherBytes) {
  const std::string whole =
      "<?xml version='1.0' encoding='UTF-8'?><!DOCTYPE a [<!ENTITY e 'x'><!ATTLIST b c CDATA 'd'>]>\n"
      "<a a='v'>a\u00e4&e;<b xmlns='u'/><![CDATA[b]]><!-- c --><?p i?></a>";
  for (std::size_t at = 0; at < whole.size(); ++at) {
    EXPECT_TRUE(parse(whole.substr(0, at)).starts_with("Fatal Error: SAX Parser: Message (")) << at;
    for (const char other : {'\0', '\xff', '<', '>', '&', '\'', ' '}) {
      std::string broken = whole;
      broken[at] = other;
      EXPECT_TRUE(isUtf8(read(broken))) << at << other;
    }
  }
  EXPECT_EQ(read(whole), "a\u00e4x b");
}

TEST_F(OgcHostile, CharactersAndEncodings) {
  const auto encoded = [](const std::string& encoding, const std::string& text) {
    return "<?xml version='1.0' encoding='" + encoding + "'?><a>" + text + "</a>";
  };
  const auto wide = [](const std::u16string& text) {
    std::string bytes = "\xff\xfe";
    for (const char16_t c : text) bytes += {static_cast<char>(c & 0xff), static_cast<char>(c >> 8)};
    return bytes;
  };
  using std::string_literals::operator""s;
  for (const std::string& refused :
       {"<a>x\0y</a>"s, "<a a='x\0y'/>"s, "\0<a/>"s, "<a>&#0;</a>"s, "<a>\x01</a>"s, "<a\x08/>"s, "<a>&#x110000;</a>"s,
        "<a>&#xD800;</a>"s, "<a>\x80</a>"s, "<a>\xc0\xaf</a>"s, "<a>\xe2\x82</a>"s, encoded("UTF-8", "\xe4"),
        encoded(std::string(100'000, 'e'), "x"), encoded("ibm037", "x"), wide(u"<a>\xd800</a>"),
        wide(u"<a>\xdc00</a>")}) {
    const std::string error = parse(refused);
    EXPECT_TRUE(error.find("), Line (") != error.npos && error.size() <= 1023 && isUtf8(error)) << error;
    EXPECT_TRUE(handler.text == nullptr || isUtf8(handler.text)) << refused;
  }
  const std::string euro = "h\u00e4 \u20ac";
  expectEach([this](auto& document) { return read(document); },
             {{"<a>" + euro + "</a>", euro},
              {encoded("ISO-8859-1", "h\xe4 &#x20AC;"), euro},
              {encoded("windows-1252", "h\xe4 \x80"), euro},
              {wide(u"<?xml version='1.0' encoding='UTF-16'?><a>h\u00e4 \u20ac</a>"), euro},
              {wide(u"<a>h\u00e4 \u20ac</a>") + "x", euro},
              {"\xef\xbb\xbf<a>\U0001F30D</a>", "\U0001F30D"},
              {"<?xml version='1.1'?><a>&#1;</a>", "\x01"},
              {encoded("UTF-16", "no wide x"), "no wide x"}});
  for (const XMLCh* half : {u"ä\xd800", u"ä\xdc00"}) EXPECT_EQ(ogc::xml::toUtf8(half), "ä\uFFFD");
}

TEST_F(OgcHostile, NoModeReadsAnEntityFromOutside) {
  write("secret.txt", "secret");
  const std::string entities[] = {"<!ENTITY e SYSTEM 'file://" + path("secret.txt") + "'>]><a>&e;</a>",
                                  "<!ENTITY e SYSTEM 'secret.txt'>]><a>&e;</a>",
                                  "<!ENTITY e PUBLIC 'p' 'http://127.0.0.1:1/e'>]><a a='x'>&e;</a>",
                                  "<!ENTITY e SYSTEM 'secret.txt'><!ENTITY f '&e;'>]><a>&f;</a>",
                                  "<!ENTITY % e SYSTEM 'secret.txt'>%e;]><a/>",
                                  "<!ENTITY % e SYSTEM 'http://127.0.0.1:1/e'><!ENTITY % f '&#37;e;'>%f;]><a/>"};
  for (const std::string& subset : entities)
    for (const int validation : {-1, 0, 1, 2, 5})
      for (const int schema : {0, 1, 2})
        EXPECT_NE(parse("<!DOCTYPE a [" + subset, schema, validation).find("external entity"), std::string::npos)
            << subset << validation << schema;
  // Declared and never used, or not what a parser reads: no harm.
  for (const char* document :
       {"<!DOCTYPE a [<!ENTITY e SYSTEM 'secret.txt'>]><a/>",
        "<!DOCTYPE a [<!NOTATION n SYSTEM 'secret.txt'><!ENTITY e SYSTEM 'secret.txt' NDATA n>]><a/>",
        "<?xml-stylesheet href='secret.txt'?><a xmlns:xi='http://www.w3.org/2001/XInclude'>"
        "<xi:include href='secret.txt' parse='text'/></a>"})
    EXPECT_EQ(parse(document), "") << document;
  EXPECT_EQ(handler.text, nullptr);
}

/// Ten entities, each ten times the one before, as `reference` + number.
std::string laughs(const std::string& kind, const std::string& reference, const std::string& first) {
  return "<!ENTITY " + kind + "l0 '" + first + "'>" +
         chain(9, "<!ENTITY " + kind + "l~ '" + times(10, reference + "l@;") + "'>");
}

/// A document with an internal subset, content and attributes of its element.
std::string document(const std::string& subset, const std::string& content, const std::string& attributes = "") {
  return (subset.empty() ? "" : "<!DOCTYPE a [" + subset + "]>") + "<a " + attributes + '>' + content + "</a>";
}

TEST_F(OgcHostile, ADocumentCostsASecondAnd64MebibytesAtMost) {
  const auto many = [](const std::string& entity) { return times(5'000, entity); };
  const auto choice = [](int count) {
    return "<!ELEMENT a (b)*><!ELEMENT b EMPTY><!ATTLIST b e (x" + chain(count, "|x@") + ") 'x'>";
  };
  const std::string laughing = laughs("", "&", "lol");
  const std::string large = "<!ENTITY q '" + std::string(8000, 'x') + "'>", elements = times(100'000, "<b/>");
  const std::string spaces = "<!ENTITY % p '" + std::string(8000, ' ') + "'>";
  const std::string megabyte(1 << 20, 'n'), prefixes = chain(20'000, "xmlns:a@='u' ");
  write("parameters.dtd", laughs("% ", "%", "x") + "%l9;");
  write("value.dtd", spaces + "<!ENTITY v '" + many("%p;") + "'>");
  const struct {
    const char* name;
    std::string document;
    const char* why = ""; ///< "" for what is read
    int validation = 0, schema = 0;
  } rows[] = {
      {"laughs", document(laughing, "&l9;"), "refused: with entity (l4) an entity expands to more than"},
      {"laughs of nothing", document(laughs("", "&", ""), "&l9;"), "(l4)"},
      {"laughs in an attribute", document(laughing, "", "a='&l9;'"), "(l4)"},
      {"laughs backwards",
       document(chain(9, "<!ENTITY c@ '" + times(10, "&c~;") + "'>") + "<!ENTITY c9 'lol'><!ATTLIST a a CDATA '&c0;'>",
                ""),
       "8192 characters"},
      {"recursion", document("<!ENTITY e '&f;'><!ENTITY f '&e;'>", "&e;"), "8192 characters"},
      {"one large entity", document("<!ENTITY q '" + std::string(9000, 'x') + "'>", "&q;"), "(q)"},
      {"many large entities", document(chain(140, "<!ENTITY e@ '" + std::string(8000, 'x') + "'>"), ""),
       "its entities expand to more than"},
      {"a long chain", document(chain(20'000, "<!ENTITY c@ '&c~;'>"), ""), "characters"},
      {"quadratic text", document(large, many("&q;")), "refused: it expands more than"},
      {"quadratic attribute", document(large, "", "a='" + many("&q;") + "'"), "expands more than"},
      {"quadratic default", document(large + "<!ATTLIST a a CDATA '" + many("&q;") + "'>", ""), "expands more than"},
      {"many expansions", document("<!ENTITY q 'x'>", times(100'000, "&q;")), "or too many of them"},
      {"parameter laughs", document(laughs("% ", "&#37;", "x") + "%l9;", ""), "(%l4)"},
      {"parameter laughs outside", "<!DOCTYPE a SYSTEM 'parameters.dtd'><a/>", "(%l4)", 1},
      {"a value of parameters", "<!DOCTYPE a SYSTEM 'value.dtd'><a/>", "expands more than", 1},
      {"many parameters", document(spaces + times(100'000, "%p; "), ""), "expands more than"},
      {"a default on every element", document(large + "<!ATTLIST b c CDATA '" + times(100, "&q;") + "'>", elements),
       "default attributes"},
      {"declared attributes of every element", document(chain(20'000, "<!ATTLIST b x@ CDATA #IMPLIED>"), elements),
       "default attributes"},
      {"a content model", document("<!ELEMENT a (b" + times(3'000, ",b?") + ")>", ""), "content models", 1},
      {"an automaton", document("<!ELEMENT a ((b|c)*,b" + times(40, ",(b|c)") + ")>", "<b/>"), "memory", 1},
      {"depth", times(10'001, "<a>") + times(10'001, "</a>"), "elements are nested more than 10000 deep"},
      {"depth below", times(10'000, "<a>") + times(10'000, "</a>")},
      {"elements in the deep", times(9'900, "<a>") + elements + times(9'900, "</a>"), "deeply nested"},
      {"an attribute of 40 MB", document("", "", "a='" + times(40'000'000, "x") + "'"), "40 MiB of memory"},
      {"a long text", document("", times(8, megabyte) + "x"), "a text of more than 8388608 characters"},
      {"a text as long as may be", document("", times(8, megabyte))},
      {"long names", "<?" + megabyte + " " + megabyte + "?>" + document("", "", megabyte + "=''")},
      {"a long prefix", "<" + megabyte + ":a xmlns:" + megabyte + "='" + megabyte + "'/>"},
      {"a long comment and CDATA section",
       "<!--" + times(4, megabyte) + "--><a><![CDATA[" + times(4, megabyte) + "]]></a>"},
      {"a long entity name", document("<!ENTITY " + megabyte + " ''>", "&" + megabyte + ";")},
      {"many references, entities and attributes",
       document(chain(20'000, "<!ENTITY e@ 'x'>"), times(200'000, "&amp;"), chain(20'000, "a@='' ")), "", 0, 1},
      {"very many attributes", document("", "", chain(200'000, "a@='' ")), "40 MiB of memory", 1, 1},
      {"many prefixes", document("", "", prefixes)},
      {"prefixes looked up", document("", times(100'000, "<b a19999:a='' a19999:b=''/>"), prefixes), "many prefixes"},
      {"a choice looked up", document(choice(900), times(50'000, "<b e='x899'/>")), "choices", 1},
      {"a content model looked up",
       document("<!ELEMENT a (#PCDATA" + chain(1'000, "|x@") + ")*><!ELEMENT x999 EMPTY>", times(500'000, "<x999/>")),
       "choices", 1},
      {"a long choice", document(choice(30'000), "<b/>"), "choices in its DTD are too long", 1},
      {"an honest choice", document(choice(50), times(20'000, "<b e='x49'/>")), "", 1},
      {"honest defaults", document("<!ENTITY c '(c)'><!ENTITY w '&c;&c;'><!ATTLIST b a CDATA 'd&c;' c CDATA #IMPLIED>",
                                   times(300, "&w;") + elements)},
      {"few large and many small entities, and models that nothing is validated against",
       document("<!ENTITY q '" + std::string(6000, 'x') + "'><!ENTITY u '\u00fc'>" +
                    times(600, "<!ELEMENT x (b" + times(200, ",b") + ")>"),
                times(2'000, "<b a='&u;'>&u;</b>") + times(2'000, "&u;") + "&q;<b a='" + times(2'000, "&u;") + "'/>")},
  };
  for (const auto& row : rows) {
    const std::string file = write("document.xml", row.document);
    std::string error;
    forget();
    expectCheap(row.name, [&] {
      error = errorOf([&] { client.OgcBaseParse(&handler, file.c_str(), row.schema, row.validation); });
    });
    EXPECT_EQ(error.empty(), *row.why == '\0') << row.name << ": " << error;
    EXPECT_NE(error.find(row.why), error.npos) << row.name << ": " << error;
  }
  EXPECT_EQ(shown(handler.text).size(), 2U * 2'000 * 2 + 2'000 + 6000);
  EXPECT_NE(parse(rows[std::size(rows) - 1].document, 0, 1).find("content models"), std::string::npos);
  EXPECT_EQ(parse("<" + megabyte + " a='" + megabyte + "'>" + times(3, megabyte) + "</" + megabyte + ">"), "");
  EXPECT_TRUE(handler.attribute == megabyte && shown(handler.text).size() >= 3 * megabyte.size());
}

TEST_F(OgcHostile, SchemasCostASecondAndNoStack) {
  const std::string within = "<xs:complexType><xs:sequence>", end = "</xs:sequence></xs:complexType>";
  const std::string simple = "<xs:simpleType name='sc@'><xs:restriction base='sc~'/></xs:simpleType>";
  const std::string both = "<xs:simpleType name='c@'><xs:union memberTypes='c~ c~'/></xs:simpleType>";
  const std::string derived =
      "<xs:complexType name='dc@'><xs:complexContent><xs:extension base='dc~'><xs:sequence>"
      "<xs:element name='e'/></xs:sequence></xs:extension></xs:complexContent></xs:complexType>";
  const std::string group = "<xs:group name='c@'><xs:sequence><xs:group ref='c~'/></xs:sequence></xs:group>";
  const std::string substitution = "<xs:element name='c@' substitutionGroup='c~'/>";
  const std::string reference = "<xs:element name='c@'>" + within + "<xs:element ref='c~'/>" + end + "</xs:element>";
  const std::string deep = "<xs:element name='c@'>" + times(80, within + "<xs:element name='q'>") + within +
                           "<xs:element ref='c~'/>" + end + times(80, "</xs:element>" + end) + "</xs:element>";
  const auto pattern = [](const std::string& value, const std::string& name = "p") {
    return "<xs:element name='b" + name + "' type='" + name + "'/><xs:simpleType name='" + name +
           "'><xs:restriction base='xs:string'><xs:pattern value='" + value + "'/></xs:restriction></xs:simpleType>";
  };
  const std::string letters = "<bp>" + std::string(40'000, 'a') + "</bp>",
                    words = "<bp>" + times(20'000, "ab") + "</bp>";
  const struct {
    const char* name;
    std::string schema;
    const char* why; ///< "" for what is used
    std::string content = {};
  } cases[] = {
      {"simple types", chain(20'000, simple), "more than 4000 components"},
      {"unions", chain(40, both), "derived from each other"},
      {"complex types", chain(20'000, derived), "nested too deep"},
      {"complex types of a type", chain(1'000, derived), "derived from each other"},
      {"simple types below",
       chain(200, simple) + "<xs:simpleType name='sc200'><xs:restriction base='xs:int'/></xs:simpleType>", ""},
      {"complex types below", chain(200, derived) + "<xs:complexType name='dc200'><xs:sequence/></xs:complexType>", ""},
      {"substitutions below", chain(200, substitution) + "<xs:element name='c200'/>", ""},
      {"elements", times(20'000, "<xs:sequence>") + times(20'000, "</xs:sequence>"), "nested more than 256 deep"},
      {"groups", chain(1'000, group), "derived from each other"},
      {"attribute groups",
       chain(1'000, "<xs:attributeGroup name='c@'><xs:attributeGroup ref='c~'/></xs:attributeGroup>"),
       "derived from each other"},
      {"substitutions", chain(2'000, substitution), "derived from each other"},
      {"references", chain(3'500, reference), "nested too deep"},
      {"references below", chain(2'900, reference) + "<xs:element name='c2900'/>", ""},
      {"references in the deep", chain(100, deep), "nested too deep"},
      {"references in the deep below", chain(48, deep) + "<xs:element name='c48'/>", ""},
      {"a schema that goes on behind an error", "<xs:element name='x' y:z=''/>" + chain(20'000, reference), "line 1: "},
      {"a repetition in a repetition", pattern("(a*)*b"), "contains what can be empty", letters},
      {"counted loops", pattern("(a{1,2}){2,}b"), "for their pattern", letters},
      {"repeated alternatives that begin alike", pattern("(ab|ac)*"), "for their pattern",
       "<bp>" + times(5'500, "ab") + "</bp>"},
      {"nothing, repeated", pattern("(a?|b)*"), "contains what can be empty", letters},
      {"loops one after the other", pattern("a*a*a*a*a*b"), "too long, or too many, for their pattern", letters},
      {"many options", pattern(times(60, "a?") + times(60, "a")), "for their pattern", letters},
      {"long values", pattern("(ab|cd)*"), "for their pattern", words},
      {"long values below", pattern("(ab|cd)*"), "", "<bp>" + times(5'500, "ab") + "</bp>"},
      {"many long values", pattern("(ab|cd)*"), "for their pattern", times(20, "<bp>" + times(5'500, "ab") + "</bp>")},
      {"long values of a type that the document names", "<xs:element name='d'/>" + pattern("(ab|cd)*"),
       "for their pattern", "<d xsi:type='p'>" + words.substr(4, 40'000) + "</d>"},
      {"a long default",
       pattern("(ab|cd)*") + "<xs:element name='e' type='p' default='" + words.substr(4, 40'000) + "'/>",
       "for their pattern"},
      {"a long fixed list",
       "<xs:simpleType name='l'><xs:list itemType='p'/></xs:simpleType>" + pattern("(ab|cd)*") +
           "<xs:element name='e' type='l' fixed='" + words.substr(4, 40'000) + "'/>",
       "for their pattern"},
      {"parentheses", pattern(std::string(900, '(') + "a" + std::string(900, ')')), "nested more than 100 deep"},
      {"counted repetitions", pattern("(a{200}){200}"), "too large"},
      {"honest patterns",
       pattern("([a-zA-Z][a-zA-Z0-9\\-\\+\\.]*:|\\.\\./|\\./|#).*") +
           pattern("([A-Z]{2}|[a-z]\\d+)(-(x|y[^\\s-[a]]))*", "q"),
       "", "<bp>urn:ogc:def:uom:EPSG::9001</bp><bq>AB-x-yb</bq><d>" + times(20'000, "ab") + "</d>"},
  };
  for (const auto& c : cases) {
    fakeBridge() = {};
    write("a.xsd", "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'><xs:element name='a'><xs:complexType>"
                   "<xs:sequence><xs:any minOccurs='0' maxOccurs='unbounded' processContents='lax'/></xs:sequence>"
                   "</xs:complexType></xs:element>" +
                       c.schema + "</xs:schema>");
    expectCheap(c.name, [&] { EXPECT_EQ(parse(withSchema("a.xsd", c.content), 1, 1), "") << c.name; });
    const std::string said = fakeBridge().info.empty() ? "" : fakeBridge().info.front();
    EXPECT_EQ(said.empty(), *c.why == '\0') << c.name << ": " << said;
    EXPECT_NE(said.find(c.why), said.npos) << c.name << ": " << said;
  }
  // One that ends in an annotation, in which nothing counts, excuses no other.
  const std::string head = "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'>";
  write("half.xsd", head + "<xs:annotation>");
  write("a.xsd", head + chain(20'000, simple) + "</xs:schema>");
  parse(withSchema("half.xsd' xsi:schemaLocation='u a.xsd", ""), 1, 1);
  EXPECT_NE(fakeBridge().info.back().find("4000 components"), std::string::npos) << fakeBridge().info.back();
}

TEST_F(OgcHostile, LayersInThousandsOfLevelsAreRead) {
  COgcWms wms;
  wms.OgcWmsSetCapFN(path("document").c_str());
  const std::string file =
      write("document.xml", "<WMS_Capabilities version='1.3.0'>" +
                                times(3'000, "<Layer><CRS>c</CRS><Style/><Dimension/><AuthorityURL/>") +
                                times(3'000, "</Layer>") + "</WMS_Capabilities>");
  expectCheap("levels", [&] { wms.OgcWmsGetCap(file.c_str(), nullptr, 0, 0, 0); });
  EXPECT_EQ(wms.OgcWmsGetLayer(2'999)->nStyle, 3'000);
  EXPECT_EQ(wms.OgcWmsGetLayer(2'999)->nCrs, 1);
}

TEST(OgcXmlMemory, BlocksAreAligned) {
  ogc::xml::Memory memory(1 << 20);
  for (XMLSize_t size = 0; size < 1800; ++size)
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory.allocate(size / 3)) % alignof(std::max_align_t), 0U) << size;
}

} // namespace

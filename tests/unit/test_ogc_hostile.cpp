// Documents that mean harm, or are broken: what they cost, and that the client is as good as new afterwards.
#include "ogc_client.h"
#include "xml/limits.h"
#include "zel_ogcwcs_obj.h"
#include "zel_ogcwms_obj.h"

#include <ctime>

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr double secondsAllowed = 10;
constexpr long kibibytesAllowed = 1024 * 1024;
#elif defined(NDEBUG)
constexpr double secondsAllowed = 1;
constexpr long kibibytesAllowed = 64 * 1024;
#else
constexpr double secondsAllowed = 3;
constexpr long kibibytesAllowed = 64 * 1024;
#endif

std::string times(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

std::string numbered(int count, const char* before, const char* behind, int first = 0) {
  std::string all;
  for (int i = first; i < first + count; ++i) all.append(before).append(std::to_string(i)).append(behind);
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

double cpuSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

bool isUtf8(const std::string& text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc2 ? 2 : 0;
    if (length == 0 || i + length > text.size()) return false;
    for (std::size_t k = 1; k < length; ++k)
      if ((static_cast<unsigned char>(text[i + k]) & 0xc0) != 0x80) return false;
    i += length;
  }
  return true;
}

class OgcHostile : public Ogc {
protected:
  OgcHostile() {
    wms.OgcWmsSetCapFN(path("document").c_str());
    wcs.OgcWcsSetCapFN(path("document").c_str());
    wcs.OgcWcsSetDesCovFN(path("document").c_str());
  }

  /// Writes the document anew: cutting the old file short may wait for the disk.
  std::string rewrite(const std::string& document) {
    std::filesystem::remove(path("document.xml"));
    return write("document.xml", document);
  }

  /// What each kind of document is read by.
  struct Kind {
    std::string document;
    std::function<void(const char* file)> read;
    std::function<std::string()> found; ///< a name that only the whole document gives
  };
  std::vector<Kind> kinds() {
    return {{"<?xml version='1.0' encoding='UTF-8'?><!DOCTYPE WMS_Capabilities [<!ENTITY e 'x'>]>\n"
             "<WMS_Capabilities version='1.3.0'><Service><Name>n</Name></Service><Capability><Layer><CRS>CRS:84</CRS>"
             "<Style><Name>s</Name></Style><Layer><Name>a\u00e4&e;<![CDATA[b]]></Name></Layer></Layer></Capability>"
             "</WMS_Capabilities>",
             [this](const char* file) { wms.OgcWmsGetCap(file, nullptr, 0, 0, 0); },
             [this] { return wms.NumLayers() == 2 ? wms.OgcWmsGetLayer(1)->szName : ""; }},
            {"<WCS_Capabilities version='1.0.0'><Service><name>n</name></Service><ContentMetadata>"
             "<CoverageOfferingBrief><name>c</name><lonLatEnvelope srsName='s'><pos>1 2</pos><pos>3 4</pos>"
             "</lonLatEnvelope></CoverageOfferingBrief></ContentMetadata></WCS_Capabilities>",
             [this](const char* file) { wcs.OgcWcsGetCap(file, nullptr, 0, 0); },
             [this] { return wcs.BriefCount() == 1 ? wcs.Briefs()->name : ""; }},
            {"<CoverageDescription version='1.0.0'><CoverageOffering><name>o</name><rangeSet><RangeSet><name>r</name>"
             "<nullValues><interval><min>0</min></interval></nullValues></RangeSet></rangeSet><supportedCRSs>"
             "<requestCRSs>a b,c</requestCRSs></supportedCRSs></CoverageOffering></CoverageDescription>",
             [this](const char* file) { wcs.OgcWcsDescribeCoverage(nullptr, 0, file, 0, 0); },
             [this] { return wcs.OfferingCount() == 1 ? wcs.Offerings()->name : ""; }}};
  }

  COgcWms wms;
  COgcWcs wcs;
};

TEST_F(OgcHostile, DocumentsThatEndAnywhereAreRefusedAndForgotten) {
  for (const Kind& kind : kinds()) {
    const std::string whole = rewrite(kind.document);
    kind.read(whole.c_str());
    const std::string name = kind.found();
    EXPECT_FALSE(name.empty());
    for (std::size_t size = 0; size < kind.document.size(); ++size) {
      const std::string file = rewrite(kind.document.substr(0, size));
      const std::string error = errorOf([&] { kind.read(file.c_str()); });
      EXPECT_EQ(error.find("Fatal Error: SAX Parser: Message ("), 0U) << size << error;
    }
    rewrite(kind.document);
    kind.read(whole.c_str());
    EXPECT_EQ(kind.found(), name);
  }
}

TEST_F(OgcHostile, AnyByteMayBeAnother) {
  for (const Kind& kind : kinds()) {
    for (std::size_t at = 0; at < kind.document.size(); ++at) {
      for (const char other : {'\0', '\xff', '<', '>', '&', '\'', ' '}) {
        std::string document = kind.document;
        document[at] = other;
        const std::string file = rewrite(document);
        const std::string error = errorOf([&] { kind.read(file.c_str()); });
        EXPECT_TRUE(error.empty() || error.find("rror: ") < 10) << error;
        EXPECT_TRUE(isUtf8(error.empty() ? kind.found() : error));
      }
    }
    const std::string whole = rewrite(kind.document);
    kind.read(whole.c_str());
    EXPECT_FALSE(kind.found().empty());
  }
}

TEST_F(OgcHostile, CharactersAndEncodingsThatAreNoXml) {
  const auto encoded = [](const std::string& encoding, const std::string& text) {
    return "<?xml version='1.0' encoding='" + encoding + "'?><a>" + text + "</a>";
  };
  const std::string utf16Half("\xff\xfe<\0a\0>\0\x00\xd8<\0/\0a\0>\0", 18); // a high surrogate alone
  const std::pair<const char*, std::string> refused[] = {
      {"a NUL", std::string("<a>x\0y</a>", 10)},
      {"a NUL in an attribute", std::string("<a a='x\0y'/>", 12)},
      {"a NUL in front", std::string("\0<a/>", 5)},
      {"a reference to NUL", "<a>&#0;</a>"},
      {"a control character", "<a>\x01</a>"},
      {"a reference to one", "<a>&#x1f;</a>"},
      {"a name with one", "<a\x08/>"},
      {"beyond Unicode", "<a>&#x110000;</a>"},
      {"beyond any number", "<a>&#99999999999999999999;</a>"},
      {"a surrogate", "<a>&#xD800;</a>"},
      {"no character", "<a>&#xFFFF;</a>"},
      {"a stray byte", "<a>\x80</a>"},
      {"an overlong sequence", "<a>\xc0\xaf</a>"},
      {"a sequence cut short", "<a>\xe2\x82</a>"},
      {"a surrogate in UTF-8", "<a>\xed\xa0\x80</a>"},
      {"five bytes", "<a>\xf8\x88\x80\x80\x80</a>"},
      {"Latin-1 called UTF-8", encoded("UTF-8", "\xe4")},
      {"no encoding", encoded("klingon", "x")},
      {"an endless encoding", encoded(std::string(100'000, 'e'), "x")},
      {"EBCDIC that is ASCII", encoded("ibm037", "x")},
      {"half a pair", utf16Half},
      {"ASCII with a mark of UTF-16", "\xfe\xff<a/>"},
  };
  for (const auto& [name, document] : refused) {
    const std::string error = parse(document);
    EXPECT_NE(error, "") << name;
    EXPECT_LE(error.size(), 1023U) << name;
    EXPECT_TRUE(isUtf8(error)) << name << error;
    EXPECT_TRUE(handler.text == nullptr || isUtf8(handler.text)) << name;
  }
  for (const std::string& document : {std::string("<a>\x7f\t</a>"), std::string("\xef\xbb\xbf<a>\u20ac</a>"),
                                      std::string("<?xml version='1.1'?><a>&#1;</a>"), encoded("UTF-16", "no wide x"),
                                      std::string("\xff\xfe<\0a\0>\0x\0<\0/\0a\0>\0x", 19)}) {
    handler.text = nullptr;
    EXPECT_EQ(parse(document), "");
    EXPECT_TRUE(handler.text != nullptr && isUtf8(handler.text)) << document;
  }
}

TEST_F(OgcHostile, NoModeReadsAnEntityFromOutside) {
  const std::string file = write("secret.txt", "secret");
  const std::string entities[] = {
      "<!DOCTYPE a [<!ENTITY e SYSTEM 'file://" + file + "'>]><a>&e;</a>",
      "<!DOCTYPE a [<!ENTITY e SYSTEM 'secret.txt'>]><a>&e;</a>",
      "<!DOCTYPE a [<!ENTITY e PUBLIC 'p' 'http://127.0.0.1:1/e'>]><a a='x'>&e;</a>",
      "<!DOCTYPE a [<!ENTITY e SYSTEM 'secret.txt'><!ENTITY f '&e;'>]><a>&f;</a>",
      "<!DOCTYPE a [<!ENTITY % e SYSTEM 'secret.txt'>%e;]><a/>",
      "<!DOCTYPE a [<!ENTITY % e SYSTEM 'http://127.0.0.1:1/e'><!ENTITY % f '&#37;e;'>%f;]><a/>",
  };
  for (const std::string& document : entities)
    for (const int validation : {-1, 0, 1, 2, 5})
      for (const int schema : {0, 1, 2}) {
        EXPECT_NE(parse(document, schema, validation).find("external entity"), std::string::npos)
            << document << validation << schema;
        EXPECT_EQ(handler.text, nullptr);
      }
  // Declared and never used, or not what a parser reads: no harm.
  for (const char* document :
       {"<!DOCTYPE a [<!ENTITY e SYSTEM 'secret.txt'>]><a/>",
        "<!DOCTYPE a [<!NOTATION n SYSTEM 'secret.txt'><!ENTITY e SYSTEM 'secret.txt' NDATA n>]><a/>",
        "<?xml-stylesheet href='secret.txt'?><a xmlns:xi='http://www.w3.org/2001/XInclude'>"
        "<xi:include href='secret.txt' parse='text'/></a>"}) {
    EXPECT_EQ(parse(document), "") << document;
    EXPECT_EQ(handler.text, nullptr) << document;
  }
}

TEST_F(OgcHostile, HarmCostsASecondAnd64MebibytesAtMost) {
  const auto dtd = [](const std::string& subset) { return "<!DOCTYPE a [" + subset + "]>"; };
  std::string laughs = "<!ENTITY l0 'lol'>";
  for (int i = 1; i < 10; ++i)
    laughs += numbered(1, "<!ENTITY l", "", i) + " '" + times(10, numbered(1, "&l", ";", i - 1)) + "'>";
  const std::string large = "<!ENTITY q '" + std::string(8000, 'x') + "'>";
  const std::string declared = "<!ELEMENT a (b)*><!ELEMENT b EMPTY>";
  const std::string megabyte(1 << 20, 'n');
  const struct {
    const char* name;
    std::string document;
    const char* why; ///< "" for what is read
    int validation = 0;
  } cases[] = {
      {"laughs", dtd(laughs) + "<a>&l9;</a>", "refused: with entity (l4) an entity expands to more than"},
      {"quadratic text", dtd(large) + "<a>" + times(5'000, "&q;") + "</a>", "refused: it expands more than"},
      {"quadratic attribute", dtd(large) + "<a a='" + times(5'000, "&q;") + "'/>", "refused: it expands more than"},
      {"depth", times(100'000, "<a>"), "refused: its elements are nested more than 10000 deep"},
      {"depth below", times(9'999, "<a>") + times(9'999, "</a>"), ""},
      {"a long name", "<" + megabyte + "/>", ""},
      {"a long attribute name", "<a " + megabyte + "=''/>", ""},
      {"a long attribute", "<a a='" + megabyte + "'/>", ""},
      {"a long prefix", "<" + megabyte + ":a xmlns:" + megabyte + "='" + megabyte + "'/>", ""},
      {"a long target", "<?" + megabyte + " " + megabyte + "?><a/>", ""},
      {"a long comment", "<!--" + times(8, megabyte) + "--><a/>", ""},
      {"a long CDATA section", "<a><![CDATA[" + times(4, megabyte) + "]]></a>", ""},
      {"a long entity name", dtd("<!ENTITY " + megabyte + " ''>") + "<a>&" + megabyte + ";</a>", ""},
      {"many references", "<a>" + times(200'000, "&amp;") + "</a>", ""},
      {"many entities", dtd(numbered(20'000, "<!ENTITY e", " 'x'>")) + "<a/>", ""},
      {"many attributes", "<a " + numbered(20'000, "a", "='' ") + "/>", ""},
      {"many prefixes", "<a " + numbered(20'000, "xmlns:a", "='u' ") + "/>", ""},
      {"prefixes looked up",
       "<a " + numbered(20'000, "xmlns:a", "='u' ") + ">" + times(100'000, "<b a19999:a='' a19999:b=''/>") + "</a>",
       "many prefixes"},
      {"a choice looked up",
       dtd(declared + "<!ATTLIST b e (x" + numbered(900, "|x", "") + ") 'x'>") + "<a>" +
           times(50'000, "<b e='x899'/>") + "</a>",
       "choices", 1},
      {"a content model looked up",
       dtd("<!ELEMENT a (#PCDATA" + numbered(1'000, "|x", "") + ")*><!ELEMENT x999 EMPTY>") + "<a>" +
           times(500'000, "<x999/>") + "</a>",
       "choices", 1},
      {"a long choice", dtd(declared + "<!ATTLIST b e (x" + numbered(30'000, "|x", "") + ") 'x'>") + "<a><b/></a>",
       "choices in its DTD are too long", 1},
      {"an honest choice",
       dtd(declared + "<!ATTLIST b e (x" + numbered(50, "|x", "") + ") 'x'>") + "<a>" + times(20'000, "<b e='x49'/>") +
           "</a>",
       "", 1},
  };
  for (const auto& c : cases) {
    handler.arena.release();
    handler.text = handler.attribute = nullptr;
    const std::string file = write("document.xml", c.document);
    const long before = kibibytes("VmRSS");
    startPeak();
    const double start = cpuSeconds();
    const std::string error = errorOf([&] { client.OgcBaseParse(&handler, file.c_str(), 0, c.validation); });
    EXPECT_LT(cpuSeconds() - start, secondsAllowed) << c.name;
    EXPECT_LT(kibibytes("VmHWM") - before, kibibytesAllowed) << c.name;
    EXPECT_EQ(error.empty(), *c.why == '\0') << c.name << ": " << error;
    EXPECT_NE(error.find(c.why), error.npos) << c.name << ": " << error;
  }
}

TEST_F(OgcHostile, LayersInThousandsOfLevelsAreRead) {
  const std::string file =
      write("document.xml", "<WMS_Capabilities version='1.3.0'>" +
                                times(3'000, "<Layer><CRS>c</CRS><Style/><Dimension/><AuthorityURL/>") +
                                times(3'000, "</Layer>") + "</WMS_Capabilities>");
  const double start = cpuSeconds();
  wms.OgcWmsGetCap(file.c_str(), nullptr, 0, 0, 0);
  EXPECT_LT(cpuSeconds() - start, 2 * secondsAllowed);
  const xWmsLayer_t* last = wms.OgcWmsGetLayer(2'999);
  EXPECT_EQ(last->nStyle, 3'000);
  EXPECT_EQ(last->nCrs, 1);
}

TEST(OgcXmlMemory, BlocksAreAligned) {
  COgcXmlMemory memory(1 << 20);
  for (XMLSize_t size = 0; size < 600; ++size)
    for (int i = 0; i < 3; ++i)
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory.allocate(size)) % alignof(std::max_align_t), 0U) << size;
}

} // namespace

#include "curl_test.h"
#include "zel_curl_obj.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <vector>

namespace {

/// Scheme, host, port, path, prefix, query and suffix.
using Parts = std::vector<std::string>;

struct Filled : CCurl {
  explicit Filled(const Parts& parts) {
    CurlSetScheme(parts[0].c_str());
    CurlSetHost(parts[1].c_str());
    CurlSetPort(parts[2].c_str());
    CurlSetPath(parts[3].c_str());
    CurlSetQueryPrefix(parts[4].c_str());
    CurlSetQuery(parts[5].c_str());
    CurlSetQuerySuffix(parts[6].c_str());
  }
};

Parts partsOf(const CCurl& curl) {
  const auto& set = curl.Settings();
  return {set.scheme.str(),      set.host.str(),  set.port.str(),       set.path.str(),
          set.queryPrefix.str(), set.query.str(), set.querySuffix.str()};
}

TEST(CurlUrl, IsComposedOfItsParts) {
  const struct {
    Parts parts;
    std::string full, simple; ///< URL, or what is missing
  } rows[] = {{{"http", "h", "80", "p", "", "q", ""}, "http://h/p?q", "http://h/p?q"},
              {{"https", "h", "80", "p", "", "q", ""}, "https://h/p?q", "https://h/p?q"},
              {{"https", "h", "443", "p/r", "a", "q", ""}, "https://h:443/p/r?a&q", "https://h:443/p/r?q"},
              {{"http", "h", "8080", "p", "a", "q", "z"}, "http://h:8080/p?a&q&z", "http://h:8080/p?q"},
              {{"http", "h", "8080", "p", "a", "", "z"}, "Query", "http://h:8080/p"},
              {{"http", "h", "81", "", "", "", ""}, "Path", "http://h:81"},
              {{"http", "", "81", "p", "", "q", ""}, "Host", "Host"},
              {{"", "", "81", "p", "", "q", ""}, "Scheme", "Scheme"}};
  for (const auto& row : rows)
    for (const auto& [build, expected] :
         {std::pair(&CCurl::CurlBuildUrlRq, row.full), {&CCurl::CurlBuildUrlRqSimple, row.simple}}) {
      Filled curl(row.parts);
      char url[128] = "";
      int length = 0;
      const std::string error = errorOf([&] { length = (curl.*build)(url, sizeof url); });
      const bool built = expected.find(':') != expected.npos;
      EXPECT_EQ(url, built ? expected : "");
      EXPECT_EQ(length, built ? static_cast<int>(expected.size()) : 0);
      EXPECT_EQ(error,
                built ? "" : "Error: Request can not be processed until the " + expected + " property has been set..");
    }
  char small[10];
  EXPECT_EQ(Filled(rows[3].parts).CurlBuildUrlRq(small, 10), 21);
  EXPECT_STREQ(small, "http://h:");
}

TEST(CurlUrl, IsSplitIntoItsParts) {
  const std::string noScheme = "Error: url does not contain a : cannot locate scheme in url (typically http:).";
  const std::string noServer = "Error: url does not contain a // cannot locate a host in url";
  const Parts old{"old", "old", "99", "old", "old", "old", "old"};
  const auto with = [&](Parts first) {
    first.insert(first.end(), old.begin() + static_cast<std::ptrdiff_t>(first.size()), old.end());
    return first;
  };
  const struct {
    std::string url;
    Parts full, simple;
    std::string error; ///< of both, or of the full form alone when the simple one has other parts
  } rows[] = {
      {"http://h/p/r?a=b", {"http", "h", "80", "p/r", "", "", ""}, {"http", "h", "80", "p/r", "", "a=b", ""}, ""},
      {"https://me:pw@h:81/p?q?r", {"https", "h", "81", "p", "", "", ""}, {"https", "h", "81", "p", "", "q?r", ""}, ""},
      {"http://h/p?mail=a@b/c?d", {"http", "b", "80", "c", "", "", ""}, {"http", "b", "80", "c", "", "d", ""}, ""},
      {"http://h:81/p",
       {"http", "h", "81", "", "", "", ""},
       {"http", "h", "81", "p", "", "", ""},
       "Error: url does not contain a ? cannot locate a path in url"},
      {"http://h/p?", {"http", "h", "80", "p", "", "", ""}, {"http", "h", "80", "p", "", "", ""}, ""},
      {"http://h",
       with({"http"}),
       {"http", "h", "80", "", "", "", ""},
       "Error: url does not contain a / cannot locate a host in url"},
      {"nothing", old, old, noScheme},
      {"", old, old, noScheme},
      {"ftp:/h/", with({"ftp"}), with({"ftp"}), noServer},
      {"ftp:", with({"ftp"}), with({"ftp"}), noServer},
      {"ftp://h:x/p?q", with({"ftp", "h", "x"}), with({"ftp", "h", "x"}),
       "Error: CurlSetPort failed to convert port value from string to integer:  x"},
      {"ftp://h:/p?q", with({"ftp", "h", "80"}), with({"ftp", "h", "80"}),
       "Error: CurlSetPort failed. Port Number can not be set to a null string."},
  };
  for (const auto& row : rows) {
    Filled full(old);
    Filled simple(old);
    EXPECT_EQ(errorOf([&] { full.CurlParseURL(row.url.c_str()); }), row.error.empty() ? "" : row.error + '.');
    EXPECT_EQ(partsOf(full), row.full) << row.url;
    EXPECT_EQ(errorOf([&] { simple.CurlParseURLSimple(row.url.c_str()); }),
              row.error.empty() || row.simple != row.full ? "" : row.error + '.');
    EXPECT_EQ(partsOf(simple), row.simple) << row.url;
  }
}

TEST(CurlUrl, SpacesAreEscapedWithinThreeTimesTheLength) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""}, {"ab", "ab"}, {"a b", "a%20b"}, {"a  bc d", "a%20%20bc%20d"}, {" ", "-"}, {"   ", "-"}};
  for (const auto& [from, to] : rows) {
    std::vector<char> text(3 * from.size() + 1);
    from.copy(text.data(), from.size());
    EXPECT_EQ(errorOf([&] { CCurl::CurlEscapeSpaces(text.data(), text.size()); }),
              to == "-" ? "Error: Request is too long." : "");
    EXPECT_EQ(text.data(), to == "-" ? from : to);
  }
}

TEST(CurlUrl, EncodesAndDecodesWhatFits) {
  char out[16] = "untouched";
  EXPECT_EQ(CCurl::CurlUrlEncode("a b&\xc3\xa9", out, 14), 0) << "14 characters and the end do not fit";
  EXPECT_STREQ(out, "untouched");
  EXPECT_EQ(CCurl::CurlUrlEncode("a b&\xc3\xa9", out, 15), 1);
  EXPECT_STREQ(out, "a%20b%26%C3%A9");
  EXPECT_EQ(CCurl::CurlUrlDecode("a%20b%26", out, sizeof out), 1);
  EXPECT_STREQ(out, "a b&");
  for (const auto convert : {&CCurl::CurlUrlEncode, &CCurl::CurlUrlDecode})
    EXPECT_EQ(convert("", out, sizeof out) + convert(nullptr, out, sizeof out) + convert("a", nullptr, 9), 0);
}

TEST(CurlNames, Helpers) {
  const std::pair<const char*, int> paths[] = {{nullptr, 0}, {"a", 0},   {"ab", 1},    {"a/", 0},
                                               {"a:", 0},    {"a\\", 0}, {"a/b.c", 1}, {"", 0}};
  for (const auto& [path, contains] : paths) EXPECT_EQ(CCurl::CurlContainsFilename(path), contains);
  const std::pair<const char*, int> spaces[] = {{"", 0}, {"   ", 2}, {"  x", 2}, {"x ", 0}, {" ", 0}};
  for (const auto& [text, count] : spaces) EXPECT_EQ(CCurl::CurlCountLeadingSpaces(text), count) << text;
  const std::tuple<std::string, int, std::string> tails[] = {{"a, \r\n", 5, "a"}, {"a b", 3, "a b"}, {" ,", 2, ""},
                                                             {"a ", 0, "a "},     {"ab ", 2, "ab "}, {"a ", -1, "a "}};
  for (auto [text, length, cut] : tails) {
    CCurl::CurlRemoveTrailingLfCrSpacesCommas(text.data(), length);
    EXPECT_EQ(text.c_str(), cut);
  }
  char name[] = "a;b:c/d";
  CCurl::CurlReplaceInvalidFilenameChars(name);
  CCurl::CurlReplaceInvalidFilenameChars(nullptr);
  EXPECT_STREQ(name, "a_b_c/d");
}

TEST(CurlNames, ResponseFilesGetTheExtensionOfTheContentType) {
  const auto directory = std::filesystem::path(testing::TempDir()) / "curl.names";
  std::filesystem::create_directories(directory);
  const std::array<const char*, 3> rows[] = {{"map", "png", "map.png"},  {"map.PNG", "png", "map.PNG"},
                                             {"map.", "png", "map.png"}, {"map.gif", "png", "map.gif.png"},
                                             {"map", "", "map"},         {"map", "gml/3.2", "map.gml_3.2"}};
  for (const auto& [given, type, expected] : rows) {
    CCurl curl;
    curl.CurlSetRspParsedContentType(type);
    const auto built = directory / expected;
    std::ofstream(built) << "old";
    CText name((directory / given).string());
    EXPECT_EQ(curl.CurlBuildFileName(&name), 0);
    EXPECT_EQ(name.str(), built.string());
    EXPECT_FALSE(std::filesystem::exists(built));
  }
  std::filesystem::remove(directory);
  CText none;
  EXPECT_NE(CCurl().CurlBuildFileName(&none), 0);
}

} // namespace

#include "curl_test.h"
#include "zel_curl_obj.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <vector>

namespace {

struct Parts {
  const char *scheme, *host, *port, *path, *prefix, *query, *suffix;
};

void fill(CCurl& curl, const Parts& parts) {
  curl.CurlSetScheme(parts.scheme);
  curl.CurlSetHost(parts.host);
  if (parts.port != nullptr) curl.CurlSetPort(parts.port);
  curl.CurlSetPath(parts.path);
  curl.CurlSetQueryPrefix(parts.prefix);
  curl.CurlSetQuery(parts.query);
  curl.CurlSetQuerySuffix(parts.suffix);
}

TEST(CurlUrl, IsComposedOfItsParts) {
  const struct {
    Parts parts;
    const char *full, *simple; ///< URL or error
  } rows[] = {
      {{"http", "h", "80", "p", "", "q", ""}, "http://h/p?q", "http://h/p?q"},
      {{"https", "h", "80", "p", "", "q", ""}, "https://h/p?q", "https://h/p?q"},
      {{"https", "h", "443", "p/r", "a", "q", ""}, "https://h:443/p/r?a&q", "https://h:443/p/r?q"},
      {{"http", "h", "8080", "p", "a", "q", "z"}, "http://h:8080/p?a&q&z", "http://h:8080/p?q"},
      {{"http", "h", "8080", "p", "", "q", "z"}, "http://h:8080/p?q&z", "http://h:8080/p?q"},
      {{"http", "h", "8080", "p", "a", "", "z"}, "Query", "http://h:8080/p"},
      {{"http", "h", "81", "", "", "", ""}, "Path", "http://h:81"},
      {{"http", "", "81", "p", "", "q", ""}, "Host", "Host"},
      {{"", "", "81", "p", "", "q", ""}, "Scheme", "Scheme"},
  };
  const auto composed = [](CCurl& curl, int (CCurl::*build)(char*, int)) {
    char url[128];
    std::string error = errorOf([&] {
      const int length = (curl.*build)(url, sizeof url);
      EXPECT_EQ(static_cast<int>(std::string(url).size()), length);
    });
    return error.empty() ? std::string(url) : error;
  };
  const auto expected = [](const std::string& text) {
    return text.find("://") != text.npos
               ? text
               : "Error: Request can not be processed until the " + text + " property has been set..";
  };
  for (const auto& row : rows) {
    CCurl curl;
    fill(curl, row.parts);
    EXPECT_EQ(composed(curl, &CCurl::CurlBuildUrlRq), expected(row.full));
    EXPECT_EQ(composed(curl, &CCurl::CurlBuildUrlRqSimple), expected(row.simple));
  }
}

TEST(CurlUrl, IsCutAtItsLimits) {
  CCurl curl;
  fill(curl, {"http", "h", "80", std::string(2000, 'p').c_str(), "", "query", ""});
  char url[4096];
  EXPECT_EQ(curl.CurlBuildUrlRq(url, sizeof url), 1023 + 6);
  EXPECT_EQ(std::string(url).substr(1020), "ppp?query");
  EXPECT_EQ(curl.CurlBuildUrlRq(url, 10), 1023 + 6);
  EXPECT_STREQ(url, "http://h/");
}

TEST(CurlUrl, IsSplitIntoItsParts) {
  const struct {
    const char* url;
    Parts full, simple;
    const char* error; ///< of the full form
  } rows[] = {
      {"http://h/p/r?a=b", {"http", "h", "80", "p/r", "", "", ""}, {"http", "h", "80", "p/r", "", "a=b", ""}, ""},
      {"https://me:pw@h:81/p?q?r", {"https", "h", "81", "p", "", "", ""}, {"https", "h", "81", "p", "", "q?r", ""}, ""},
      {"http://h/p?mail=a@b/c?d", {"http", "b", "80", "c", "", "", ""}, {"http", "b", "80", "c", "", "d", ""}, ""},
      {"http://h:81/p",
       {"http", "h", "81", "", "", "", ""},
       {"http", "h", "81", "p", "", "", ""},
       "Error: url does not contain a ? cannot locate a path in url."},
      {"http://h/p?", {"http", "h", "80", "p", "", "", ""}, {"http", "h", "80", "p", "", "", ""}, ""},
      {"http://h",
       {"http", "old", "99", "old", "old", "old", "old"},
       {"http", "h", "80", "", "", "", ""},
       "Error: url does not contain a / cannot locate a host in url."},
  };
  const auto state = [](const CCurl& curl) {
    const auto& set = curl.Settings();
    return std::vector<std::string>{set.scheme.str(),      set.host.str(),  set.port.str(),       set.path.str(),
                                    set.queryPrefix.str(), set.query.str(), set.querySuffix.str()};
  };
  const auto listed = [](const Parts& p) {
    return std::vector<std::string>{p.scheme, p.host, p.port, p.path, p.prefix, p.query, p.suffix};
  };
  for (const auto& row : rows) {
    CCurl full;
    CCurl simple;
    for (CCurl* curl : {&full, &simple}) fill(*curl, {"old", "old", "99", "old", "old", "old", "old"});
    EXPECT_EQ(errorOf([&] { full.CurlParseURL(row.url); }), row.error);
    EXPECT_EQ(state(full), listed(row.full)) << row.url;
    EXPECT_EQ(errorOf([&] { simple.CurlParseURLSimple(row.url); }), "");
    EXPECT_EQ(state(simple), listed(row.simple)) << row.url;
  }
}

TEST(CurlUrl, FaultsAreNamed) {
  const struct {
    std::string url, error, scheme, host;
  } rows[] = {
      {"nothing", "Error: url does not contain a : cannot locate scheme in url (typically http:).", "http", ""},
      {"", "Error: url does not contain a : cannot locate scheme in url (typically http:).", "http", ""},
      {"ftp:/h/", "Error: url does not contain a // cannot locate a host in url", "ftp", ""},
      {"ftp:", "Error: url does not contain a // cannot locate a host in url", "ftp", ""},
      {"ftp://h:x/p?q", "Error: CurlSetPort failed to convert port value from string to integer:  x", "ftp", "h"},
      {"ftp://h:/p?q", "Error: CurlSetPort failed. Port Number can not be set to a null string.", "ftp", "h"},
      {"ftp://" + std::string(256, 'h') + "/p?q", "Error: url contains a host of more than 255 characters", "ftp", ""},
  };
  for (const auto& row : rows)
    for (const auto parse : {&CCurl::CurlParseURL, &CCurl::CurlParseURLSimple}) {
      CCurl curl;
      EXPECT_EQ(errorOf([&] { (curl.*parse)(row.url.c_str()); }), row.error + '.');
      EXPECT_EQ(curl.Settings().scheme.str(), row.scheme);
      EXPECT_EQ(curl.Settings().host.str(), row.host);
    }
}

TEST(CurlUrl, BlanksAreEscapedWithinThreeTimesTheLength) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""}, {"ab", "ab"}, {"a b", "a%20b"}, {"a  bc d", "a%20%20bc%20d"}};
  for (const auto& [from, to] : rows) {
    std::vector<char> text(3 * from.size() + 1);
    from.copy(text.data(), from.size());
    CCurl::CurlEscapeSpaces(text.data(), text.size());
    EXPECT_EQ(text.data(), to);
  }
  for (const std::string blanks : {" ", "   "}) {
    std::vector<char> text(3 * blanks.size() + 1);
    blanks.copy(text.data(), blanks.size());
    EXPECT_EQ(errorOf([&] { CCurl::CurlEscapeSpaces(text.data(), text.size()); }), "Error: Request is too long.");
  }
}

TEST(CurlUrl, EncodesAndDecodesWhatFits) {
  char out[16] = "untouched";
  EXPECT_EQ(CCurl::CurlUrlEncode("a b&\xc3\xa9", out, 14), 0) << "13 characters and the end do not fit below 14";
  EXPECT_STREQ(out, "untouched");
  EXPECT_EQ(CCurl::CurlUrlEncode("a b&\xc3\xa9", out, 15), 1);
  EXPECT_STREQ(out, "a%20b%26%C3%A9");
  EXPECT_EQ(CCurl::CurlUrlDecode("a%20b%26", out, sizeof out), 1);
  EXPECT_STREQ(out, "a b&");
  for (const auto convert : {&CCurl::CurlUrlEncode, &CCurl::CurlUrlDecode}) {
    EXPECT_EQ(convert("", out, sizeof out), 0);
    EXPECT_EQ(convert(nullptr, out, sizeof out), 0);
    EXPECT_EQ(convert("a", nullptr, sizeof out), 0);
  }
}

TEST(CurlNames, Helpers) {
  const std::pair<const char*, int> paths[] = {{nullptr, 0}, {"a", 0},   {"ab", 1},    {"a/", 0},
                                               {"a:", 0},    {"a\\", 0}, {"a/b.c", 1}, {"", 0}};
  for (const auto& [path, contains] : paths) EXPECT_EQ(CCurl::CurlContainsFilename(path), contains);
  const std::pair<const char*, int> blanks[] = {{"", 0}, {"   ", 2}, {"  x", 2}, {"x ", 0}, {" ", 0}};
  for (const auto& [text, count] : blanks) EXPECT_EQ(CCurl::CurlCountLeadingSpaces(text), count) << text;
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
  const struct {
    const char *name, *type, *built;
  } rows[] = {{"map", "png", "map.png"},  {"map.PNG", "png", "map.PNG"},
              {"map.", "png", "map.png"}, {"map.gif", "png", "map.gif.png"},
              {"map", "", "map"},         {"map", "gml/3.2", "map.gml_3.2"}};
  for (const auto& row : rows) {
    CCurl curl;
    curl.CurlSetRspParsedContentType(row.type);
    const auto built = directory / row.built;
    std::ofstream(built) << "old";
    CText name((directory / row.name).string());
    EXPECT_EQ(curl.CurlBuildFileName(&name), 0);
    EXPECT_EQ(name.str(), built.string());
    EXPECT_FALSE(std::filesystem::exists(built));
  }
  CText none;
  EXPECT_NE(CCurl().CurlBuildFileName(&none), 0);
  EXPECT_FALSE(none.present());
}

} // namespace

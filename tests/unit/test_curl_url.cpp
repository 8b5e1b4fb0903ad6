#include "curl_test.h"
#include "zel_curl_obj.h"
#include "zel_curl_shown.h"

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
      const std::string error = errorOf([&, build = build] { length = (curl.*build)(url, sizeof url); });
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

TEST(CurlNames, NothingSecretAndNoControlCharacterIsShown) {
  const std::tuple<std::string, std::string> rows[] = {
      // user information
      {"Get http://me:pw@h:80/p?a=b@c#d", "Get http://***@h:80/p?a=b@c#d"},
      {"'http://token@h' \"ftp://a:b'c\"d@h\"", "'http://***@h' \"ftp://***@h\""},
      {"at http://me:p/w@h/x", "at http://***@h/x"},
      {"at http://me:p w@h/", "at http://***@h/"},
      {"http://h:8080, see <http://h:80> and http://[::1]:80: a@b.org",
       "http://h:8080, see <http://h:80> and http://[::1]:80: a@b.org"},
      {"cut in http://me:p", "cut in http://***"},
      {"proxy 'me:pw@h:bad' (me:pw@h) \"me:(p)w@h\" =me:p@w@h", "proxy '***@h:bad' (***@h) \"***@h\" =***@h"},
      {"Host(token@h) 'token@h'", "Host(***@h) '***@h'"},
      {"ask a@b.org or mailto:a@b.org, file: (/a:b@c)", "ask a@b.org or mailto:a@b.org, file: (/a:b@c)"},
      // header lines
      {"AUTHORIZATION : Basic pw\r\nA: b\nproxy-authorization:Digest pw",
       "AUTHORIZATION : ***\r\nA: b\nproxy-authorization: ***"},
      {"got Set-Cookie\t:\tid=pw; x", "got Set-Cookie\t: ***"},
      {"cookie: pw\nX-API-Key:   pw\nCookie:\nno cookie", "cookie: ***\nX-API-Key: ***\nCookie:\nno cookie"},
      // control characters
      {std::string("a\tb\r\nc\rd\x1b[31m\x7f\0z", 16), "a\tb\r\nc?d?[31m??z"},
      {"\xc2\x9b\xc2\xa0 \x9b \xe9 \xc3\xa9 \xe2\x82\xac \xf0\x9f\x8c\x8d \xe0\x82\x9b",
       "?\xc2\xa0 ? \xe9 \xc3\xa9 \xe2\x82\xac \xf0\x9f\x8c\x8d \xe0??"}};
  for (const auto& [text, wanted] : rows) {
    EXPECT_EQ(transfer::shown(text), wanted);
    EXPECT_EQ(transfer::shown(wanted), wanted);
  }
  EXPECT_STREQ(CCurlException("http://me:pw@h", "Cookie: \x1b").ErrMsg(), "http://***@h Cookie: ***");
}

TEST(CurlNames, CutsLeaveWholeCharacters) {
  const std::tuple<std::string, std::size_t, std::string> rows[] = {
      {"a\xc3\xa9", 2, "a"},
      {"a\xc3\xa9", 3, "a\xc3\xa9"},
      {"\xe2\x82\xac x", 2, ""},
      {"\xe2\x82\xac x", 3, "\xe2\x82\xac"},
      {"a\xf0\x9f\x8c\x8d x", 4, "a"},
      {"\xe9\xe9\xe9", 2, "\xe9\xe9"},
      {"\x80\x80\x80\x80\x80\x80", 5, "\x80\x80\x80\x80\x80"},
      {"", 0, ""}};
  for (const auto& [text, limit, cut] : rows) EXPECT_EQ(transfer::cutAt(text, limit), cut);
  const std::string ears(1021, 'x');
  EXPECT_EQ(CCurlException((ears + "\xe2\x82\xac").c_str()).ErrMsg(), ears);
  EXPECT_EQ(transfer::formatLimited(4, "%s", "abc\xc3\xa9"), "abc");
  char out[5] = "....";
  EXPECT_EQ(transfer::copyTruncated(out, sizeof out, "abc\xc3\xa9"), 5);
  EXPECT_STREQ(out, "abc");
}

TEST(CurlNames, ResponseFilesGetTheExtensionOfTheContentType) {
  const auto directory = std::filesystem::path(testing::TempDir()) / "curl.names";
  std::filesystem::create_directories(directory);
  const std::array<const char*, 3> rows[] = {{"map", "png", "map.png"},
                                             {"map.PNG", "png", "map.PNG"},
                                             {"map.", "png", "map.png"},
                                             {"map.gif", "png", "map.gif.png"},
                                             {"map", "", "map"},
                                             {"map", "gml/3.2", "map.gml_3.2"},
                                             {"map", "a\x1b\xc2\x9b/b", "map.a___b"}};
  for (const auto& [given, type, expected] : rows) {
    CCurl curl;
    curl.CurlSetRspParsedContentType(type);
    const auto built = directory / expected;
    std::ofstream(built) << "old";
    transfer::Text name((directory / given).string());
    EXPECT_EQ(curl.CurlBuildFileName(&name), 0);
    EXPECT_EQ(name.str(), built.string());
    EXPECT_FALSE(std::filesystem::exists(built));
  }
  std::filesystem::remove(directory);
  transfer::Text none;
  EXPECT_NE(CCurl().CurlBuildFileName(&none), 0);
}

} // namespace

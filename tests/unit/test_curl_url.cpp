#include "curl_test.h"
#include "zel_curl_obj.h"
#include "zel_curl_shown.h"

#include <array>
#include <cstring>

namespace {

/// The parts that a URL is split into, "-" for none, and the URL that is composed of them or what is wrong.
std::string splitAndComposed(const std::string& url, void (CCurl::*split)(const char*),
                             int (CCurl::*compose)(char*, int), bool withQuery) {
  CCurl curl;
  for (const auto set : {&CCurl::CurlSetScheme, &CCurl::CurlSetHost, &CCurl::CurlSetPath, &CCurl::CurlSetQueryPrefix,
                         &CCurl::CurlSetQuery, &CCurl::CurlSetQuerySuffix})
    (curl.*set)("old");
  curl.CurlSetPort("81");
  std::string all, error = errorOf([&] { (curl.*split)(url.c_str()); });
  const auto& set = curl.settings();
  for (auto* text : {&set.scheme, &set.host, &set.port, &set.path, &set.queryPrefix, &set.query, &set.querySuffix})
    all += (text->present() ? text->str() : "-") + ' ';
  if (withQuery) {
    curl.CurlSetQueryPrefix(url.find("a=") != url.npos ? "pre" : "");
    curl.CurlSetQuery(url.substr(std::min(url.find('?') + 1, url.size())).c_str());
    curl.CurlSetQuerySuffix(url.find("a=") != url.npos ? "suf" : "");
  }
  std::array<char, 512> composed{};
  std::array<char, 10> small{};
  if (error.empty())
    error = errorOf([&] {
      EXPECT_EQ((curl.*compose)(composed.data(), 512), (curl.*compose)(small.data(), 10));
      EXPECT_EQ((curl.*compose)(small.data(), 10), static_cast<int>(std::strlen(composed.data())));
      EXPECT_EQ(small.data(), std::string(composed.data()).substr(0, 9));
    });
  return all + (error.empty() ? composed.data()
                              : error.substr(0, std::min({error.find(" property"), error.find(" cannot"),
                                                          error.find(". Port"), error.find(" port")})));
}

const std::string missing = "Error: Request can not be processed until the ";

TEST(CurlUrl, IsSplitAndComposed) {
  const auto result = [](const std::string& url) {
    return splitAndComposed(url, &CCurl::CurlParseURL, &CCurl::CurlBuildUrlRq, true);
  };
  const std::string longest(255, 'h');
  expectEach(result, {{"http://" + longest + "/p?q", "http " + longest + " 80 p - - - http://" + longest + "/p?q"},
                      {"http://h" + longest + "/p?q",
                       "http old 81 old old old old Error: url contains a host of more than 255 characters."},
                      {"http://h/p/r?a=b", "http h 80 p/r - - - http://h/p/r?pre&a=b&suf"},
                      {"https://me:pw@h:81/p?q?r@x", "https h 81 p - - - https://h:81/p?q?r@x"},
                      {"http://me@h/a@b/c?q", "http h 80 a@b/c - - - http://h/a@b/c?q"},
                      {"http://h/p?mail=x@b/c?d", "http b 80 c - - - http://b/c?mail=x@b/c?d"},
                      {"http://[::1]:81/p?q", "http [::1] 81 p - - - http://[::1]:81/p?q"},
                      {"http://[::1]/p?q", "http [::1] 80 p - - - http://[::1]/p?q"},
                      {"http://[::1/p?q", "http [::1 80 p - - - http://[::1/p?q"},
                      {"http://h/p?", "http h 80 p - - - " + missing + "Query"},
                      {"http://h/?q", "http h 80 - - - - " + missing + "Path"},
                      {"http:///p?q", "http - 80 p - - - " + missing + "Host"},
                      {"://h/p?q", "- h 80 p - - - " + missing + "Scheme"},
                      {"http://h:81/p", "http h 81 - - - - Error: url does not contain a ?"},
                      {"http://h", "http old 81 old old old old Error: url does not contain a /"},
                      {"ftp://h:/p?q", "ftp h 80 old old old old Error: CurlSetPort failed"}});
  const auto withItsQuery = [](const std::string& url) {
    return splitAndComposed(url, &CCurl::CurlParseURLSimple, &CCurl::CurlBuildUrlRqSimple, false);
  };
  expectEach(withItsQuery, {{"https://me:pw@h:80/p/r?q?r", "https h 80 p/r - q?r - https://h/p/r?q?r"},
                            {"http://h:443/p", "http h 443 p - - - http://h:443/p"},
                            {"http://h/p?", "http h 80 p - - - http://h/p"},
                            {"http://h", "http h 80 - - - - http://h"},
                            {"http:///p", "http - 80 p - - - " + missing + "Host"},
                            {"://h", "- h 80 - - - - " + missing + "Scheme"},
                            {"", "old old 81 old old old old Error: url does not contain a :"},
                            {"ftp:/h/", "ftp old 81 old old old old Error: url does not contain a //"},
                            {"ftp:", "ftp old 81 old old old old Error: url does not contain a //"},
                            {"ftp://h:-1/p?q", "ftp h -1 old old old old Error: CurlSetPort failed to convert"}});
}

TEST(CurlNames, TextsAreConverted) {
  const auto escaped = [](std::string text) {
    text.resize(3 * text.size() + 1);
    const std::string error = errorOf([&] { CCurl::CurlEscapeSpaces(text.data(), text.size()); });
    return error.empty() ? text.substr(0, text.find('\0')) : error;
  };
  expectEach(escaped, {{"", ""}, {"ab", "ab"}, {"a  bc d", "a%20%20bc%20d"}, {" ", "Error: Request is too long."}});
  const auto within15 = [](int (*convert)(const char*, char*, unsigned long)) {
    return [convert](const std::string& text) {
      char out[16] = "untouched";
      return std::to_string(convert(text.c_str(), out, 15)) + out;
    };
  };
  expectEach(within15(&CCurl::CurlUrlEncode),
             {{"a b&\xc3\xa9", "1a%20b%26%C3%A9"}, {"xa b&\xc3\xa9", "0untouched"}, {"", "0untouched"}});
  expectEach(within15(&CCurl::CurlUrlDecode),
             {{"a%20b%26", "1a b&"}, {"123456789%31234567", "0untouched"}, {"", "0untouched"}});
  const auto trimmed = [](std::string text) {
    CCurl::CurlRemoveTrailingLfCrSpacesCommas(text.data(), static_cast<int>(text.size()));
    return text.substr(0, text.find('\0'));
  };
  expectEach(trimmed, {{"a, \r\n", "a"}, {"a b", "a b"}, {" ,", ""}, {"", ""}});
  const auto valid = [](std::string name) {
    CCurl::CurlReplaceInvalidFilenameChars(name.data());
    return name;
  };
  expectEach(valid, {{"a;b:c/d", "a_b_c/d"}});
  const auto spaces = [](const std::string& text) {
    return std::to_string(CCurl::CurlCountLeadingSpaces(text.c_str()));
  };
  expectRows(spaces, {" -> 0", "    -> 2", "  x -> 2", "x  -> 0", "  -> 0"});
  const auto named = [](const std::string& path) { return std::to_string(CCurl::CurlContainsFilename(path.c_str())); };
  expectRows(named, {" -> 0", "a -> 0", "ab -> 1", "a/ -> 0", "a: -> 0", "a\\ -> 0", "a/b.c -> 1"});
  const auto login = [](const std::string& text) {
    transfer::Text out;
    CCurl::CurlCreateUsrPwd(&out, text.substr(0, 1).c_str(), text.size() > 1 ? text.substr(1).c_str() : nullptr);
    return out.str();
  };
  expectEach(login, {{"up", "u:p"}, {"u", "u:"}, {"", ""}});
}

TEST(CurlNames, NothingSecretAndNoControlCharacterIsShown) {
  const auto shown = [](const std::string& text) {
    EXPECT_EQ(transfer::shown(transfer::shown(text)), transfer::shown(text));
    return transfer::shown(text);
  };
  expectEach(shown,
             {// user information
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
               "?\xc2\xa0 ? \xe9 \xc3\xa9 \xe2\x82\xac \xf0\x9f\x8c\x8d \xe0??"}});
  EXPECT_STREQ(CCurlException("http://me:pw@h", "Cookie: \x1b").ErrMsg(), "http://***@h Cookie: ***");
}

TEST(CurlNames, CutsLeaveWholeCharacters) {
  const auto cut = [](const std::string& row) { // the limit, and the text
    const std::size_t limit = static_cast<std::size_t>(row[0] - '0');
    const std::string text = row.substr(1);
    std::string kept(transfer::cutAt(text, limit));
    std::array<char, 8> out{};
    EXPECT_EQ(transfer::formatLimited(limit, "%s", text.c_str()), kept);
    EXPECT_EQ(transfer::copyTruncated(out.data(), static_cast<int>(limit) + 1, text), text.size());
    EXPECT_EQ(out.data(), kept);
    return kept;
  };
  expectRows(cut,
             {"2a\xc3\xa9 -> a", "3a\xc3\xa9 -> a\xc3\xa9", "2\xe2\x82\xac x -> ", "3\xe2\x82\xac x -> \xe2\x82\xac",
              "4a\xf0\x9f\x8c\x8d x -> a", "2\xe9\xe9\xe9 -> \xe9\xe9", "0 -> ", "2a\xf4\x8f\xbf\xbf -> a",
              "2a\xf5\x80\x80\x80 -> a\xf5", "5\x80\x80\x80\x80\x80\x80 -> \x80\x80\x80\x80\x80"});
  const auto whole = [](const std::string& text) { return std::string(transfer::wholeCharacters(text)); };
  expectRows(whole, {"a\xc3 -> a", "a\xe2\x82 -> a", "\xf0\x9f\x8c -> ", "a\xe2\x82\xac -> a\xe2\x82\xac",
                     "\xc3\xa9\x80 -> \xc3\xa9\x80", "ab -> ab", " -> "});
}

TEST(CurlNames, ResponseFilesGetTheExtensionOfTheContentType) {
  const auto named = [](const std::string& row) { // the name, and the type as an extension
    CCurl curl;
    curl.CurlSetRspParsedContentType(row.substr(row.find('|') + 1).c_str());
    transfer::Text name(testing::TempDir() + row.substr(0, row.find('|')));
    EXPECT_NE(curl.CurlBuildFileName(&name), 0) << "there is no such file to delete";
    return name.str().substr(testing::TempDir().size());
  };
  expectRows(named, {"map|png -> map.png", "v1.1.PNG|png -> v1.1.PNG", "map.|png -> map.png",
                     "map.gif|png -> map.gif.png", "map| -> map", "map|a\x1b\xc2\x9b/b -> map.a___b"});
}

} // namespace

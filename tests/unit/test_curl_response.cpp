// Header analysis and the verbose trace, fed as libcurl feeds them.
#include "curl_test.h"
#include "zel_curl_obj.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

/// A transfer object that believes in a running request of a type, and the lines that its routine is told.
class Fed : public CCurl {
public:
  explicit Fed(int type = transfer::httpGet) {
    EXPECT_NE(errorOf([&] { CurlProcessRequest("", type); }), "");
    CurlSetHost("host");
    CurlSetCallback("routine");
    CurlSetCallbackData(reinterpret_cast<unsigned long>(this));
    CurlSetCallbackFunc([](char* name, unsigned long data, const char* message, xProgressValues*) {
      EXPECT_STREQ(name, "routine");
      reinterpret_cast<Fed*>(data)->told.emplace_back(message);
      return 1;
    });
  }
  Fed(const Fed&) = delete;

  std::size_t header(const std::string& data) {
    return CurlHttpWriteHeaderCallback(const_cast<char*>(data.data()), 1, data.size(), this);
  }
  /// A block, line by line, and its analysis.
  void block(const std::string& text) {
    for (std::size_t at = 0, end = 0; at < text.size(); at = end) {
      end = std::min(text.find('\n', at), text.size() - 1) + 1;
      EXPECT_EQ(header(text.substr(at, end - at)), end - at);
    }
    CurlHttpParseRspHdr(response().header.data());
  }
  std::string fields() const {
    const transfer::Response& r = response();
    std::string all = std::to_string(r.statusCode) + ' ' + std::to_string(r.contentLength) + ' ' +
                      std::to_string(r.chunked) + std::to_string(r.headerComplete);
    for (const transfer::Text* text : {&r.statusText, &r.server, &r.date, &r.lastModified, &r.contentEncoding,
                                       &r.contentTypeText, &r.parsedContentType})
      all += '|' + text->str();
    return all + (told.empty() ? "" : "|" + told.back());
  }

  Lines told;
};

TEST(CurlHeader, FieldsAreRead) {
  Fed curl;
  const auto fields = [&curl](const std::string& header) {
    curl.CurlResponseReset();
    curl.told.clear();
    curl.block(header);
    EXPECT_EQ(curl.message(), curl.told.empty() ? "" : curl.told.back());
    EXPECT_EQ(curl.response().headerLength, static_cast<int>(header.size()));
    return curl.fields();
  };
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string noEnd = "Error: response invalid. could not find end of response header.";
  const std::string noStart = "Error: response invalid. response does not begin with HTTP.";
  expectEach(fields,
             {{"HTTP/1.1 404 Not Found\r\nSERVER: s/1\r\ndate: today\r\nCONTENT-Length: 12\r\nLast-Modified: once\r\n"
               "Transfer-Encoding: CHUNKED\r\nContent-Encoding: gzip\r\nContent-Type: text/xml; charset=UTF-8\r\n\r\n",
               "404 12 11|Not Found|s/1|today|once|gzip|text/xml; charset=UTF-8|xml"},
              {"\r\n" + ok + "\r\n", "0 0 01||||||||" + noStart},
              {"HTTP/1.1 404\r\nA: b\r\n\r\n", "404 0 01|||||||"},
              {"HTTP/1.1 404 \r\nA: b\r\n\r\n", "404 0 01|||||||"},
              {ok + "Content-Length: 5\r\n\r\n", "200 0 01|OK||||||"}, // one digit is none
              {ok + "Content-Length: 99999999999\r\n\r\n", "200 2147483647 01|OK||||||"},
              {ok + "Content-Length: \r\nServer: \r\n\r\n", "200 0 01|OK||||||"},
              {ok + "HTTP/1.1 500 Not: a status\r\nDate: now\r\n\r\n", "200 0 01|OK||now||||"},
              {ok + "A: b\r\n", "200 0 00|OK|||||||" + noEnd},
              {"HTTP", "0 0 00||||||||" + noEnd},
              {"ICY 200 OK\r\n\r\n", "0 0 01||||||||" + noStart},
              {"", "0 0 00||||||||" + noStart}});
}

TEST(CurlHeader, ContentTypesBecomeExtensions) {
  const auto extension = [](const std::string& type) {
    Fed curl;
    curl.CurlSetRspParsedContentType("old");
    curl.CurlHttpParseRspHdr(("HTTP/1.1 200 OK\r\nContent-Type: " + type + "\r\n\r\n").c_str());
    return curl.response().parsedContentType.str();
  };
  expectRows(extension, {"image/png -> png", "text/xml;charset=UTF-8 -> xml", "IMAGE/X-TIFF -> TIFF", "a/b/x-c -> c",
                         "image/x-portable-graymap -> portable-grayma", "application/vnd.ogc.se_xml -> vnd.ogc.se_xml",
                         "text/gml/3.2 -> gml/3.2", "text/gml; subtype=gml/3.2 -> gml", "text/xml charset -> xml",
                         "text/ -> old", "text/;x -> old", "text -> old"});
}

TEST(CurlHeader, SearchGoesOnAfterTheMismatch) {
  const auto end = [](const std::string& call) { // limit, text, pattern and start
    std::istringstream words(call);
    std::string text, pattern;
    int limit = 0, start = 0;
    words >> limit >> text >> pattern >> start;
    return std::to_string(CCurl::CurlFindStringEndIdx(limit, text.c_str(), pattern.c_str(), start));
  };
  expectRows(end, {"9 xxAUTHxxx auth 0 -> 6", "9 aauthxxxx auth 0 -> 0", "9 aAaAuTHxx auth 1 -> 7", "0 a a 0 -> 0",
                   "5 xxAUTHxxx auth 0 -> 0", "6 xxAUTHxxx auth 0 -> 6", "9 xxAUTHxxx auth 3 -> 0", "1 a a 1 -> 0"});
  EXPECT_EQ(CCurl::CurlFindStringEndIdx(9, "text", "", 0), 0);
  transfer::Text value(std::string_view("old"));
  for (const auto& [header, index] : {std::pair{"A: b", 3}, {"A: \r\n", 3}, {"", 8192}})
    EXPECT_EQ(CCurl::CurlGetRspValue(header, index, &value), 0);
  EXPECT_EQ(value.str(), "old");
}

TEST(CurlHeader, HtmlOfTheHeaderBlockIsTheServersWord) {
  const auto word = [](const std::string& html) {
    Fed curl;
    curl.block("HTTP/1.1 503 Busy\r\nX: " + html + "\r\n\r\n");
    curl.CurlHttpExamineHeaderMsg();
    EXPECT_EQ(curl.told, Lines{curl.message()});
    char out[512];
    curl.CurlHttpGetHtmlErrorMsg(out, sizeof out);
    EXPECT_EQ(out, "Error: Http Get did not succeed." + curl.message().substr(19));
    return curl.message().substr(19);
  };
  const std::string head = " Remote Host(host), Http ErrCode(503), Http Err(Busy) Http ErrMsg(";
  expectEach(word, {{"<html>sorry</html>", head + "sorry</html>)"},
                    {"<HTML>sorry</HTML>", head + "sorry</HTML>)"},
                    {"<html>sorry", head + "No HTML found)"},
                    {"</html><html>", head + "No HTML found)"}});
  const auto told = [](const std::string& status) {
    Fed curl;
    curl.CurlHttpParseRspHdr(("HTTP/1.1 " + status + " Text\r\n\r\n").c_str());
    curl.CurlHttpExamineHeaderMsg();
    return curl.message().substr(0, curl.message().find(" Remote"));
  };
  expectRows(told, {"100 -> http: Informational Status.", "199 -> http: Informational Status.", "200 -> ", "299 -> ",
                    "300 -> http: Redirection Status.", "400 -> http: Client Error.", "500 -> http: Server Error.",
                    "600 -> http: Unknown Status."});
}

TEST(CurlFtp, RepliesGiveTheirCode) {
  Fed curl(transfer::ftpGet);
  const auto shown = [&](const std::string& reply) {
    EXPECT_EQ(curl.header(reply), reply.size());
    return std::to_string(curl.response().statusCode) + ' ' + curl.response().lastFtpResponse.data();
  };
  expectEach(shown, {{"230 Welcome\r\n", "230 230 Welcome\r\n"},
                     {"22", "0 230 Welcome\r\n"},
                     {"221", "221 221"},
                     {"230 " + std::string(200, 'x'), "230 230 " + std::string(123, 'x')},
                     {"500 AUTH is not understood\r\n", "500 500 AUTH is not understood\r\n"}});
}

TEST(CurlTrace, LinesAreLabelledTrimmedCutAndWithoutSecrets) {
  const std::string cut = "..., message was truncated.";
  const struct {
    curl_infotype type;
    Lines pieces, shown;
  } rows[] = {
      {CURLINFO_TEXT, {"Trying, \r\n"}, {"Trying"}},
      {CURLINFO_TEXT, {"CAfile: \xc3\xa9\xe2\x82\n"}, {"CAfile: \xc3\xa9"}},
      {CURLINFO_HEADER_IN, {"Date: x\r\n", "Set-Cookie: id=secret\r\n"}, {"Date: x", "Set-Cookie: ***"}},
      {CURLINFO_DATA_IN, {"data"}, {}},
      {CURLINFO_TEXT,
       {std::string(509, 'x') + ", y", std::string(511, 'x')},
       {std::string(509, 'x') + cut, std::string(511, 'x')}},
      {CURLINFO_HEADER_OUT,
       {"A: b\r\nAUTHORIZATION: Basic secret\r\nProxy-Authorization: Digest secret=\"x\"\r\nCookie: secret\r\n\r\n"},
       {"A: b\r\nAUTHORIZATION: ***\r\nProxy-Authorization: ***\r\nCookie: ***"}},
      {CURLINFO_HEADER_OUT, {"PASS secret\r\n", "acct secret\r\n", "PWD\r\n"}, {"PASS ***", "acct ***", "PWD"}},
      {CURLINFO_HEADER_OUT,
       {"A: b\r\nAuthor", "ization: sec", "ret\r\nB: c\r\n"},
       {"A: b\r\nAuthor", "ization: ***", "***\r\nB: c"}},
      {CURLINFO_HEADER_OUT,
       {"Author", "ization", "\t: sec", "ret\r\n", std::string(600, 'x'), "\r\nA: b\r\n"},
       {"Author", "ization", "\t: ***", "***", std::string(511, 'x') + cut, "\r\nA: b"}},
      {CURLINFO_TEXT, {"Issue 'http://me:secret@h/p?u=ftp://x@y@z/'\n"}, {"Issue 'http://***@h/p?u=ftp://***@z/'"}},
      {CURLINFO_HEADER_OUT,
       {std::string(480, 'x') + "\r\nAuthorization: secret and much longer than the limit\r\n"},
       {std::string(480, 'x') + "\r\nAuthorization: ***"}},
  };
  for (const auto& row : rows) {
    Fed curl(row.pieces[0].starts_with("PASS") ? transfer::ftpCommand : transfer::httpGet);
    for (std::string piece : row.pieces)
      EXPECT_EQ(CCurl::CurlHttpDebugCallback(nullptr, row.type, piece.data(), piece.size(), &curl), 0);
    ASSERT_EQ(curl.told.size(), row.shown.size());
    const char* labels[] = {"Info:        ", "Header In:   ", "Header Out:  "};
    for (std::size_t i = 0; i < row.shown.size(); ++i)
      EXPECT_EQ(curl.told[i], std::string("Verbose: ") + labels[row.type] + row.shown[i]);
  }
}

TEST(CurlFile, KnowsWhatItWrote) {
  const std::string path = testing::TempDir() + "zel_curl_" + std::to_string(::getpid());
  std::ofstream(path) << "older";
  std::ifstream reader(path);
  transfer::ResponseFile file;
  ASSERT_TRUE(file.open(path.c_str()) && file.write("ours", 4) == 4 && file.close());
  std::string text;
  EXPECT_TRUE(reader >> text && text == "older") << "who reads the older file goes on";
  EXPECT_TRUE(file.isStillThere());
  std::filesystem::remove(path);
  std::ofstream(path) << "another's"; // on many file systems with the same inode
  EXPECT_FALSE(file.isStillThere());
  file.remove();
  EXPECT_TRUE(std::filesystem::remove(path)) << "it is not ours to delete";
}

} // namespace

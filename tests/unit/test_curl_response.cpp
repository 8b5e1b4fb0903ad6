// Header analysis, progress lines and the verbose trace, fed as libcurl feeds them.
#include "curl_test.h"
#include "zel_curl_obj.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

/// A transfer object that believes in a running request of a type, and the lines that its routine is told.
class Fed : public CCurl {
public:
  explicit Fed(int type = transfer::httpGet) {
    EXPECT_NE(errorOf([&] { CurlProcessRequest("", type); }), "");
    CurlSetHost("host");
    CurlSetCallback("routine");
    CurlSetCallbackData(reinterpret_cast<unsigned long>(this));
    CurlSetCallbackFunc([](char* name, unsigned long data, const char* message, xProgressValues* progress) {
      EXPECT_STREQ(name, "routine");
      auto& self = *reinterpret_cast<Fed*>(data);
      self.told.emplace_back(message);
      if (progress != nullptr)
        self.figures = {static_cast<double>(progress->isValid), progress->dlTotal, progress->dlNow, progress->ulTotal,
                        progress->ulNow};
      return self.answer;
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
    CurlHttpParseRspHdr(Response().header.data());
  }
  void trace(curl_infotype type, const std::string& data) {
    EXPECT_EQ(CurlHttpDebugCallback(nullptr, type, const_cast<char*>(data.data()), data.size(), this), 0);
  }
  int progress(double ulTotal = 0, double ulNow = 0) {
    return CurlHttpProgressCallback(this, 20.5, 10, ulTotal, ulNow);
  }
  std::string fields() const {
    const transfer::Response& r = Response();
    std::string all = std::to_string(r.statusCode) + ' ' + std::to_string(r.contentLength) + ' ' +
                      std::to_string(r.chunked) + std::to_string(r.headerComplete);
    for (const transfer::Text* text : {&r.statusText, &r.server, &r.date, &r.lastModified, &r.contentEncoding,
                                       &r.contentTypeText, &r.parsedContentType})
      all += '|' + (text->present() ? text->str() : "-");
    return all;
  }

  Lines told;
  std::vector<double> figures;
  int answer = 1;
};

TEST(CurlHeader, FieldsAreRead) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string noEnd = "Error: response invalid. could not find end of response header.";
  const std::string noStart = "Error: response invalid. response does not begin with HTTP.";
  const struct {
    std::string header, fields, told;
  } rows[] = {
      {"HTTP/1.1 404 Not Found\r\nSERVER: s/1\r\ndate: today\r\nCONTENT-Length: 12\r\nLast-Modified: once\r\n"
       "Transfer-Encoding: CHUNKED\r\nContent-Encoding: gzip\r\nContent-Type: text/xml; charset=UTF-8\r\n\r\n",
       "404 12 11|Not Found|s/1|today|once|gzip|text/xml; charset=UTF-8|xml", ""},
      {"HTTP/1.1 404\r\nA: b\r\n\r\n", "404 0 01|-|-|-|-|-|-|-", ""},
      {"HTTP/1.1 404 \r\nA: b\r\n\r\n", "404 0 01|-|-|-|-|-|-|-", ""},
      {ok + "Content-Length: 5\r\n\r\n", "200 0 01|OK|-|-|-|-|-|-", ""}, // one digit is none
      {ok + "Content-Length: 99999999999\r\n\r\n", "200 2147483647 01|OK|-|-|-|-|-|-", ""},
      {ok + "Content-Length: \r\nServer: \r\n\r\n", "200 0 01|OK|-|-|-|-|-|-", ""},
      {ok + "A: b\r\n", "200 0 00|OK|-|-|-|-|-|-", noEnd},
      {"HTTP", "0 0 00|-|-|-|-|-|-|-", noEnd},
      {"ICY 200 OK\r\n\r\n", "0 0 01|-|-|-|-|-|-|-", noStart},
      {"", "0 0 00|-|-|-|-|-|-|-", noStart},
  };
  for (const auto& row : rows) {
    Fed curl;
    curl.block(row.header);
    EXPECT_EQ(curl.fields(), row.fields) << row.header;
    EXPECT_EQ(curl.Message(), row.told);
    EXPECT_EQ(curl.told, row.told.empty() ? Lines{} : Lines{row.told});
    EXPECT_EQ(curl.Response().headerLength, static_cast<int>(row.header.size()));
  }
}

TEST(CurlHeader, ContentTypesBecomeExtensions) {
  const std::pair<const char*, const char*> rows[] = {{"image/png", "png"},
                                                      {"text/xml;charset=UTF-8", "xml"},
                                                      {"IMAGE/X-TIFF", "TIFF"},
                                                      {"image/x-portable-graymap", "portable-grayma"},
                                                      {"a/b/x-c", "c"},
                                                      {"application/vnd.ogc.se_xml", "vnd.ogc.se_xml"},
                                                      {"text/gml/3.2", "gml/3.2"},
                                                      {"text/gml; subtype=gml/3.2", "gml"},
                                                      {"text/xml charset", "xml"},
                                                      {"text/", "old"},
                                                      {"text/;x", "old"},
                                                      {"text", "old"}};
  for (const auto& [type, extension] : rows) {
    Fed curl;
    curl.CurlSetRspParsedContentType("old");
    curl.CurlHttpParseRspHdr((std::string("HTTP/1.1 200 OK\r\nContent-Type: ") + type + "\r\n\r\n").c_str());
    EXPECT_STREQ(curl.Response().parsedContentType.get(), extension) << type;
  }
}

TEST(CurlHeader, OnlyTheLastBlockCounts) {
  Fed curl;
  curl.block("HTTP/1.1 301 Moved\r\nServer: first\r\nContent-Length: 77\r\n\r\n");
  curl.block("HTTP/1.1 200 OK\r\nDate: now\r\n\r\n");
  const std::string received = curl.Response().header.data();
  curl.block("Server: of a trailer\r\n\r\n");
  EXPECT_EQ(curl.fields(), "200 0 01|OK|-|now|-|-|-|-");
  EXPECT_EQ(curl.Response().header.data(), received);
  curl.block("HTTP/1.1 200 OK\r\nHTTP/2-Settings: x\r\nHTTP/1.1 500 Not: a status\r\nContent-Type: text/xml\r\n\r\n");
  EXPECT_EQ(curl.fields(), "200 0 01|OK|-|-|-|-|text/xml|xml");
}

TEST(CurlHeader, NothingIsKeptAfterACancel) {
  Fed curl;
  curl.answer = 0;
  EXPECT_EQ(curl.progress(), 1);
  EXPECT_EQ(curl.header("HTTP/1.1 200 OK\r\n"), 17U);
  EXPECT_EQ(curl.Response().headerLength, 0);
  char data[] = "body";
  EXPECT_EQ(CCurl::CurlWriteDataCallback(data, 1, 4, &curl), 4U);
  curl.CurlResponseReset();
  curl.answer = 1;
  EXPECT_EQ(curl.progress(), 0);
}

TEST(CurlHeader, SearchGoesOnAfterTheMismatch) {
  const struct {
    int limit;
    const char *text, *pattern;
    int start, end;
  } rows[] = {{9, "xxAUTHxxx", "auth", 0, 6},
              {9, "aauthxxxx", "auth", 0, 0},
              {9, "aAaAuTHxx", "auth", 1, 7},
              {5, "xxAUTHxxx", "auth", 0, 0},
              {6, "xxAUTHxxx", "auth", 0, 6},
              {9, "xxAUTHxxx", "auth", 3, 0},
              {9, "xxAUTHxxx", "", 0, 0},
              {0, "a", "a", 0, 0},
              {1, "a", "a", 1, 0}};
  for (const auto& row : rows)
    EXPECT_EQ(CCurl::CurlFindStringEndIdx(row.limit, row.text, row.pattern, row.start), row.end) << &row - rows;
  transfer::Text value(std::string_view("old"));
  EXPECT_EQ(CCurl::CurlGetRspValue("A: b c\r\n", 3, &value), 3);
  EXPECT_EQ(value.str(), "b c");
  for (const auto& [header, index] : {std::pair{"A: b", 3}, {"A: \r\n", 3}, {"", 8192}, {"", 0}})
    EXPECT_EQ(CCurl::CurlGetRspValue(header, index, &value), 0);
  EXPECT_EQ(value.str(), "b c");
}

TEST(CurlHeader, HtmlOfTheHeaderBlockIsTheServersWord) {
  const std::pair<const char*, const char*> rows[] = {{"<html>sorry</html>", "sorry</html>"},
                                                      {"<HTML>sorry</HTML>", "sorry</HTML>"},
                                                      {"<html>sorry", "No HTML found"},
                                                      {"</html><html>", "No HTML found"},
                                                      {"", "No HTML found"}};
  for (const auto& [html, text] : rows) {
    Fed curl;
    curl.block(std::string("HTTP/1.1 503 Busy\r\nX: ") + html + "\r\n\r\n");
    curl.CurlHttpExamineHeaderMsg();
    const std::string tail =
        std::string(" Remote Host(host), Http ErrCode(503), Http Err(Busy) Http ErrMsg(") + text + ')';
    EXPECT_EQ(curl.told, Lines{"http: Server Error." + tail});
    EXPECT_EQ(curl.told, Lines{curl.Message()});
    char out[512];
    EXPECT_EQ(curl.CurlHttpGetHtmlErrorMsg(out, sizeof out), static_cast<int>(32 + tail.size()));
    EXPECT_EQ(out, "Error: Http Get did not succeed." + tail);
    CCurl::CurlHttpParseError(html, out, 4);
    EXPECT_EQ(out, std::string(text).substr(0, 3));
  }
  const std::pair<int, const char*> classes[] = {
      {100, "http: Informational Status."}, {304, "http: Redirection Status."}, {499, "http: Client Error."},
      {500, "http: Server Error."},         {600, "http: Unknown Status."},     {299, ""}};
  for (const auto& [status, text] : classes) {
    Fed curl;
    curl.CurlHttpParseRspHdr(("HTTP/1.1 " + std::to_string(status) + " Text\r\n\r\n").c_str());
    curl.CurlHttpExamineHeaderMsg();
    EXPECT_EQ(curl.Message().substr(0, std::strlen(text)), text);
    EXPECT_EQ(curl.Message().empty(), *text == '\0');
  }
}

TEST(CurlFtp, RepliesGiveTheirCode) {
  Fed curl(transfer::ftpGet);
  const auto shown = [&] {
    return std::to_string(curl.Response().statusCode) + curl.Response().lastFtpResponse.data();
  };
  EXPECT_EQ(curl.header("230 Welcome\r\n"), 13U);
  EXPECT_EQ(shown(), "230230 Welcome\r\n");
  curl.CurlFtpGetReponseCode("22", 2);
  EXPECT_EQ(shown(), "0230 Welcome\r\n");
  curl.CurlFtpGetReponseCode("221", 3);
  EXPECT_EQ(shown(), "221221");
  const std::string refusal = "500 AUTH is not understood\r\n";
  EXPECT_EQ(curl.header(refusal), refusal.size());
  curl.CurlSetFtpExplicitSSL(1);
  EXPECT_EQ(curl.header("500 No idea\r\n"), 13U);
  EXPECT_TRUE(curl.told.empty());
  EXPECT_EQ(curl.header(refusal), static_cast<std::size_t>(-1));
  EXPECT_EQ(curl.told.back(), "ftp: Aborting because ssl is not supported by ftp server.");
}

TEST(CurlProgress, LinesOfTheRequestTypes) {
  const struct {
    int type;
    const char *idle, *going;
  } rows[] = {{transfer::httpGet, "Http: get: received (10), total expected (20)", nullptr},
              {transfer::httpPut, "Http: put: sending file data...", "Http: put: sent (3), total to send (5)"},
              {transfer::httpPost, "Http: post: sending data...", "Http: post: sent (3), total to send (5)"},
              {transfer::ftpGet, "Ftp: get: received (10), total expected (20)", nullptr},
              {transfer::ftpPut, "Ftp: put: sending file data...", "Ftp: put: sent (3), total to send (5)"},
              {transfer::ftpDirectory, "Ftp: dir: receiving directory data...", nullptr},
              {transfer::ftpCommand, "Ftp: cmd: processing...", nullptr},
              {0x45, "unknown call to CurlHttpProgressCallback", nullptr}};
  for (const auto& row : rows) {
    Fed curl(row.type);
    EXPECT_EQ(curl.progress() + curl.progress(5, 3), 0);
    EXPECT_EQ(curl.told, (Lines{row.idle, row.going != nullptr ? row.going : row.idle}));
    EXPECT_EQ(curl.figures, (std::vector<double>{1, 20.5, 10, 5, 3}));
  }
  Fed curl;
  curl.CurlHttpParseRspHdr("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
  EXPECT_EQ(curl.progress(), 0);
  EXPECT_EQ(curl.told.back(), "Http: get: received (10)");
  curl.CurlSetCallback("");
  curl.answer = 0;
  EXPECT_EQ(curl.progress(), 0) << "without a name nobody is asked";
  EXPECT_EQ(curl.told.size(), 1U);
}

TEST(CurlTrace, LinesAreLabelledTrimmedCutAndWithoutSecrets) {
  const struct {
    curl_infotype type;
    Lines pieces, shown;
  } rows[] = {
      {CURLINFO_TEXT, {"Trying, \r\n"}, {"Info:        Trying"}},
      {CURLINFO_HEADER_IN,
       {"Date: x\r\n", "Set-Cookie: id=secret\r\n"},
       {"Header In:   Date: x", "Header In:   Set-Cookie: ***"}},
      {CURLINFO_DATA_IN, {"data"}, {}},
      {CURLINFO_HEADER_OUT, {"GET / HTTP/1.1\r\nHost: h\r\n\r\n"}, {"Header Out:  GET / HTTP/1.1\r\nHost: h"}},
      {CURLINFO_TEXT,
       {std::string(509, 'x') + ", y"},
       {"Info:        " + std::string(509, 'x') + "..., message was truncated."}},
      {CURLINFO_HEADER_OUT,
       {"A: b\r\nAUTHORIZATION: Basic secret\r\nProxy-Authorization: Digest secret=\"x\"\r\nCookie: secret\r\n\r\n"},
       {"Header Out:  A: b\r\nAUTHORIZATION: ***\r\nProxy-Authorization: ***\r\nCookie: ***"}},
      {CURLINFO_HEADER_OUT,
       {"PASS secret\r\n", "pass secret\r\n", "PWD\r\n"},
       {"Header Out:  PASS ***", "Header Out:  pass ***", "Header Out:  PWD"}},
      {CURLINFO_HEADER_OUT,
       {"A: b\r\nAuthor", "ization: sec", "ret\r\nB: c\r\n"},
       {"Header Out:  A: b\r\nAuthor", "Header Out:  ization: ***", "Header Out:  ***\r\nB: c"}},
      {CURLINFO_HEADER_OUT,
       {"Author", "ization", "\t: sec", "ret\r\n", std::string(600, 'x'), "\r\nA: b\r\n"},
       {"Header Out:  Author", "Header Out:  ization", "Header Out:  \t: ***", "Header Out:  ***",
        "Header Out:  " + std::string(511, 'x') + "..., message was truncated.", "Header Out:  \r\nA: b"}},
      {CURLINFO_TEXT,
       {"Issue request to 'http://me:secret@h/p@q?u=ftp://x@y@z/'\n"},
       {"Info:        Issue request to 'http://***@h/p@q?u=ftp://***@z/'"}},
      {CURLINFO_TEXT, {"http://h/a@b and http://"}, {"Info:        http://h/a@b and http://"}},
      {CURLINFO_HEADER_OUT,
       {std::string(480, 'x') + "\r\nAuthorization: secret and much longer than the limit\r\n"},
       {"Header Out:  " + std::string(480, 'x') + "\r\nAuthorization: ***"}},
  };
  for (const auto& row : rows) {
    Fed curl(row.pieces[0].starts_with("PASS") ? transfer::ftpCommand : transfer::httpGet);
    for (const auto& piece : row.pieces) curl.trace(row.type, piece);
    Lines expected;
    for (const auto& line : row.shown) expected.push_back("Verbose: " + line);
    EXPECT_EQ(curl.told, expected);
  }
}

TEST(CurlEdge, WhatTheRoutineThrowsStaysInside) {
  Fed curl;
  curl.CurlSetCallbackFunc([](char*, unsigned long, const char*, xProgressValues*) -> int { throw 42; });
  EXPECT_EQ(curl.progress(), 1);
  EXPECT_EQ(curl.header("HTTP/1.1 200 OK\r\n"), static_cast<std::size_t>(-1)) << "the transfer ends";
  char data[] = "body";
  EXPECT_NE(CCurl::CurlWriteDataCallback(data, 1, 4, &curl), 4U);
  EXPECT_EQ(CCurl::CurlHttpPutPostPushCallback(data, 1, 4, &curl), static_cast<std::size_t>(CURL_READFUNC_ABORT));
  EXPECT_EQ(zelCurlOptSeekFunction(nullptr, 0, SEEK_SET), CURL_SEEKFUNC_OK);
  EXPECT_EQ(zelCurlOptSeekFunction(&curl, 0, SEEK_SET), CURL_SEEKFUNC_CANTSEEK) << "nothing is sent";
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
  std::filesystem::remove(path);
}

} // namespace

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

struct Told {
  std::vector<std::string> lines;
  std::vector<double> figures;
  int answer = 1;
};

int record(char* name, unsigned long data, const char* message, xProgressValues* progress) {
  EXPECT_STREQ(name, "routine");
  auto& told = *reinterpret_cast<Told*>(data);
  told.lines.emplace_back(message);
  if (progress != nullptr)
    told.figures = {static_cast<double>(progress->isValid), progress->dlTotal, progress->dlNow, progress->ulTotal,
                    progress->ulNow};
  return told.answer;
}

/// A transfer object that believes in a running request of a type.
class Fed : public CCurl {
public:
  explicit Fed(int type) {
    EXPECT_NE(errorOf([&] { CurlProcessRequest("", type); }), "");
    CurlSetHost("host");
    CurlSetCallback("routine");
    CurlSetCallbackData(reinterpret_cast<unsigned long>(&told));
    CurlSetCallbackFunc(record);
  }

  std::size_t header(const std::string& data) {
    return CurlHttpWriteHeaderCallback(const_cast<char*>(data.data()), 1, data.size(), this);
  }
  /// A block, line by line.
  void block(const std::string& text) {
    for (std::size_t at = 0, end; at < text.size(); at = end) {
      end = std::min(text.find('\n', at), text.size() - 1) + 1;
      EXPECT_EQ(header(text.substr(at, end - at)), end - at);
    }
  }
  void parse() { CurlHttpParseRspHdr(Response().header.data()); }
  void trace(curl_infotype type, const std::string& data) {
    EXPECT_EQ(CurlHttpDebugCallback(nullptr, type, const_cast<char*>(data.data()), data.size(), this), 0);
  }
  int progress(double ulTotal = 0, double ulNow = 0) {
    return CurlHttpProgressCallback(this, 20.5, 10, ulTotal, ulNow);
  }

  Told told;
};

TEST(CurlHeader, FieldsAreRead) {
  Fed curl(CURL_RQ_HTTP_GET);
  const std::string text = "HTTP/1.1 404 Not Found\r\nSERVER: s/1\r\ndate: today\r\nCONTENT-Length: 12\r\n"
                           "Last-Modified: once\r\nTransfer-Encoding: CHUNKED\r\nContent-Encoding: gzip\r\n"
                           "Content-Type: text/xml; charset=UTF-8\r\n\r\n";
  curl.block(text);
  curl.parse();
  const CurlResponse& rsp = curl.Response();
  EXPECT_EQ(rsp.statusCode, 404);
  EXPECT_STREQ(rsp.statusText.get(), "Not Found");
  EXPECT_STREQ(rsp.server.get(), "s/1");
  EXPECT_STREQ(rsp.date.get(), "today");
  EXPECT_STREQ(rsp.lastModified.get(), "once");
  EXPECT_STREQ(rsp.contentEncoding.get(), "gzip");
  EXPECT_EQ(rsp.contentLength, 12);
  EXPECT_EQ(rsp.chunked, 1);
  EXPECT_EQ(rsp.headerComplete, 1);
  EXPECT_EQ(rsp.headerLength, static_cast<int>(text.size()));
  EXPECT_STREQ(rsp.contentTypeText.get(), "text/xml; charset=UTF-8");
  EXPECT_STREQ(rsp.parsedContentType.get(), "xml");
  EXPECT_TRUE(curl.told.lines.empty());
}

TEST(CurlHeader, OddStatusLinesAndLengths) {
  const struct {
    const char* header;
    int status;
    const char* text;
    int length;
    const char* told;
  } rows[] = {
      {"HTTP/1.1 404\r\nA: b\r\n\r\n", 404, nullptr, 0, nullptr},
      {"HTTP/1.1 404 \r\nA: b\r\n\r\n", 404, nullptr, 0, nullptr},
      {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n", 200, "OK", 0, nullptr},
      {"HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\n", 200, "OK", 2147483647, nullptr},
      {"HTTP/1.1 200 OK\r\nContent-Length: \r\n\r\n", 200, "OK", 0, nullptr},
      {"HTTP/1.1 200 OK\r\nA: b\r\n", 200, "OK", 0, "Error: response invalid. could not find end of response header."},
      {"HTTP", 0, nullptr, 0, "Error: response invalid. could not find end of response header."},
      {"ICY 200 OK\r\n\r\n", 0, nullptr, 0, "Error: response invalid. response does not begin with HTTP."},
      {"", 0, nullptr, 0, "Error: response invalid. response does not begin with HTTP."},
  };
  for (const auto& row : rows) {
    Fed curl(CURL_RQ_HTTP_GET);
    curl.CurlHttpParseRspHdr(row.header);
    EXPECT_EQ(curl.Response().statusCode, row.status) << row.header;
    EXPECT_STREQ(curl.Response().statusText.get(), row.text) << row.header;
    EXPECT_EQ(curl.Response().contentLength, row.length) << row.header;
    EXPECT_EQ(curl.Message(), row.told != nullptr ? row.told : "");
    EXPECT_EQ(curl.told.lines.size(), row.told != nullptr ? 1U : 0U);
  }
  Fed curl(CURL_RQ_HTTP_GET);
  curl.CurlHttpParseRspHdr(("HTTP/1.1 200 " + std::string(300, 'r') + "\r\n\r\n").c_str());
  EXPECT_EQ(curl.Response().statusText.str(), std::string(255, 'r'));
}

TEST(CurlHeader, ContentTypesBecomeExtensions) {
  const std::pair<const char*, const char*> rows[] = {{"image/png", "png"},
                                                      {"text/xml;charset=UTF-8", "xml"},
                                                      {"text/xml charset=UTF-8", "xml"},
                                                      {"image/x-portable-graymap", "portable-grayma"},
                                                      {"application/vnd.ogc.se_xml", "vnd.ogc.se_xml"},
                                                      {"IMAGE/X-TIFF", "TIFF"},
                                                      {"a/b/x-c", "c"},
                                                      {"text/gml; subtype=gml/3.2", "gml"},
                                                      {"text/gml/3.2", "gml/3.2"},
                                                      {"text/", "old"},
                                                      {"text/;x", "old"},
                                                      {"text", "old"}};
  for (const auto& [type, extension] : rows) {
    Fed curl(CURL_RQ_HTTP_GET);
    curl.CurlSetRspParsedContentType("old");
    curl.CurlHttpParseRspHdr((std::string("HTTP/1.1 200 OK\r\nContent-Type: ") + type + "\r\n\r\n").c_str());
    EXPECT_STREQ(curl.Response().parsedContentType.get(), extension) << type;
  }
}

TEST(CurlHeader, OnlyTheLastBlockCounts) {
  Fed curl(CURL_RQ_HTTP_GET);
  curl.block("HTTP/1.1 301 Moved\r\nServer: first\r\nContent-Length: 77\r\n\r\n");
  curl.parse();
  curl.block("HTTP/1.1 200 OK\r\nDate: now\r\n\r\n");
  const std::string received = curl.Response().header.data();
  curl.block("Server: of a trailer\r\n\r\n");
  curl.parse();
  EXPECT_EQ(curl.Response().statusCode, 200);
  EXPECT_EQ(curl.Response().server.get(), nullptr);
  EXPECT_EQ(curl.Response().contentLength, 0);
  EXPECT_EQ(curl.Response().header.data(), received);
}

TEST(CurlHeader, IsCutOnceABlockAtTheBuffersEnd) {
  for (const std::size_t size : {8191, 8192, 100000}) {
    Fed curl(CURL_RQ_HTTP_GET);
    for (int block = 1; block <= 2; ++block) {
      curl.block("HTTP/1.1 200 OK\r\n");
      curl.header("A: " + std::string(size - 17 - 3, 'a'));
      curl.block("Server: not seen\r\n\r\n");
      EXPECT_EQ(curl.told.lines, std::vector<std::string>(block, "http: Response Header truncated."));
      EXPECT_EQ(std::strlen(curl.Response().header.data()), 8191U);
      EXPECT_EQ(curl.Response().headerComplete, 0);
    }
  }
}

TEST(CurlHeader, NothingIsKeptAfterACancel) {
  Fed curl(CURL_RQ_HTTP_GET);
  curl.told.answer = 0;
  EXPECT_EQ(curl.progress(), 1);
  curl.block("HTTP/1.1 200 OK\r\n\r\n");
  EXPECT_EQ(curl.Response().headerLength, 0);
  char data[] = "body";
  EXPECT_EQ(CCurl::CurlWriteDataCallback(data, 1, 4, &curl), 4U);
  curl.CurlResponseReset();
  curl.told.answer = 1;
  EXPECT_EQ(curl.progress(), 0);
}

TEST(CurlHeader, SearchGoesOnBehindTheMismatch) {
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

  CText value(std::string_view("old"));
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
    Fed curl(CURL_RQ_HTTP_GET);
    curl.block(std::string("HTTP/1.1 503 Busy\r\nX: ") + html + "\r\n\r\n");
    curl.parse();
    curl.CurlHttpExamineHeaderMsg();
    const std::string tail =
        std::string(" Remote Host(host), Http ErrCode(503), Http Err(Busy) Http ErrMsg(") + text + ')';
    EXPECT_EQ(curl.Message(), "http: Server Error." + tail);
    EXPECT_EQ(curl.told.lines, std::vector{curl.Message()});
    char out[512];
    EXPECT_EQ(curl.CurlHttpGetHtmlErrorMsg(out, sizeof out), static_cast<int>(32 + tail.size()));
    EXPECT_EQ(out, "Error: Http Get did not succeed." + tail);
    CCurl::CurlHttpParseError(html, out, sizeof out);
    EXPECT_STREQ(out, text);
    CCurl::CurlHttpParseError(html, out, 4);
    EXPECT_EQ(out, std::string(text).substr(0, 3));
  }
  const std::pair<int, const char*> classes[] = {
      {100, "http: Informational Status."}, {304, "http: Redirection Status."}, {499, "http: Client Error."},
      {500, "http: Server Error."},         {600, "http: Unknown Status."},     {299, ""}};
  for (const auto& [status, text] : classes) {
    Fed curl(CURL_RQ_HTTP_GET);
    curl.CurlHttpParseRspHdr(("HTTP/1.1 " + std::to_string(status) + " Text\r\n\r\n").c_str());
    curl.CurlHttpExamineHeaderMsg();
    EXPECT_EQ(curl.Message().substr(0, std::strlen(text)), text);
    EXPECT_EQ(curl.Message().empty(), *text == '\0');
  }
}

TEST(CurlFtp, RepliesGiveTheirCode) {
  Fed curl(CURL_RQ_FTP_GET);
  EXPECT_EQ(curl.header("230 Welcome\r\n"), 13U);
  EXPECT_EQ(curl.Response().statusCode, 230);
  EXPECT_STREQ(curl.Response().lastFtpResponse.data(), "230 Welcome\r\n");
  curl.CurlFtpGetReponseCode("22", 2);
  EXPECT_EQ(curl.Response().statusCode, 0);
  EXPECT_STREQ(curl.Response().lastFtpResponse.data(), "230 Welcome\r\n");
  curl.CurlFtpGetReponseCode(("550 " + std::string(200, 'n')).c_str(), 204);
  EXPECT_EQ(std::strlen(curl.Response().lastFtpResponse.data()), 127U);

  const std::string refusal = "500 AUTH is not understood\r\n";
  EXPECT_EQ(curl.header(refusal), refusal.size());
  curl.CurlSetFtpExplicitSSL(1);
  EXPECT_EQ(curl.header("500 No idea\r\n"), 13U);
  EXPECT_TRUE(curl.told.lines.empty());
  EXPECT_EQ(curl.header(refusal), static_cast<std::size_t>(-1));
  EXPECT_EQ(curl.told.lines.back(), "ftp: Aborting because ssl is not supported by ftp server.");
}

TEST(CurlProgress, LinesOfTheRequestTypes) {
  const struct {
    int type;
    const char *idle, *going;
  } rows[] = {
      {CURL_RQ_HTTP_GET, "Http: get: received (10), total expected (20)", nullptr},
      {CURL_RQ_HTTP_PUT, "Http: put: sending file data...", "Http: put: sent (3), total to send (5)"},
      {CURL_RQ_HTTP_POST, "Http: post: sending data...", "Http: post: sent (3), total to send (5)"},
      {CURL_RQ_FTP_GET, "Ftp: get: received (10), total expected (20)", nullptr},
      {CURL_RQ_FTP_PUT, "Ftp: put: sending file data...", "Ftp: put: sent (3), total to send (5)"},
      {CURL_RQ_FTP_DIR, "Ftp: dir: receiving directory data...", nullptr},
      {CURL_RQ_FTP_CMD, "Ftp: cmd: processing...", nullptr},
      {0x45, "unknown call to CurlHttpProgressCallback", nullptr},
  };
  for (const auto& row : rows) {
    Fed curl(row.type);
    EXPECT_EQ(curl.progress(), 0);
    EXPECT_EQ(curl.progress(5, 3), 0);
    const char* going = row.going != nullptr ? row.going : row.idle;
    EXPECT_EQ(curl.told.lines, (std::vector<std::string>{row.idle, going}));
    EXPECT_EQ(curl.told.figures, (std::vector<double>{1, 20.5, 10, 5, 3}));
  }
  Fed curl(CURL_RQ_HTTP_GET);
  curl.CurlHttpParseRspHdr("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
  EXPECT_EQ(curl.progress(), 0);
  EXPECT_EQ(curl.told.lines.back(), "Http: get: received (10)");
}

TEST(CurlProgress, NothingIsToldWithoutAName) {
  Fed curl(CURL_RQ_HTTP_GET);
  curl.told.answer = 0;
  curl.CurlSetCallback("");
  EXPECT_EQ(curl.progress(), 0);
  EXPECT_TRUE(curl.told.lines.empty());
}

TEST(CurlTrace, LinesAreLabelledTrimmedAndCut) {
  Fed curl(CURL_RQ_HTTP_GET);
  curl.trace(CURLINFO_TEXT, "Trying, \r\n");
  curl.trace(CURLINFO_HEADER_IN, "Date: x\r\n");
  curl.trace(CURLINFO_HEADER_OUT, "GET / HTTP/1.1\r\nHost: h\r\n\r\n");
  curl.trace(CURLINFO_DATA_IN, "data");
  curl.trace(CURLINFO_TEXT, std::string(509, 'x') + ", y");
  curl.trace(CURLINFO_TEXT, std::string(511, 'x'));
  EXPECT_EQ(curl.told.lines,
            (std::vector<std::string>{"Verbose: Info:        Trying", "Verbose: Header In:   Date: x",
                                      "Verbose: Header Out:  GET / HTTP/1.1\r\nHost: h",
                                      "Verbose: Info:        " + std::string(509, 'x') + "..., message was truncated.",
                                      "Verbose: Info:        " + std::string(511, 'x')}));
}

TEST(CurlTrace, CredentialsAreHidden) {
  const struct {
    curl_infotype type;
    std::vector<std::string> pieces, shown;
  } rows[] = {
      {CURLINFO_HEADER_OUT,
       {"GET / HTTP/1.1\r\nAUTHORIZATION: Basic secret\r\nProxy-Authorization: Digest secret=\"x\"\r\nCookie: "
        "secret\r\n\r\n"},
       {"GET / HTTP/1.1\r\nAUTHORIZATION: ***\r\nProxy-Authorization: ***\r\nCookie: ***"}},
      {CURLINFO_HEADER_OUT, {"PASS secret\r\n", "PWD\r\n"}, {"PASS ***", "PWD"}},
      {CURLINFO_HEADER_IN, {"Set-Cookie: id=secret\r\n"}, {"Set-Cookie: ***"}},
      {CURLINFO_HEADER_OUT,
       {"A: b\r\nAuthor", "ization: sec", "ret\r\nB: c\r\n"},
       {"A: b\r\nAuthor", "ization: ***", "***\r\nB: c"}},
      {CURLINFO_HEADER_OUT,
       {"X-Authorization: shown\r\n", "B: c", "ookie: shown\r\n"},
       {"X-Authorization: shown", "B: c", "ookie: shown"}},
      {CURLINFO_TEXT,
       {"Issue request to 'http://me:secret@h/p@q?u=ftp://x@y/'\n"},
       {"Issue request to 'http://***@h/p@q?u=ftp://***@y/'"}},
      {CURLINFO_TEXT, {"http://h/a@b and http://"}, {"http://h/a@b and http://"}},
  };
  for (const auto& row : rows) {
    Fed curl(CURL_RQ_HTTP_GET);
    for (const auto& piece : row.pieces) curl.trace(row.type, piece);
    ASSERT_EQ(curl.told.lines.size(), row.shown.size());
    for (std::size_t i = 0; i < row.shown.size(); ++i) EXPECT_EQ(curl.told.lines[i].substr(22), row.shown[i]);
  }
  Fed curl(CURL_RQ_HTTP_GET);
  curl.trace(CURLINFO_HEADER_OUT,
             std::string(480, 'x') + "\r\nAuthorization: secret and much longer than the limit\r\n");
  EXPECT_NE(curl.told.lines.back().find("Authorization: ***"), std::string::npos);
}

TEST(CurlEdge, WhatTheRoutineThrowsStaysInside) {
  Fed curl(CURL_RQ_HTTP_GET);
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
  CResponseFile file;
  ASSERT_TRUE(file.open(path.c_str()) && file.write("ours", 4) == 4 && file.close());
  EXPECT_TRUE(file.isAt(path.c_str()));
  std::filesystem::remove(path);
  std::ofstream(path) << "another's"; // on many file systems with the same inode
  EXPECT_FALSE(file.isAt(path.c_str()));
  std::filesystem::remove(path);
}

} // namespace

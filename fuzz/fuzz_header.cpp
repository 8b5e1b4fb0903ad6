// Response headers, line by line as libcurl hands them over, with the body behind them; the trace of the same bytes.
#include "fuzz_check.h"
#include "zel_curl_obj.h"

#include <algorithm>
#include <array>

namespace {

/// A transfer object that believes in a running request.
class Transfer : public CCurl {
public:
  explicit Transfer(int type) {
    fuzzTry([&] { CurlProcessRequest("", type); });
    CurlSetToBuf(1);
    CurlSetFtpExplicitSSL(1);
    CurlSetCallback("status");
    CurlSetCallbackFunc([](char*, unsigned long, const char* text, xProgressValues*) {
      fuzzCheck(std::strlen(text) <= 1023, "a status line has at most 1023 characters");
      return 1;
    });
  }
};

void readHeaders(CCurl& curl, std::string text) {
  text += '\n'; // no line waits for its end in the next input
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    CCurl::CurlHttpWriteHeaderCallback(text.data() + at, 1, end - at, &curl);
    const std::string line = text.substr(at, end - at);
    std::string traced = line;
    CCurl::CurlHttpDebugCallback(nullptr, CURLINFO_HEADER_OUT, traced.data(), traced.size(), &curl);
    at = end;
  }
  CCurl::CurlWriteDataCallback(text.data(), 1, text.size(), &curl);
}

void checkLimits(const CCurl& curl) {
  const CurlResponse& rsp = curl.Response();
  fuzzCheck(rsp.header.back() == '\0', "the header ends at index 8191");
  fuzzCheck(rsp.lastFtpResponse.back() == '\0', "the last FTP reply has an end");
  fuzzCheck(rsp.parsedContentType.str().size() <= 15, "a content type has at most 15 characters");
  for (const CText* text : {&rsp.statusText, &rsp.contentLengthText, &rsp.contentTypeText, &rsp.server, &rsp.date,
                            &rsp.lastModified, &rsp.transferEncoding, &rsp.contentEncoding})
    fuzzCheck(text->str().size() <= 255, "a header value has at most 255 characters");
  fuzzCheck(curl.Message().size() <= 1023, "a message has at most 1023 characters");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Transfer transfers[] = {Transfer(CURL_RQ_HTTP_GET), Transfer(CURL_RQ_HTTP_DELETE), Transfer(CURL_RQ_FTP_GET)};
  const std::string text = fuzzText(data, size);
  for (Transfer& curl : transfers) {
    curl.CurlResponseReset();
    readHeaders(curl, text);
    checkLimits(curl);
    std::array<char, 512> message{};
    curl.CurlHttpGetHtmlErrorMsg(message.data(), message.size());
    curl.CurlResponseReset();
    curl.CurlHttpParseRspHdr(text.c_str()); // a text that ends where it ends
    curl.CurlHttpExamineHeaderMsg();
    checkLimits(curl);
  }
  std::array<char, 64> error{};
  CCurl::CurlHttpParseError(text.c_str(), error.data(), error.size());
  fuzzCheck(error.back() == '\0', "an error text has an end");
  return 0;
}

#include "zel_curl_handle.h"
#include "zel_curl_obj.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

constexpr int lastIndex = 8191; // of the header buffer, always NUL
constexpr std::size_t valueLimit = 255;
constexpr std::size_t typeLimit = 15;
constexpr char blankLine[] = "\r\n\r\n";

int headerSize(const char* header) noexcept { return static_cast<int>(::strnlen(header, lastIndex)); }

int threeDigits(const char* text) noexcept {
  const char digits[] = {text[0], text[1], text[2], '\0'};
  return static_cast<int>(std::strtol(digits, nullptr, 10));
}

// The text after <html>, up to and including </html>.
std::string htmlText(const char* text, int limit, std::size_t most) {
  const int size = static_cast<int>(::strnlen(text, static_cast<std::size_t>(limit)));
  const int start = CCurl::CurlFindStringEndIdx(size, text, "<html>", 0);
  const int end = start != 0 ? CCurl::CurlFindStringEndIdx(size, text, "</html>", start) : 0;
  return std::string(transfer::cutAt(end != 0 ? std::string_view(text + start, text + end) : "No HTML found", most));
}

const char* statusClass(int status) noexcept {
  constexpr const char* unknown = "http: Unknown Status.";
  constexpr const char* byHundreds[] = {unknown,
                                        "http: Informational Status.",
                                        unknown,
                                        "http: Redirection Status.",
                                        "http: Client Error.",
                                        "http: Server Error."};
  return status >= 100 && status < 600 ? byHundreds[status / 100] : unknown;
}

// True while libcurl reads the trailers of a chunked body, whose fields may be called like a status line.
bool inTrailers() noexcept {
  return curl_easy_nextheader(transfer::Lease::handle(), CURLH_TRAILER, -1, nullptr) != nullptr;
}

} // namespace

std::size_t CCurl::CurlHttpWriteHeaderCallback(void* data, unsigned long /*size*/, unsigned long count,
                                               void* object) noexcept {
  return guardCallback(object, static_cast<std::size_t>(-1), [&](CCurl& self) {
    return self.takeHeader({static_cast<const char*>(data), count});
  });
}

std::size_t CCurl::takeHeader(std::string_view data) {
  if (isHttp() && m_headerEnded && data.starts_with("HTTP/") && !inTrailers()) {
    dropFile();
    m_file.forget();
    forgetBlock();
  }
  if (isHttp() && m_headerEnded) return data.size(); // trailers of a chunked body
  if (m_cancelled != 0) return data.size();
  m_headerTail.append(data.substr(data.size() - std::min<std::size_t>(data.size(), 3)));
  m_headerTail.erase(0, m_headerTail.size() - std::min<std::size_t>(m_headerTail.size(), 3));
  m_headerEnded = m_headerTail == "\n\r\n" || m_headerTail.ends_with("\n\n");

  const int size = static_cast<int>(std::min<std::size_t>(data.size(), INT_MAX / 2));
  const int room = std::max(lastIndex - m_rsp.headerLength, 0);
  std::copy_n(data.data(), std::min(size, room), m_rsp.header.data() + (lastIndex - room));
  m_rsp.headerLength = std::min(m_rsp.headerLength, INT_MAX / 2) + size;
  if (size > room && !m_headerTruncated) {
    m_headerTruncated = true;
    const auto kept = transfer::cutAt(m_rsp.header.data() + std::string(data.substr(room, 3)), lastIndex).size();
    std::fill(m_rsp.header.begin() + kept, m_rsp.header.end(), '\0');
    tell("http: Response Header truncated.");
  }

  if (isHttp()) {
    if (room > 0 && CurlFindStringEndIdx(lastIndex, m_rsp.header.data(), blankLine, 0) != 0) m_rsp.headerComplete = 1;
  } else if (isFtp()) {
    CurlFtpGetReponseCode(data.data(), size);
    if (m_rsp.statusCode == 500 && m_set.ftpExplicitSsl != 0 &&
        CurlFindStringEndIdx(size, data.data(), "auth", 0) != 0) {
      tell("ftp: Aborting because ssl is not supported by ftp server.");
      return static_cast<std::size_t>(-1);
    }
  }
  return data.size();
}

void CCurl::forgetBlock() {
  m_rsp = transfer::Response{};
  m_buffer.reset();
  m_headerTruncated = m_headerEnded = m_headerExamined = false;
  m_headerTail.clear();
}

void CCurl::CurlFtpGetReponseCode(const char* reply, int length) {
  m_rsp.statusCode = 0;
  if (length < 3) return;
  m_rsp.statusCode = threeDigits(reply);
  m_rsp.lastFtpResponse.fill('\0');
  std::copy_n(reply, std::min<std::size_t>(length, m_rsp.lastFtpResponse.size() - 1), m_rsp.lastFtpResponse.data());
}

void CCurl::CurlHttpParseRspHdr(const char* header) {
  const auto invalid = [this](const char* message) {
    m_message = message;
    tell(message);
  };
  if (std::strncmp(header, "HTTP", 4) != 0)
    return invalid("Error: response invalid. response does not begin with HTTP.");

  const int limit = headerSize(header);
  if (limit >= 12) m_rsp.statusCode = threeDigits(header + 9);
  if (limit > 13 && header[12] != '\r') CurlGetRspValue(header, 13, &m_rsp.statusText);

  const auto value = [&](const char* pattern, transfer::Text& text) {
    const int index = CurlFindStringEndIdx(limit, header, pattern, 0);
    return index != 0 ? CurlGetRspValue(header, index, &text) : 0;
  };
  if (value("content-length: ", m_rsp.contentLengthText) >= 2)
    m_rsp.contentLength =
        static_cast<int>(std::clamp<long>(std::strtol(m_rsp.contentLengthText.c_str(), nullptr, 10), INT_MIN, INT_MAX));
  value("transfer-encoding: ", m_rsp.transferEncoding);
  if (strcasecmp(m_rsp.transferEncoding.c_str(), "chunked") == 0) m_rsp.chunked = 1;
  value("content-encoding: ", m_rsp.contentEncoding);

  const int end = CurlFindStringEndIdx(limit, header, blankLine, 0);
  if (end == 0) return invalid("Error: response invalid. could not find end of response header.");
  m_rsp.headerLength = end;

  value("content-type: ", m_rsp.contentTypeText);
  CurlHttpParseContentType();
  value("date: ", m_rsp.date);
  value("server: ", m_rsp.server);
  value("last-modified: ", m_rsp.lastModified);
}

int CCurl::CurlGetRspValue(const char* header, int index, transfer::Text* value) {
  if (index < 0 || index > lastIndex) return 0;
  const std::string_view rest(header + index, ::strnlen(header + index, lastIndex - index));
  const auto end = rest.find('\r');
  if (end == rest.npos || end == 0) return 0;
  value->set(transfer::cutAt(rest.substr(0, end), valueLimit));
  return static_cast<int>(value->str().size());
}

int CCurl::CurlFindStringEndIdx(int limit, const char* text, const char* pattern, int start) noexcept {
  if (*pattern == '\0') return 0;
  const char* wanted = pattern;
  for (int i = start; i < limit; ++i) {
    wanted = text[i] == *wanted || text[i] == *wanted - 32 ? wanted + 1 : pattern;
    if (*wanted == '\0') return i + 1;
  }
  return 0;
}

void CCurl::CurlHttpParseContentType() {
  const std::string& text = m_rsp.contentTypeText.str();
  const auto slash = text.find('/');
  if (slash == text.npos) return;
  const auto size = static_cast<int>(text.size());
  const auto start = std::max<std::size_t>(slash + 1, CurlFindStringEndIdx(size, text.c_str(), "/x-", 0));
  auto end = text.find(';', start);
  if (end == text.npos) end = text.find(' ', start);
  end = std::min(end, text.size());
  if (end > start) m_rsp.parsedContentType.set(transfer::cutAt(text.substr(start, end - start), typeLimit));
}

void CCurl::CurlHttpExamineHeaderMsg() {
  if (m_rsp.statusCode / 100 == 2) return;
  const std::string html = m_buffer ? m_buffer->data : htmlText(m_rsp.header.data(), lastIndex - 1, 511);
  m_message = transfer::formatLimited(
      transfer::messageLimit, "%s Remote Host(%s), Http ErrCode(%d), Http Err(%s) Http ErrMsg(%s)",
      statusClass(m_rsp.statusCode), m_set.host.c_str(), m_rsp.statusCode, m_rsp.statusText.c_str(), html.c_str());
  tell(m_message);
}

int CCurl::CurlHttpGetHtmlErrorMsg(char* out, int outSize) {
  const std::string html = htmlText(m_rsp.header.data(), lastIndex - 1, 511);
  return transfer::copyTruncated(
      out, outSize,
      transfer::formatLimited(lastIndex,
                              "Error: Http Get did not succeed. Remote Host(%s), Http ErrCode(%d), Http "
                              "Err(%s) Http ErrMsg(%s)",
                              m_set.host.c_str(), m_rsp.statusCode, m_rsp.statusText.c_str(), html.c_str()));
}

void CCurl::CurlHttpParseError(const char* text, char* out, int outSize) {
  if (outSize < 1) return;
  std::fill_n(out, outSize, '\0');
  const std::string html = htmlText(text, lastIndex, static_cast<std::size_t>(outSize) - 1);
  html.copy(out, html.size());
}

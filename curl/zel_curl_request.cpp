#include "zel_curl_handle.h"
#include "zel_curl_obj.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <new>
#include <strings.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <type_traits>
#include <utility>
#include <vector>

/// A row of the table of request types.
struct CCurl::RequestKind {
  int type;
  const char* name;
  transfer::Text transfer::Settings::*file; ///< name of the response file, null when there is none
  const char* noFileName;                   ///< error when that name is missing, null when it may be
  bool toBuffer;                            ///< the response may go to the receive buffer
  bool uploads;

  static const RequestKind all[8];
  static const RequestKind* find(int type) noexcept;
};

const CCurl::RequestKind CCurl::RequestKind::all[8] = {
    {transfer::httpGet, "Http Get", &transfer::Settings::fileHttpGetRsp,
     "Error: Http Filename for Get Response is not set.", true, false},
    {transfer::httpPut, "Http Put", &transfer::Settings::fileHttpPutPostRsp,
     "Error: Http Filename for Put Response is not set.", true, true},
    {transfer::httpPost, "Http Post", &transfer::Settings::fileHttpPutPostRsp,
     "Error: Http Filename for Put Post Response is not set.", true, true},
    {transfer::httpDelete, "Http Delete", nullptr, nullptr, true, false},
    {transfer::ftpGet, "Ftp Get", &transfer::Settings::fileFtpGetRsp,
     "Error: Ftp Filename for Get Response is not set.", true, false},
    {transfer::ftpPut, "Ftp Put", &transfer::Settings::fileFtpRsp,
     "Error: Ftp Filename for Put/Cmd Response is not set.", false, true},
    {transfer::ftpDirectory, "Ftp Dir", &transfer::Settings::fileFtpRsp, nullptr, true, false},
    {transfer::ftpCommand, "Ftp Cmd", &transfer::Settings::fileFtpRsp,
     "Error: Ftp Filename for Put/Cmd Response is not set.", true, false}};

const CCurl::RequestKind* CCurl::RequestKind::find(int type) noexcept {
  const auto* row = std::find_if(std::begin(all), std::end(all), [=](const auto& kind) { return kind.type == type; });
  return row != std::end(all) ? row : nullptr;
}

/// However a request ends, closes its files, drops its header lines and deletes the response file unless keepFile was
/// called.
class CCurl::RequestEnd {
public:
  explicit RequestEnd(CCurl& request) noexcept : m_request(request) { m_request.m_file.forget(); }
  ~RequestEnd() {
    m_request.m_upload = Upload{};
    m_request.m_headers.clear();
    if (!m_keepFile) m_request.dropFile();
    if (!m_request.m_holdFile) m_request.m_file.release();
  }
  RequestEnd(const RequestEnd&) = delete;
  RequestEnd& operator=(const RequestEnd&) = delete;

  void keepFile() noexcept { m_keepFile = true; }

private:
  CCurl& m_request;
  bool m_keepFile = false;
};

namespace {

constexpr std::size_t reportLimit = 511;
constexpr long receiveSize = 512 * 1024L; // the fastest for large downloads

constexpr const char* encodings[] = {nullptr, "deflate", "gzip", ""};

using SList = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

SList copyLines(const transfer::TextList& lines) {
  SList list(nullptr, curl_slist_free_all);
  for (const auto* node = lines.head(); node != nullptr; node = node->next) {
    if (node->str == nullptr) continue;
    curl_slist* longer = curl_slist_append(list.get(), node->str);
    if (longer == nullptr) throw std::bad_alloc();
    static_cast<void>(list.release());
    list.reset(longer);
  }
  return list;
}

/// What a proxy's name may hold. libcurl quotes the whole text in its messages, and is given the server alone.
struct Proxy {
  explicit Proxy(const std::string& text) : server(text) {
    const auto scheme = text.find("://");
    const auto start = scheme == text.npos ? 0 : scheme + 3;
    const auto at = text.rfind('@');
    if (at == text.npos || at < start) return;
    login = text.substr(start, at - start);
    server.erase(start, at + 1 - start);
  }

  std::string server;
  std::string login; ///< "user:password", percent-encoded
};

/// "user:password" as libcurl decodes it, empty when there is neither.
std::string escapedLogin(const transfer::Text& user, const transfer::Text& password) {
  if (!user.present() && !password.present()) return {};
  const auto escape = [](const transfer::Text& text) {
    const std::unique_ptr<char, decltype(&curl_free)> escaped(curl_easy_escape(nullptr, text.c_str(), 0), curl_free);
    if (!escaped) throw std::bad_alloc();
    return std::string(escaped.get());
  };
  return escape(user) + ':' + escape(password);
}

/// A setting that becomes part of a URL, and the name by which people know it.
struct AddressPart {
  transfer::Text transfer::Settings::*text;
  const char* name;
};

constexpr AddressPart addressParts[] = {{&transfer::Settings::scheme, "URL_SCHEME"},
                                        {&transfer::Settings::host, "URL_HOSTNAME"},
                                        {&transfer::Settings::port, "URL_PORT"},
                                        {&transfer::Settings::path, "URL_PATH"},
                                        {&transfer::Settings::queryPrefix, "URL_QUERY_PREFIX"},
                                        {&transfer::Settings::query, "query"},
                                        {&transfer::Settings::querySuffix, "URL_QUERY_SUFFIX"}};

bool hasControls(std::string_view text) noexcept {
  return std::ranges::any_of(text, [](unsigned char c) { return c < ' ' || c == 0x7f; });
}

// Programs that a status routine starts must not inherit sockets.
curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address) noexcept {
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

int closeOnExec(void*, curl_socket_t socket, curlsocktype) noexcept {
  return ::fcntl(socket, F_SETFD, FD_CLOEXEC) == 0 ? CURL_SOCKOPT_OK : CURL_SOCKOPT_ERROR;
}

} // namespace

/// Sets the options of a transfer, until libcurl refuses one.
class CCurl::Options {
public:
  Options(CCurl& request, CURL* handle) noexcept : m_request(request), m_set(request.m_set), m_handle(handle) {}

  void setAll(const RequestKind& kind, const char* url, curl_slist* lines) {
    set(CURLOPT_URL, url);
    setLimits();
    setTrust();
    setProxy();
    setCallbacks();
    if (m_request.isHttp())
      setHttp(kind, lines);
    else
      setFtp(kind, lines);
    if (kind.uploads) setUpload(kind);
  }

  [[nodiscard]] CURLcode code() const noexcept { return m_code; }
  [[nodiscard]] std::string refusal() const {
    const curl_easyoption* option = curl_easy_option_by_id(m_refused);
    return transfer::formatLimited(reportLimit, "%s (CURLOPT_%s)", curl_easy_strerror(m_code),
                                   option != nullptr ? option->name : "");
  }

private:
  static_assert(sizeof(curl_off_t) == sizeof(long), "options of both types are set alike");

  /// Sets a number, a text or a pointer.
  template <typename Value>
  void set(CURLoption option, Value value) {
    using Passed = std::conditional_t<std::is_convertible_v<Value, curl_off_t>, curl_off_t, Value>;
    if (m_code != CURLE_OK) return;
    m_code = curl_easy_setopt(m_handle, option, static_cast<Passed>(value));
    m_refused = option;
  }

  void setLimits() {
    set(CURLOPT_PROTOCOLS_STR, m_request.isHttp() ? "http,https" : "ftp,ftps"); // redirects included
    set(CURLOPT_AUTOREFERER, 1);
    set(CURLOPT_FOLLOWLOCATION, 1);
    set(CURLOPT_MAXREDIRS, -1);
    set(CURLOPT_NOSIGNAL, 1);
    set(CURLOPT_TIMEOUT, m_set.rxTxTimeout);
    set(CURLOPT_CONNECTTIMEOUT, m_set.connectTimeout);
    set(CURLOPT_ACCEPT_ENCODING, encodings[m_set.encode]);
    static_cast<void>(curl_easy_setopt(m_handle, CURLOPT_BUFFERSIZE, receiveSize)); // it can do without
  }

  void setTrust() {
    set(CURLOPT_SSL_VERIFYHOST, m_set.sslVerifyHost != 0 ? 2 : 0);
    set(CURLOPT_SSL_VERIFYPEER, m_set.sslVerifyPeer);
    set(CURLOPT_SSLVERSION, m_set.sslVersion);
    set(CURLOPT_CAPATH, nullptr); // the bundle is the only trust
    set(CURLOPT_PROXY_CAPATH, nullptr);
    if (!m_set.sslCaInfo.present()) return;
    set(CURLOPT_CAINFO, m_set.sslCaInfo.get());
    set(CURLOPT_PROXY_CAINFO, m_set.sslCaInfo.get());
  }

  void setProxy() {
    const Proxy proxy(m_set.proxy.str());
    set(CURLOPT_PROXY, proxy.server.c_str()); // "": none, whatever the environment says
    set(CURLOPT_NOPROXY, "");
    if (m_set.proxy.present() && m_set.proxyPort.present()) {
      const long port = std::strtol(m_set.proxyPort.c_str(), nullptr, 10);
      set(CURLOPT_PROXYPORT, port > 0 ? port : -1); // 0 would mean libcurl's default
    }
    const std::string login = proxy.login.empty() ? escapedLogin(m_set.proxyUser, m_set.proxyPasswd) : proxy.login;
    if (!m_request.isHttp() || login.empty() || m_set.proxyAuthent == 0) return;
    set(CURLOPT_PROXYUSERPWD, login.c_str());
    set(CURLOPT_PROXYAUTH, m_set.proxyAuthent);
  }

  void setCallbacks() {
    void* const self = &m_request;
    set(CURLOPT_ERRORBUFFER, m_request.m_errorText.data());
    set(CURLOPT_OPENSOCKETFUNCTION, &openSocket);
    set(CURLOPT_SOCKOPTFUNCTION, &closeOnExec);
    set(CURLOPT_HEADERFUNCTION, &CurlHttpWriteHeaderCallback);
    set(CURLOPT_HEADERDATA, self);
    set(CURLOPT_WRITEFUNCTION, &CurlWriteDataCallback);
    set(CURLOPT_WRITEDATA, self);
    set(CURLOPT_XFERINFOFUNCTION, &xferInfo);
    set(CURLOPT_XFERINFODATA, self);
    set(CURLOPT_NOPROGRESS, 0);
    if (m_set.verbose == 0) return;
    set(CURLOPT_VERBOSE, 1);
    set(CURLOPT_DEBUGFUNCTION, &CurlHttpDebugCallback);
    set(CURLOPT_DEBUGDATA, self);
  }

  void setLogin() {
    if (!m_set.user.present() && !m_set.passwd.present()) return;
    set(CURLOPT_USERNAME, m_set.user.c_str());
    set(CURLOPT_PASSWORD, m_set.passwd.c_str());
    if (m_request.isHttp()) set(CURLOPT_HTTPAUTH, m_set.authent);
  }

  void setHttp(const RequestKind& kind, curl_slist* lines) {
    set(CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
    set(CURLOPT_FAILONERROR, 0);
    set(CURLOPT_HTTPHEADER, lines);
    if (m_set.authent != 0) setLogin();
    if (kind.type == transfer::httpGet) set(CURLOPT_HTTPGET, 1);
    if (kind.type == transfer::httpDelete) set(CURLOPT_CUSTOMREQUEST, "DELETE");
  }

  void setFtp(const RequestKind& kind, curl_slist* lines) {
    setLogin();
    set(CURLOPT_TRANSFERTEXT, m_set.ftpAscii);
    if (m_set.ftpExplicitSsl != 0 || strcasecmp(m_set.scheme.c_str(), "ftps") == 0)
      set(CURLOPT_USE_SSL, CURLUSESSL_ALL);
    set(CURLOPT_FTP_USE_EPSV, 0);
    set(CURLOPT_FTP_USE_EPRT, 0);
    set(CURLOPT_FTPPORT, m_set.ftpConnMode != 0 ? "-" : nullptr);
    if (kind.type == transfer::ftpDirectory) set(CURLOPT_DIRLISTONLY, m_set.ftpDirListType);
    if (kind.type == transfer::ftpPut) set(CURLOPT_FTP_CREATE_MISSING_DIRS, 1);
    if (kind.type == transfer::ftpCommand) {
      set(CURLOPT_NOBODY, 1);
      set(CURLOPT_QUOTE, lines);
    }
  }

  void setUpload(const RequestKind& kind) {
    m_request.openUpload();
    const bool post = kind.type == transfer::httpPost;
    set(post ? CURLOPT_POST : CURLOPT_UPLOAD, 1);
    set(post ? CURLOPT_POSTFIELDSIZE_LARGE : CURLOPT_INFILESIZE_LARGE, m_request.m_upload.size);
    set(CURLOPT_READFUNCTION, &CurlHttpPutPostPushCallback);
    set(CURLOPT_READDATA, static_cast<void*>(&m_request));
    set(CURLOPT_SEEKFUNCTION, &zelCurlOptSeekFunction);
    set(CURLOPT_SEEKDATA, static_cast<void*>(&m_request));
  }

  CCurl& m_request;
  const transfer::Settings& m_set;
  CURL* m_handle;
  CURLcode m_code = CURLE_OK;
  CURLoption m_refused{};
};

const transfer::Text* CCurl::responseFileName() const noexcept {
  const RequestKind* kind = RequestKind::find(m_requestType);
  return kind != nullptr && kind->file != nullptr ? &(m_set.*(kind->file)) : nullptr;
}

void CCurl::fail(const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  const std::string text = transfer::formatLimited(reportLimit, format, args);
  va_end(args);
  tell(text);
  throw CCurlException(text.c_str());
}

void CCurl::CurlProcessRequest(const char* url, int requestType) {
  const transfer::Lease lease(this);
  m_requestType = requestType;
  const RequestKind& kind = checkRequest(url);
  const std::string_view text = url;
  std::vector<char> target(3 * text.size() + 1);
  text.copy(target.data(), text.size());
  if (isHttp()) CurlEscapeSpaces(target.data(), target.size());

  CurlResponseReset();
  m_thrown = nullptr;
  m_tracedLine.clear();
  RequestEnd end(*this);
  refuseControls(text);
  const CURLcode code = finish(transfer(kind, target.data()));
  if (m_thrown || code != CURLE_OK) {
    CurlReleaseToBuf();
    m_rsp.statusCode = code;
    if (m_thrown) std::rethrow_exception(std::exchange(m_thrown, nullptr));
    if (kind.type == transfer::ftpCommand && code != CURLE_ABORTED_BY_CALLBACK) return end.keepFile();
    throwTransferError(kind, code);
  }
  end.keepFile();
  if (isHttp()) checkHttpStatus(kind);
}

// A request that opened no file, whether it failed or had none to write, also takes the names of the response files.
CURLcode CCurl::finish(CURLcode code) {
  m_upload.file.reset();
  m_headers.clear();
  if (!m_file.wasOpened())
    for (const RequestKind& row : RequestKind::all)
      if (row.file != nullptr) (m_set.*row.file).clear();
  if (!m_file.close() && code == CURLE_OK) {
    code = CURLE_WRITE_ERROR;
    writeFault();
  }
  if (code == CURLE_OK && m_cancelled != 0) return CURLE_ABORTED_BY_CALLBACK; // asked for in the very last report
  return code;
}

const CCurl::RequestKind& CCurl::checkRequest(const char* url) {
  if (url == nullptr) fail("Error: Url request ptr is null.");
  if (*url == '\0') fail("Error: Url request is empty.");
  CurlReleaseToBuf();
  const RequestKind* kind = RequestKind::find(m_requestType);
  if (m_toBuf != 0 && (kind == nullptr || !kind->toBuffer))
    fail("Error: Writing to a buffer is not supported for this operation.");
  if (kind == nullptr) fail("Error: The request type %d is not known.", m_requestType);
  const bool needsFile = kind->noFileName != nullptr && (m_toBuf == 0 || kind->type == transfer::ftpCommand);
  if (needsFile && !(m_set.*(kind->file)).present()) fail("%s", kind->noFileName);
  return *kind;
}

CURLcode CCurl::transfer(const RequestKind& kind, const char* url) {
  CURL* const handle = transfer::Lease::handle();
  const SList lines = copyLines(m_headers);
  Options options(*this, handle);
  options.setAll(kind, url, lines.get());
  if (options.code() != CURLE_OK) {
    m_fault = options.refusal();
    return options.code();
  }
  const CURLcode code = curl_easy_perform(handle);
  curl_easy_reset(handle);
  return code;
}

// A line break would begin a line of the protocol that nobody meant to send; libcurl refuses control characters in a
// URL without a word about which part they are in.
void CCurl::refuseControls(std::string_view url) {
  const auto check = [this](std::string_view text, const std::string& what) {
    if (text.find_first_of("\r\n") != text.npos) fail("Error: The %s must not contain a line break.", what.c_str());
  };
  const auto checkAddress = [&](std::string_view text, const char* what) {
    check(text, what);
    if (hasControls(text)) fail("Error: The %s must not contain a control character.", what);
  };
  if (hasControls(url)) {
    for (const AddressPart& part : addressParts) {
      const std::string& text = (m_set.*part.text).str();
      if (text != url) checkAddress(text, part.name);
    }
    checkAddress(url, "URL");
  }
  checkAddress(m_set.proxy.str(), "PROXY_HOSTNAME");
  check(m_set.user.str(), "user name");
  check(m_set.passwd.str(), "password");
  check(m_set.proxyUser.str(), "proxy user name");
  check(m_set.proxyPasswd.str(), "proxy password");
  int n = 0;
  for (const auto* line = m_headers.head(); line != nullptr; line = line->next) {
    ++n;
    if (line->str != nullptr) check(line->str, (isHttp() ? "header line " : "FTP command ") + std::to_string(n));
  }
}

void CCurl::openUpload() {
  const char* const name = m_set.fileToSend.c_str();
  if (m_set.fileToSend.present()) {
    m_upload.file.reset(std::fopen(name, "rbe"));
    if (!m_upload.file) fail("Error: The file to send (http put/post) to the remote server failed to open: %s", name);
    struct stat status {};
    if (::fstat(::fileno(m_upload.file.get()), &status) != 0) {
      fail("Error: Failed to get file stats on file to send (http put/post) to the remote server: %s", name);
    }
    m_upload.size = status.st_size;
  }
  if (m_fromBuf != 0) {
    m_upload.data = m_fromBufData;
    m_upload.size = m_fromBufData != nullptr ? std::max<std::int64_t>(m_fromBufLength, 0) : 0;
  }
}

void CCurl::checkHttpStatus(const RequestKind& kind) {
  if (!m_headerExamined && m_rsp.headerLength > 0) {
    CurlHttpParseRspHdr(m_rsp.header.data());
    CurlHttpExamineHeaderMsg();
  }
  if (m_rsp.statusCode >= 200 && m_rsp.statusCode < 300) return;
  CurlReleaseToBuf();
  const std::string failed = transfer::formatLimited(reportLimit, "Error: %s Request Failed.", kind.name);
  if (m_file.wasOpened()) {
    m_rsp.errorFile.set(m_file.path());
    tell(transfer::formatLimited(reportLimit, "http: %s see file: (%s)", failed.c_str(), m_file.path().c_str()));
  }
  throw CCurlException((failed + " Error = ").c_str(), m_message.c_str());
}

void CCurl::throwTransferError(const RequestKind& kind, CURLcode code) {
  if (code == CURLE_ABORTED_BY_CALLBACK && m_fault.empty()) {
    tell("Cancel Request Detected...Operation Cancelled.");
    throw CCurlException("Cancel request detected...Operation canceled.");
  }
  std::string reason = m_fault.empty() ? std::string(transfer::wholeCharacters(m_errorText.data())) : m_fault;
  if (reason.empty()) reason = curl_easy_strerror(code);
  constexpr const char* format = "Error: %s Request Failed. Error = %s, Curl Error Code = %d";
  const std::string text = transfer::formatLimited(reportLimit, format, kind.name, reason.c_str(), code);
  if (kind.type == transfer::httpDelete) throw CCurlException(text.c_str());
  if (isHttp()) fail("%s.", text.c_str());
  fail("%s. Last Ftp Response = %s", text.c_str(), m_rsp.lastFtpResponse.data());
}

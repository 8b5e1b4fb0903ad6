/// \file
/// CCurl, the transfer object: holds the settings of a request, composes and splits URLs, performs HTTP and FTP
/// requests through libcurl, analyses response headers and reports progress. One libcurl handle serves the whole
/// process, so one transfer runs at a time; a second one is refused.
#pragma once

#include "zel_curl_exception.h"
#include "zel_curl_file.h"
#include "zel_curl_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <curl/curl.h>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

/// Transfer figures handed to the status callback, in bytes; valid during the call only.
struct xProgressValues {
  std::int64_t isValid; ///< 1 when the record carries figures
  double dlTotal;       ///< expected to download, 0 when unknown
  double dlNow;
  double ulTotal; ///< expected to upload
  double ulNow;
};

namespace transfer {

/// Status callback: routine name, user data, message, figures (null for plain messages). 0 cancels the transfer. It may
/// throw; the transfer then ends and the exception continues from CurlProcessRequest.
using StatusCallback = int (*)(char* name, unsigned long data, const char* msg, xProgressValues* progress);

/// Request types; bit 0x40 marks the HTTP family, bit 0x80 the FTP family.
enum RequestType : int {
  httpGet = 0x41,
  httpPut = 0x42,
  httpPost = 0x43,
  httpDelete = 0x44,
  ftpGet = 0x81,
  ftpPut = 0x82,
  ftpDirectory = 0x83,
  ftpCommand = 0x84
};

/// The texts that a user sets.
struct TextSettings {
  Text callback; ///< name of the status routine; reports are made only when function and name are set
  Text scheme{"http"}, host, port{"80"}, path, queryPrefix, query, querySuffix;
  Text proxy, proxyPort{"80"}, user, passwd, proxyUser, proxyPasswd;
  Text sslCaInfo;
  Text fileToSend, fileHttpGetRsp, fileHttpPutPostRsp, fileFtpGetRsp, fileFtpRsp;
};

/// What a user sets. Stays across requests.
struct Settings : TextSettings {
  unsigned long callbackData = 0;
  int authent = 3; ///< 0 none, 1 Basic, 2 Digest, 3 either
  int proxyAuthent = 3;
  int encode = 0;         ///< 0 none, 1 deflate, 2 gzip, 3 whatever libcurl knows
  int ftpDirListType = 0; ///< 1: names only
  int ftpAscii = 0;
  int ftpExplicitSsl = 0;
  int ftpConnMode = 1; ///< 1 active, 0 passive
  int sslVerifyPeer = 1;
  int sslVerifyHost = 1;
  int sslVersion = 0;       ///< as CURLOPT_SSLVERSION, 0 to 3
  int extVers = 0;          ///< 0: the HTTP GET file gets the extension of the content type
  int connectTimeout = 180; ///< seconds
  int rxTxTimeout = 1800;   ///< seconds, whole transfer
  int verbose = 0;
};

/// What the last response said. Every request starts from the defaults.
struct Response {
  Text statusText, contentLengthText, contentTypeText, server, date, lastModified;
  Text parsedContentType; ///< the content type as a file extension
  Text transferEncoding, contentEncoding;
  Text file;                       ///< file that the body was written to
  Text errorFile;                  ///< the same when the request failed: it holds the server's own words
  std::array<char, 8192> header{}; ///< raw header bytes, NUL-terminated at index 8191
  std::array<char, 128> lastFtpResponse{};
  int statusCode = 0;    ///< HTTP status, FTP reply code, or libcurl's code after a failed transfer
  int contentLength = 0; ///< bytes; 0 when the header gives none or a single digit
  int headerLength = 0;  ///< bytes seen while headers arrive; then the index just past the blank line
  int chunked = 0;
  int headerComplete = 0;
};

} // namespace transfer

class CCurl {
public:
  /// Starts the transfer library when needed.
  CCurl();
  /// Drops the cached connections. The object must not be transferring (isTransferring).
  virtual ~CCurl();
  CCurl(const CCurl&) = delete;
  CCurl& operator=(const CCurl&) = delete;

  /// \name Process-wide
  /// @{
  /// Starts OpenSSL and libcurl and makes the shared handle. \return 1 when the handle exists, else 0.
  static int CurlStartup();
  /// Shuts them down. \throws CCurlException while a transfer runs.
  static void CurlShutdown();
  /// Drops every cached connection; while a transfer runs, as soon as it has ended.
  static void CurlCloseConnections();
  /// 1 while a transfer runs.
  [[nodiscard]] static int transferRunning() noexcept;
  /// Installs a check that running transfers make besides calling the status callback: nonzero cancels.
  static void setInterruptFunc(int (*interrupted)()) noexcept;
  /// @}

  /// True while this object's own request runs: it must not be cleaned up or destroyed then.
  [[nodiscard]] bool isTransferring() const noexcept;
  /// Frees settings, response and buffers. Scheme and port are absent afterwards.
  /// \throws CCurlException while the object is transferring.
  void CurlCleanup();
  /// Forgets the last response and the message, cancel flag and receive buffer.
  void CurlResponseReset();

  /// \name Settings
  /// A string setter stores a copy of a non-empty argument; null or empty leaves the setting absent.
  /// @{
  void CurlSetScheme(const char* v) { m_set.scheme.set(v); }
  void CurlSetHost(const char* v) { m_set.host.set(v); }
  void CurlSetPath(const char* v) { m_set.path.set(v); }
  void CurlSetQueryPrefix(const char* v) { m_set.queryPrefix.set(v); }
  void CurlSetQuery(const char* v) { m_set.query.set(v); }
  void CurlSetQuerySuffix(const char* v) { m_set.querySuffix.set(v); }
  void CurlSetProxy(const char* v) { m_set.proxy.set(v); }
  void CurlSetFileNameHttpGetRsp(const char* v) { m_set.fileHttpGetRsp.set(v); }
  void CurlSetCallback(const char* v) { m_set.callback.set(v); }
  void CurlSetSslCAInfo(const char* v) { m_set.sslCaInfo.set(v); }
  void CurlSetRspParsedContentType(const char* v) { m_rsp.parsedContentType.set(v); }

  /// Stores the text, then converts it. \return the port. \throws CCurlException for an empty text or a number below 1;
  /// an unusable text stays stored.
  int CurlSetPort(const char* port);
  /// Stores the text as proxy port, but checks the server's port: libcurl checks the proxy port itself.
  int CurlSetProxyPort(const char* port);

  void CurlSetUser(const char* v) { m_set.user.set(v); }
  void CurlSetPasswd(const char* v) { m_set.passwd.set(v); }
  void CurlSetProxyUser(const char* v) { m_set.proxyUser.set(v); }
  void CurlSetProxyPasswd(const char* v) { m_set.proxyPasswd.set(v); }

  /// Values outside the range throw CCurlException and change nothing.
  void CurlSetAuthent(int v) { setInRange(m_set.authent, v, 3, "Authentictation"); }
  void CurlSetProxyAuthent(int v) { setInRange(m_set.proxyAuthent, v, 3, "ProxyAuthentictation"); }
  void CurlSetEncode(int v) { setInRange(m_set.encode, v, 3, "Encode"); }

  /// Any value is taken: flags become 0 or 1, timeouts at least 1, a verbose of 2 and more 1.
  void CurlSetSslVerifyPeer(int v) noexcept { m_set.sslVerifyPeer = flag(v); }
  void CurlSetSslVerifyHost(int v) noexcept { m_set.sslVerifyHost = flag(v); }
  void CurlSetToBuf(int v) noexcept { m_toBuf = flag(v); }
  void CurlSetRxTxTo(int seconds) noexcept { m_set.rxTxTimeout = std::max(seconds, 1); }
  void CurlSetConnectTo(int seconds) noexcept { m_set.connectTimeout = std::max(seconds, 1); }
  void CurlSetVerbose(int v) noexcept { m_set.verbose = std::min(v, 1); }

  void CurlSetCallbackFunc(transfer::StatusCallback fn) noexcept { m_callback = fn; }
  void CurlSetCallbackData(unsigned long data) noexcept { m_set.callbackData = data; }

  /// Copies another object's settings and status callback, but not its header lines, buffers and response.
  void copySettings(const CCurl& from);

  void CurlReleaseToBuf() noexcept { m_buffer.reset(); }

  [[nodiscard]] const transfer::Settings& settings() const noexcept { return m_set; }
  [[nodiscard]] const transfer::Response& response() const noexcept { return m_rsp; }
  /// Last composed status or error message.
  [[nodiscard]] const std::string& message() const noexcept { return m_message; }
  /// Received body of a request in buffer mode: address (null when none), length and reported capacity in bytes.
  [[nodiscard]] const char* buffer() const noexcept { return m_buffer ? m_buffer->data.c_str() : nullptr; }
  [[nodiscard]] std::int64_t bufferLength() const noexcept { return m_buffer ? std::ssize(m_buffer->data) : 0; }
  [[nodiscard]] std::int64_t bufferCapacity() const noexcept { return m_buffer ? m_buffer->capacity : 0; }
  /// @}

  /// \name String lists
  /// @{
  /// Empties a list.
  static void CurlCleanUpStrNodes(transfer::TextList* list) noexcept;
  [[nodiscard]] static int CurlGetStrNodeCount(const xNodeStr_t* head) noexcept { return transfer::length(head); }
  /// Adds a request header line (an FTP command for a command request) to the next request, which consumes the list. An
  /// empty line adds an absent one, which is not sent.
  void CurlAddHeader(const char* line) { m_headers.append(line != nullptr ? line : ""); }
  [[nodiscard]] transfer::TextList& headerList() noexcept { return m_headers; }
  /// @}

  /// \name URLs and file names
  /// @{
  /// The full request URL, of scheme, host, port, path and query parts. \param out buffer of `outSize` bytes, the URL
  /// is cut to it. \return length without the cut. \throws CCurlException naming the part that is missing.
  int CurlBuildUrlRq(char* out, int outSize);
  /// A URL of which only scheme and host are required; query prefix and suffix are not used.
  int CurlBuildUrlRqSimple(char* out, int outSize);
  /// Splits "scheme://[credentials@]host[:port]/path?query" into scheme, host, port and path; the query is not kept.
  /// \throws CCurlException naming what is missing; the parts before it stay set.
  void CurlParseURL(const char* url);
  /// Replaces spaces by "%20" in place, in a buffer of `size` bytes. \throws CCurlException when it does not fit.
  static void CurlEscapeSpaces(char* str, unsigned long size);
  /// Number of leading spaces; the last character is never counted.
  [[nodiscard]] static int CurlCountLeadingSpaces(const char* str) noexcept;
  /// Cuts line feeds, carriage returns, spaces and commas off the end of the first `len` characters.
  static void CurlRemoveTrailingLfCrSpacesCommas(char* str, int len) noexcept;
  /// @}

  /// Runs one request (transfer::RequestType). \throws CCurlException for every failure, after reporting it to the
  /// status callback; also when another transfer is running.
  void CurlProcessRequest(const char* url, int requestType);

  /// \name Kept for native code that transfers without a service client; nothing in the module calls these
  /// @{
  /// Uploads and FTP: settings with the rules of the setters above.
  void CurlSetFileNameHttpPutPostRsp(const char* v) { m_set.fileHttpPutPostRsp.set(v); }
  void CurlSetFileNameFtpGetRsp(const char* v) { m_set.fileFtpGetRsp.set(v); }
  void CurlSetFileNameFtpRsp(const char* v) { m_set.fileFtpRsp.set(v); }
  void CurlSetFileToSend(const char* v) { m_set.fileToSend.set(v); }
  void CurlSetFtpDirListType(int v) { setInRange(m_set.ftpDirListType, v, 1, "FtpDirListType"); }
  void CurlSetFtpAscii(int v) { setInRange(m_set.ftpAscii, v, 1, "FtpAscii"); }
  void CurlSetFtpExplicitSSL(int v) noexcept { m_set.ftpExplicitSsl = flag(v); }
  void CurlSetFtpConnMode(int v) noexcept { m_set.ftpConnMode = flag(v); }
  /// Upload from the caller's memory (not copied, must live until the request has ended) instead of the file to send.
  void CurlSetFromBufPtr(int flag, const char* data, long length) noexcept;
  /// TLS versions and file names, with the rules of the setters above.
  void CurlSetSslVersion(int v) { setInRange(m_set.sslVersion, v, 3, "SSL Version"); }
  void CurlSetExtVers(int v) { setInRange(m_set.extVers, v, 1, "filename extension version"); }
  /// Store and clear a text of the caller, as the object does with its settings.
  static void CurlStringHandler(transfer::Text* field, const char* value);
  static void CurlCleanUpCharArray(transfer::Text* field) noexcept;
  /// "user:password" for programs that take both as one text, absent when both are.
  static void CurlCreateUsrPwd(transfer::Text* out, const char* user, const char* pwd);
  /// Node `index` of a text list (from 0; below 1 gives the head), null when the list ends first.
  [[nodiscard]] static const xNodeStr_t* CurlGetStrNode(const xNodeStr_t* head, int index) noexcept {
    return transfer::itemAt(head, index);
  }
  /// Splits any URL with scheme and host, also into path and query.
  void CurlParseURLSimple(const char* url);
  /// Percent encoding and decoding through libcurl. \return 1, or 0 when there is no input or `out` is too small.
  static int CurlUrlEncode(const char* in, char* out, unsigned long outSize);
  static int CurlUrlDecode(const char* in, char* out, unsigned long outSize);
  /// 1 when the path ends in a file name.
  [[nodiscard]] static int CurlContainsFilename(const char* path) noexcept;
  static void CurlReplaceInvalidFilenameChars(char* name) noexcept;
  /// Gives a response file name the extension of the content type and deletes an older file of that name.
  /// \return the result of `unlink`.
  int CurlBuildFileName(transfer::Text* name);
  /// The text between <html> and </html>, for answers in a buffer of the caller.
  static void CurlHttpParseError(const char* text, char* out, int outSize);
  /// @}

  /// \name Response analysis
  /// @{
  void CurlHttpParseRspHdr(const char* header);
  /// Analyses the headers when the first body data arrives and makes the place where the body goes.
  void CurlExamineHeader();
  void CurlHttpExamineHeaderMsg();
  /// Derives the parsed content type from the content type text.
  virtual void CurlHttpParseContentType();
  /// Composes the message for an HTML answer where data was expected; cut to `outSize`. \return length without the cut.
  int CurlHttpGetHtmlErrorMsg(char* out, int outSize);
  static int CurlGetRspValue(const char* header, int index, transfer::Text* value);
  /// Index just past the first match of `pattern` (lower case; text may be lower or upper) in `text` between `start`
  /// and `limit`, or 0. After a mismatch the search continues at the next character; the mismatching one is not
  /// tried again.
  [[nodiscard]] static int CurlFindStringEndIdx(int limit, const char* text, const char* pattern, int start) noexcept;
  void CurlFtpGetReponseCode(const char* reply, int length);
  /// @}

  /// \name Progress
  /// @{
  /// Calls the status callback, as `callStatusRoutine` does; a result of 0 sets the cancel flag.
  void CurlIssueCallback(const char* msg, xProgressValues* progress);
  /// @}

  /// \name Callbacks of libcurl
  /// `object` is the CCurl. What the status callback throws in one of them ends the transfer and continues from
  /// CurlProcessRequest.
  /// @{
  /// Collects header data. \return the bytes taken, or -1 to abort the transfer.
  static std::size_t CurlHttpWriteHeaderCallback(void* data, unsigned long size, unsigned long count,
                                                 void* object) noexcept;
  /// Stores body data. \return the items taken; fewer than `count` end the transfer.
  static std::size_t CurlWriteDataCallback(void* data, unsigned long size, unsigned long count, void* object) noexcept;
  /// Supplies upload data. \return the bytes supplied, 0 at the end.
  static std::size_t CurlHttpPutPostPushCallback(void* buffer, unsigned long size, unsigned long count,
                                                 void* object) noexcept;
  /// Reports progress. \return 1 when the request is cancelled, else 0.
  static int CurlHttpProgressCallback(void* object, double dlTotal, double dlNow, double ulTotal,
                                      double ulNow) noexcept;
  /// Reports a line of the verbose trace, credentials replaced. \return 0
  static int CurlHttpDebugCallback(CURL* handle, curl_infotype type, char* data, unsigned long size,
                                   void* object) noexcept;
  /// @}

  /// Name of the file that the last request wrote, null when none.
  [[nodiscard]] const char* responseFile() const noexcept { return m_rsp.file.get(); }

protected:
  /// With `hold`, the files that requests write from now on stay open, so that responseFileIsOurs can compare.
  void holdResponseFile(bool hold) noexcept;
  /// True when the file of that name is still the very file that the last request wrote.
  [[nodiscard]] bool responseFileIsOurs() const noexcept { return m_file.isStillThere(); }
  /// Passes a line, without secrets, and transfer figures to the status callback. \return its result, 1 when there is
  /// no callback.
  virtual int callStatusRoutine(const char* msg, xProgressValues* progress);

private:
  struct RequestKind;
  class RequestEnd;
  class Options;
  friend int zelCurlOptSeekFunction(void* object, curl_off_t offset, int origin) noexcept;

  struct Upload {
    transfer::FilePtr file;     ///< source when `data` is null
    const char* data = nullptr; ///< the caller's memory
    std::int64_t size = 0;
    std::int64_t position = 0;
  };
  struct ReceiveBuffer {
    std::string data;
    std::int64_t capacity; ///< as reported
  };

  static int flag(int value) noexcept { return value != 0 ? 1 : 0; }
  static void setInRange(int& field, int value, int most, const char* name);

  /// Runs the body of a callback on the object. What it throws is kept until the transfer has ended, and no callback
  /// does anything more until then.
  template <typename Result, typename Body>
  static Result guardCallback(void* object, Result failed, Body body) noexcept {
    auto& self = *static_cast<CCurl*>(object);
    if (self.m_thrown) return failed;
    try {
      return body(self);
    } catch (...) {
      self.m_thrown = std::current_exception();
      return failed;
    }
  }
  static int xferInfo(void* object, curl_off_t dlTotal, curl_off_t dlNow, curl_off_t ulTotal,
                      curl_off_t ulNow) noexcept;

  [[nodiscard]] bool isHttp() const noexcept { return (m_requestType & 0x40) != 0; }
  [[nodiscard]] bool isFtp() const noexcept { return (m_requestType & 0x80) != 0; }
  [[nodiscard]] const transfer::Text* responseFileName() const noexcept;

  void tell(const std::string& text);
  /// Reports a text, composed as by `printf` and cut at 511 bytes, and throws it.
  [[noreturn]] [[gnu::format(printf, 2, 3)]] void fail(const char* format, ...);
  void fileFault(const std::string& problem);
  void writeFault();
  void dropFile() noexcept;

  /// Gives a file name the extension of the content type.
  void nameAfterType(transfer::Text& name) const;
  std::size_t splitServer(std::string_view url, bool needsPath);
  const RequestKind& checkRequest(const char* url);
  void refuseControls(std::string_view url);
  CURLcode transfer(const RequestKind& kind, const char* url);
  void openUpload();
  CURLcode finish(CURLcode code);
  void checkHttpStatus(const RequestKind& kind);
  [[noreturn]] void throwTransferError(const RequestKind& kind, CURLcode code);

  void forgetBlock();
  std::size_t takeHeader(std::string_view data);
  std::size_t takeBody(const char* data, std::size_t size, std::size_t count);
  std::size_t supplyBody(char* buffer, std::size_t size);
  int seekBody(std::int64_t offset, int origin) noexcept;
  void trace(curl_infotype type, std::string_view data);

  transfer::Settings m_set;
  transfer::StatusCallback m_callback = nullptr;
  int m_toBuf = 0;
  int m_fromBuf = 0;
  const char* m_fromBufData = nullptr;
  std::int64_t m_fromBufLength = 0;
  transfer::TextList m_headers;

  transfer::Response m_rsp;
  std::string m_message;
  std::optional<ReceiveBuffer> m_buffer;

  int m_requestType = 0;
  int m_cancelled = 0;
  bool m_headerTruncated = false; ///< of the current header block, and reported
  std::string m_headerTail;       ///< its last characters
  bool m_headerEnded = false;     ///< its blank line has arrived, even if the block was cut
  bool m_headerExamined = false;
  Upload m_upload;
  transfer::ResponseFile m_file;
  bool m_holdFile = false;
  std::string m_fault;      ///< why the request fails when libcurl cannot know it
  std::string m_tracedLine; ///< start of an outgoing header line that the trace has seen in part
  std::exception_ptr m_thrown;
  std::array<char, CURL_ERROR_SIZE + 1> m_errorText{};
};

/// Rewinds an upload for libcurl. \return a CURL_SEEKFUNC code.
int zelCurlOptSeekFunction(void* object, curl_off_t offset, int origin) noexcept;

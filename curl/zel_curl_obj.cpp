#include "zel_curl_obj.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace {

constexpr transfer::Text transfer::Settings::*allTexts[] = {
    &transfer::Settings::callback,      &transfer::Settings::scheme,         &transfer::Settings::host,
    &transfer::Settings::port,          &transfer::Settings::path,           &transfer::Settings::queryPrefix,
    &transfer::Settings::query,         &transfer::Settings::querySuffix,    &transfer::Settings::proxy,
    &transfer::Settings::proxyPort,     &transfer::Settings::user,           &transfer::Settings::passwd,
    &transfer::Settings::proxyUser,     &transfer::Settings::proxyPasswd,    &transfer::Settings::sslCaInfo,
    &transfer::Settings::fileToSend,    &transfer::Settings::fileHttpGetRsp, &transfer::Settings::fileHttpPutPostRsp,
    &transfer::Settings::fileFtpGetRsp, &transfer::Settings::fileFtpRsp};

void setInRange(int& field, int value, int most, const char* error) {
  if (value < 0 || value > most) throw CCurlException(error);
  field = value;
}

int flag(int value) noexcept { return value != 0 ? 1 : 0; }

int portNumber(const transfer::Text& text) noexcept {
  return static_cast<int>(std::clamp(std::strtol(text.c_str(), nullptr, 10), 0L, static_cast<long>(INT_MAX)));
}

} // namespace

CCurl::CCurl() { CurlStartup(); }

CCurl::~CCurl() { CurlCloseConnections(); }

void CCurl::CurlCleanup() {
  if (isTransferring())
    throw CCurlException("Error: the object is still needed by its running request. Wait until it has ended.");
  for (auto text : allTexts) (m_set.*text).clear();
  m_headers.clear();
  CurlResponseReset();
}

void CCurl::CurlResponseReset() {
  forgetBlock();
  m_message.clear();
  m_errorText.fill('\0');
  m_fault.clear();
  m_cancelled = 0;
}

void CCurl::CurlSetScheme(const char* v) { m_set.scheme.set(v); }
void CCurl::CurlSetHost(const char* v) { m_set.host.set(v); }
void CCurl::CurlSetPath(const char* v) { m_set.path.set(v); }
void CCurl::CurlSetQueryPrefix(const char* v) { m_set.queryPrefix.set(v); }
void CCurl::CurlSetQuery(const char* v) { m_set.query.set(v); }
void CCurl::CurlSetQuerySuffix(const char* v) { m_set.querySuffix.set(v); }
void CCurl::CurlSetProxy(const char* v) { m_set.proxy.set(v); }
void CCurl::CurlSetFileNameHttpGetRsp(const char* v) { m_set.fileHttpGetRsp.set(v); }
void CCurl::CurlSetFileNameHttpPutPostRsp(const char* v) { m_set.fileHttpPutPostRsp.set(v); }
void CCurl::CurlSetFileNameFtpGetRsp(const char* v) { m_set.fileFtpGetRsp.set(v); }
void CCurl::CurlSetFileNameFtpRsp(const char* v) { m_set.fileFtpRsp.set(v); }
void CCurl::CurlSetFileToSend(const char* v) { m_set.fileToSend.set(v); }
void CCurl::CurlSetCallback(const char* v) { m_set.callback.set(v); }
void CCurl::CurlSetSslCAInfo(const char* v) { m_set.sslCaInfo.set(v); }
void CCurl::CurlSetRspParsedContentType(const char* v) { m_rsp.parsedContentType.set(v); }

void CCurl::CurlStringHandler(transfer::Text* field, const char* value) {
  if (field != nullptr) field->set(value);
}

void CCurl::CurlCleanUpCharArray(transfer::Text* field) noexcept {
  if (field != nullptr) field->clear();
}

int CCurl::CurlSetPort(const char* port) {
  if (port == nullptr || *port == '\0')
    throw CCurlException("Error: CurlSetPort failed. Port Number can not be set to a null string.");
  m_set.port.set(port);
  const int number = portNumber(m_set.port);
  if (number < 1)
    throw CCurlException("Error: CurlSetPort failed to convert port value from string to integer: ",
                         m_set.port.c_str());
  return number;
}

int CCurl::CurlSetProxyPort(const char* port) {
  m_set.proxyPort.set(port);
  const int number = portNumber(m_set.port);
  if (number < 1)
    throw CCurlException("Error: CurlSetProxyPort failed to convert port value from string to integer: ",
                         m_set.proxyPort.c_str());
  return number;
}

void CCurl::CurlSetUser(const char* v) { m_set.user.set(v); }
void CCurl::CurlSetPasswd(const char* v) { m_set.passwd.set(v); }
void CCurl::CurlSetProxyUser(const char* v) { m_set.proxyUser.set(v); }
void CCurl::CurlSetProxyPasswd(const char* v) { m_set.proxyPasswd.set(v); }

void CCurl::CurlCreateUsrPwd(transfer::Text* out, const char* user, const char* pwd) {
  const transfer::Text name(user != nullptr ? user : "");
  const transfer::Text secret(pwd != nullptr ? pwd : "");
  out->set(name.present() || secret.present() ? name.str() + ':' + secret.str() : std::string());
}

void CCurl::CurlSetAuthent(int v) {
  setInRange(m_set.authent, v, 3, "Error: Failed to set Authentictation. Value is not valid.");
}
void CCurl::CurlSetProxyAuthent(int v) {
  setInRange(m_set.proxyAuthent, v, 3, "Error: Failed to set ProxyAuthentictation. Value is not valid.");
}
void CCurl::CurlSetEncode(int v) { setInRange(m_set.encode, v, 3, "Error: Failed to set Encode. Value is not valid."); }
void CCurl::CurlSetFtpDirListType(int v) {
  setInRange(m_set.ftpDirListType, v, 1, "Error: Failed to set FtpDirListType. Value is not valid.");
}
void CCurl::CurlSetFtpAscii(int v) {
  setInRange(m_set.ftpAscii, v, 1, "Error: Failed to set FtpAscii. Value is not valid.");
}
void CCurl::CurlSetSslVersion(int v) {
  setInRange(m_set.sslVersion, v, 3, "Error: Failed to set SSL Version. Value is not valid.");
}
void CCurl::CurlSetExtVers(int v) {
  setInRange(m_set.extVers, v, 1, "Error: Failed to set filename extension version. Value is not valid.");
}

void CCurl::CurlSetSslVerifyPeer(int v) noexcept { m_set.sslVerifyPeer = flag(v); }
void CCurl::CurlSetSslVerifyHost(int v) noexcept { m_set.sslVerifyHost = flag(v); }
void CCurl::CurlSetFtpExplicitSSL(int v) noexcept { m_set.ftpExplicitSsl = flag(v); }
void CCurl::CurlSetFtpConnMode(int v) noexcept { m_set.ftpConnMode = flag(v); }
void CCurl::CurlSetToBuf(int v) noexcept { m_toBuf = flag(v); }
void CCurl::CurlSetRxTxTo(int seconds) noexcept { m_set.rxTxTimeout = std::max(seconds, 1); }
void CCurl::CurlSetConnectTo(int seconds) noexcept { m_set.connectTimeout = std::max(seconds, 1); }
void CCurl::CurlSetVerbose(int v) noexcept { m_set.verbose = std::min(v, 1); }

void CCurl::copySettings(const CCurl& from) {
  m_set = from.m_set;
  m_callback = from.m_callback;
}

void CCurl::CurlSetCallbackFunc(transfer::StatusCallback fn) noexcept { m_callback = fn; }
void CCurl::CurlSetCallbackData(unsigned long data) noexcept { m_set.callbackData = data; }

void CCurl::CurlSetFromBufPtr(int flag, const char* data, long length) noexcept {
  m_fromBuf = ::flag(flag);
  m_fromBufData = data;
  m_fromBufLength = length;
}

void CCurl::CurlReleaseToBuf() noexcept { m_buffer.reset(); }

const char* CCurl::buffer() const noexcept { return m_buffer ? m_buffer->data.c_str() : nullptr; }

std::int64_t CCurl::bufferLength() const noexcept {
  return m_buffer ? static_cast<std::int64_t>(m_buffer->data.size()) : 0;
}

std::int64_t CCurl::bufferCapacity() const noexcept { return m_buffer ? m_buffer->capacity : 0; }

bool CCurl::responseFileIsOurs() const noexcept { return m_file.isStillThere(); }

void CCurl::holdResponseFile(bool hold) noexcept {
  m_holdFile = hold;
  if (!hold) m_file.release();
}

void CCurl::CurlCleanUpStrNodes(transfer::TextList* list) noexcept {
  if (list != nullptr) list->clear();
}

int CCurl::CurlGetStrNodeCount(const xNodeStr_t* head) noexcept { return transfer::length(head); }

const xNodeStr_t* CCurl::CurlGetStrNode(const xNodeStr_t* head, int index) noexcept {
  return transfer::itemAt(head, index);
}

void CCurl::CurlAddHeader(const char* line) { m_headers.append(line != nullptr ? line : ""); }

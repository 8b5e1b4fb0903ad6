#include "zel_curl_obj.h"

#include <climits>
#include <cstdlib>

namespace {

/// The number of the server's port. \throws CCurlException with the text that was given when that is below 1.
int portNumber(const transfer::Text& port, const char* error, const transfer::Text& given) {
  const long number = std::strtol(port.c_str(), nullptr, 10);
  if (number < 1) throw CCurlException(error, given.c_str());
  return static_cast<int>(std::min<long>(number, INT_MAX));
}

} // namespace

void CCurl::setInRange(int& field, int value, int most, const char* name) {
  if (value < 0 || value > most)
    throw CCurlException(("Error: Failed to set " + std::string(name) + ". Value is not valid.").c_str());
  field = value;
}

CCurl::CCurl() { CurlStartup(); }

CCurl::~CCurl() { CurlCloseConnections(); }

void CCurl::CurlCleanup() {
  if (isTransferring())
    throw CCurlException("Error: the object is still needed by its running request. Wait until it has ended.");
  static_cast<transfer::TextSettings&>(m_set) = {};
  for (transfer::Text* text : {&m_set.scheme, &m_set.port, &m_set.proxyPort}) text->clear();
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
  return portNumber(m_set.port, "Error: CurlSetPort failed to convert port value from string to integer: ", m_set.port);
}

int CCurl::CurlSetProxyPort(const char* port) {
  m_set.proxyPort.set(port);
  return portNumber(m_set.port,
                    "Error: CurlSetProxyPort failed to convert port value from string to integer: ", m_set.proxyPort);
}

void CCurl::CurlCreateUsrPwd(transfer::Text* out, const char* user, const char* pwd) {
  const transfer::Text name(user != nullptr ? user : "");
  const transfer::Text secret(pwd != nullptr ? pwd : "");
  out->set(name.present() || secret.present() ? name.str() + ':' + secret.str() : std::string());
}

void CCurl::copySettings(const CCurl& from) {
  m_set = from.m_set;
  m_callback = from.m_callback;
}

void CCurl::CurlSetFromBufPtr(int flag, const char* data, long length) noexcept {
  m_fromBuf = CCurl::flag(flag);
  m_fromBufData = data;
  m_fromBufLength = length;
}

void CCurl::holdResponseFile(bool hold) noexcept {
  m_holdFile = hold;
  if (!hold) m_file.release();
}

void CCurl::CurlCleanUpStrNodes(transfer::TextList* list) noexcept {
  if (list != nullptr) list->clear();
}

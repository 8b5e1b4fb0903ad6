// Fetches the DTD and schemas of documents with the settings of their client.
#include "client/base.h"
#include "xml/limits.h"
#include "xml/url.h"

#include <array>

/// A transfer that reports through the client and stops at a size limit.
class COgcBase::GrammarTransfer final : public CCurl {
public:
  GrammarTransfer(COgcBase& client, std::size_t limit) : m_client(client), m_limit(static_cast<double>(limit)) {}
  [[nodiscard]] bool tooLong() const noexcept { return m_tooLong; }

private:
  int callStatusRoutine(const char* text, xProgressValues* figures) override {
    m_tooLong = m_tooLong || (figures != nullptr && figures->dlNow > m_limit);
    return m_tooLong ? 0 : m_client.callStatusRoutine(text, figures);
  }

  COgcBase& m_client;
  double m_limit;
  bool m_tooLong = false;
};

std::string COgcBase::fetchGrammar(const std::string& url, std::size_t limit) {
  using ogc::xml::Url;
  GrammarTransfer transfer(*this, limit);
  transfer.copySettings(*this);
  transfer.CurlSetPath(nullptr);
  transfer.CurlSetQuery(nullptr);
  std::array<char, ogc::queryLimit + 1> server{};
  if (settings().scheme.present() && settings().host.present()) {
    transfer.CurlBuildUrlRqSimple(server.data(), static_cast<int>(server.size()));
  }
  if (server[0] == '\0' || !Url(url).sameServer(Url(server.data()))) {
    transfer.CurlSetUser(nullptr);
    transfer.CurlSetPasswd(nullptr);
  }
  transfer.CurlSetEncode(0); // the limit counts what arrives
  transfer.CurlSetToBuf(1);
  reportStatus("Sending Http Get Request: ");
  reportStatus(url.c_str());
  try {
    transfer.CurlProcessRequest(url.c_str(), transfer::httpGet);
  } catch (const CCurlException& e) {
    if (transfer.tooLong()) throw ogc::xml::Refusal("(" + url + ") is too long");
    if (transfer.response().statusCode == CURLE_ABORTED_BY_CALLBACK) throw; // by the user
    throw ogc::xml::Refusal("(" + url + ") " + e.ErrMsg());
  }
  return transfer.buffer() != nullptr ? std::string(transfer.buffer(), transfer.bufferLength()) : std::string();
}

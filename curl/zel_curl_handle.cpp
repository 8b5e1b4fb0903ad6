#include "zel_curl_handle.h"

#include "zel_curl_obj.h"

#include <openssl/ssl.h>
#include <utility>

namespace {

// Ends with CurlShutdown, not with the process: OpenSSL takes itself down earlier than static objects.
CURL* g_pHCurl = nullptr;
const CCurl* g_owner = nullptr; // whose request has the handle
bool g_closeWanted = false;
int (*g_interrupted)() = nullptr;

// libcurl closes connections only together with their handle.
void replaceHandle() {
  curl_easy_cleanup(g_pHCurl);
  g_pHCurl = curl_easy_init();
}

} // namespace

transfer::Lease::Lease(const CCurl* owner) {
  if (g_owner != nullptr) throw CCurlException("Error: another request is running. Wait until it has ended.");
  if (CCurl::CurlStartup() == 0) throw CCurlException("Error: the transfer library libcurl could not be started.");
  g_owner = owner;
}

transfer::Lease::~Lease() {
  curl_easy_reset(g_pHCurl);
  g_owner = nullptr;
  if (std::exchange(g_closeWanted, false)) replaceHandle();
}

CURL* transfer::Lease::handle() noexcept { return g_pHCurl; }

bool transfer::Lease::interrupted() { return g_interrupted != nullptr && g_interrupted() != 0; }

int CCurl::CurlStartup() {
  if (g_pHCurl == nullptr) {
    OPENSSL_init_ssl(OPENSSL_INIT_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_LOAD_SSL_STRINGS, nullptr);
    if (curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK) {
      g_pHCurl = curl_easy_init();
      if (g_pHCurl == nullptr) curl_global_cleanup();
    }
  }
  return g_pHCurl != nullptr ? 1 : 0;
}

void CCurl::CurlShutdown() {
  if (g_owner != nullptr)
    throw CCurlException("Error: the transfer library can not be shut down while a request is running. Wait until it "
                         "has ended.");
  if (g_pHCurl == nullptr) return;
  curl_easy_cleanup(g_pHCurl);
  curl_global_cleanup();
  g_pHCurl = nullptr;
}

void CCurl::CurlCloseConnections() {
  if (g_owner != nullptr)
    g_closeWanted = true;
  else if (g_pHCurl != nullptr)
    replaceHandle();
}

int CCurl::transferRunning() noexcept { return g_owner != nullptr ? 1 : 0; }

bool CCurl::isTransferring() const noexcept { return g_owner == this; }

void CCurl::setInterruptFunc(int (*interrupted)()) noexcept { g_interrupted = interrupted; }

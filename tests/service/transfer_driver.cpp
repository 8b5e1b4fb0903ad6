// Runs transfers as its arguments say, one "name=value" after the other, and prints what happens as name, unit
// separator, value, record separator. Settings stay; "request=get" runs a request on "url"; "on=TEXT:ACTION" does
// something once when a status line that contains TEXT arrives.
#include "zel_curl_obj.h"

#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <utility>

namespace {

struct ScriptError {};

struct Driver {
  CCurl curl;
  std::string url, memory;
  std::multimap<std::string, std::string> actions;
  bool cancel = false;
};

Driver* g_driver = nullptr;
int g_interrupt = 0;

void print(const std::string& name, const std::string& value) {
  std::cout << name << '\x1f' << value << '\x1e' << std::flush;
}

void attempt(const std::string& name, const std::function<void()>& action) {
  try {
    action();
    print(name, "ok");
  } catch (const CCurlException& error) {
    print(name, error.ErrMsg());
  } catch (const ScriptError&) {
    print(name, "ScriptError");
  }
}

void printResponse(const CCurl& curl) {
  const transfer::Response& response = curl.response();
  const transfer::Settings& set = curl.settings();
  const std::pair<const char*, const transfer::Text&> texts[] = {
      {"text", response.statusText},
      {"encoding", response.contentEncoding},
      {"server", response.server},
      {"page", response.errorFile},
      {"file", response.file},
      {"names", set.fileHttpGetRsp.present() ? set.fileHttpGetRsp : set.fileHttpPutPostRsp}};
  for (const auto& [name, text] : texts) print(name, text.c_str());
  print("status", std::to_string(response.statusCode));
  print("message", curl.message());
  print("header", response.header.data());
  print("reply", response.lastFtpResponse.data());
  print("buffer", curl.buffer() == nullptr ? "none" : curl.bufferLength() < 65536 ? curl.buffer() : "long");
  print("length", std::to_string(curl.bufferLength()));
  print("capacity", std::to_string(curl.bufferCapacity()));
}

void act(Driver& driver, const std::string& action) {
  if (action == "throw") throw ScriptError{};
  if (action == "fault") throw CCurlException("fault of the routine");
  if (action == "cancel") driver.cancel = true;
  if (action == "interrupt") g_interrupt = 1;
  if (action == "nested") attempt(action, [&] { driver.curl.CurlProcessRequest("x", transfer::httpGet); });
  if (action == "shutdown") attempt(action, [] { CCurl::CurlShutdown(); });
  if (action == "cleanup") attempt(action, [&] { driver.curl.CurlCleanup(); });
  if (action == "close") attempt(action, [] { CCurl::CurlCloseConnections(); });
  if (action == "destroy") attempt(action, [] { CCurl().CurlSetHost("another"); });
}

int onStatus(char*, unsigned long, const char* message, xProgressValues*) {
  Driver& driver = *g_driver;
  print("line", message);
  for (auto action = driver.actions.begin(); action != driver.actions.end();) {
    const auto candidate = action++;
    if (std::string(message).find(candidate->first) == std::string::npos) continue;
    act(driver, driver.actions.extract(candidate).mapped());
  }
  return std::exchange(driver.cancel, false) ? 0 : 1;
}

const std::map<std::string, int> requestTypes{{"get", transfer::httpGet},         {"put", transfer::httpPut},
                                              {"post", transfer::httpPost},       {"delete", transfer::httpDelete},
                                              {"ftpget", transfer::ftpGet},       {"ftpput", transfer::ftpPut},
                                              {"ftpdir", transfer::ftpDirectory}, {"ftpcmd", transfer::ftpCommand}};

const std::map<std::string, void (CCurl::*)(const char*)> texts{{"scheme", &CCurl::CurlSetScheme},
                                                                {"host", &CCurl::CurlSetHost},
                                                                {"path", &CCurl::CurlSetPath},
                                                                {"prefix", &CCurl::CurlSetQueryPrefix},
                                                                {"query", &CCurl::CurlSetQuery},
                                                                {"suffix", &CCurl::CurlSetQuerySuffix},
                                                                {"proxy", &CCurl::CurlSetProxy},
                                                                {"user", &CCurl::CurlSetUser},
                                                                {"password", &CCurl::CurlSetPasswd},
                                                                {"proxyuser", &CCurl::CurlSetProxyUser},
                                                                {"proxypassword", &CCurl::CurlSetProxyPasswd},
                                                                {"cainfo", &CCurl::CurlSetSslCAInfo},
                                                                {"getfile", &CCurl::CurlSetFileNameHttpGetRsp},
                                                                {"putpostfile", &CCurl::CurlSetFileNameHttpPutPostRsp},
                                                                {"ftpgetfile", &CCurl::CurlSetFileNameFtpGetRsp},
                                                                {"ftpfile", &CCurl::CurlSetFileNameFtpRsp},
                                                                {"send", &CCurl::CurlSetFileToSend},
                                                                {"header", &CCurl::CurlAddHeader}};

const std::map<std::string, void (CCurl::*)(int)> numbers{{"authent", &CCurl::CurlSetAuthent},
                                                          {"proxyauthent", &CCurl::CurlSetProxyAuthent},
                                                          {"encode", &CCurl::CurlSetEncode},
                                                          {"dirlist", &CCurl::CurlSetFtpDirListType},
                                                          {"ascii", &CCurl::CurlSetFtpAscii},
                                                          {"explicit", &CCurl::CurlSetFtpExplicitSSL},
                                                          {"active", &CCurl::CurlSetFtpConnMode},
                                                          {"verifypeer", &CCurl::CurlSetSslVerifyPeer},
                                                          {"verifyhost", &CCurl::CurlSetSslVerifyHost},
                                                          {"sslversion", &CCurl::CurlSetSslVersion},
                                                          {"extvers", &CCurl::CurlSetExtVers},
                                                          {"connectto", &CCurl::CurlSetConnectTo},
                                                          {"timeout", &CCurl::CurlSetRxTxTo},
                                                          {"verbose", &CCurl::CurlSetVerbose},
                                                          {"tobuf", &CCurl::CurlSetToBuf}};

void command(Driver& driver, const std::string& name, const std::string& value) {
  if (const auto found = texts.find(name); found != texts.end()) {
    (driver.curl.*found->second)(value.c_str());
  } else if (const auto number = numbers.find(name); number != numbers.end()) {
    (driver.curl.*number->second)(std::atoi(value.c_str()));
  } else if (name == "url") {
    driver.url = value;
  } else if (name == "on") {
    driver.actions.emplace(value.substr(0, value.rfind(':')), value.substr(value.rfind(':') + 1));
  } else if (name == "sendmemory") {
    driver.memory = value;
    driver.curl.CurlSetFromBufPtr(1, driver.memory.c_str(), static_cast<long>(driver.memory.size()));
  } else if (name == "proxyport") {
    driver.curl.CurlSetProxyPort(value.c_str());
  } else if (name == "closeconnections") {
    CCurl::CurlCloseConnections();
  } else if (name == "request") {
    attempt("result", [&] {
      std::string url = driver.url;
      if (url.empty()) {
        url.resize(4096);
        url.resize(driver.curl.CurlBuildUrlRq(url.data(), 4096));
      }
      driver.curl.CurlProcessRequest(url.c_str(), requestTypes.at(value));
    });
    printResponse(driver.curl);
  } else {
    std::cerr << "unknown argument: " << name << '\n';
  }
}

} // namespace

int main(int argc, char** argv) {
  Driver driver;
  g_driver = &driver;
  driver.curl.CurlSetCallbackFunc(onStatus);
  driver.curl.CurlSetCallback("on_status");
  CCurl::setInterruptFunc([] { return std::exchange(g_interrupt, 0); });
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const auto equals = argument.find('=');
    command(driver, argument.substr(0, equals), argument.substr(equals + 1));
  }
}

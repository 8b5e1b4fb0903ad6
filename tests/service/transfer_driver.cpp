// Runs transfers as its arguments say, one "name=value" after the other, and prints what happens as JSON lines.
// Settings stay; "request=get" runs a request on "url", or on the URL composed of the parts when that is empty;
// "on=TEXT:ACTION" does something once when a status line that contains TEXT arrives.
#include "zel_curl_obj.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

struct ScriptError {};

struct Driver {
  CCurl curl;
  std::string url;
  std::string memory;
  std::multimap<std::string, std::string> actions;
  bool quiet = false;
  bool cancel = false;
};

Driver* g_driver = nullptr;
int g_interrupt = 0;

using Fields = std::vector<std::pair<const char*, std::string>>;

std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (const unsigned char c : text) {
    char escaped[8];
    const bool plain = c >= ' ' && c < 127 && c != '"' && c != '\\';
    std::snprintf(escaped, sizeof escaped, plain ? "%c" : "\\u%04x", c);
    out += escaped;
  }
  return out + '"';
}

void print(const Fields& fields) {
  std::string line;
  for (const auto& [name, value] : fields) line += (line.empty() ? "{" : ", ") + quoted(name) + ": " + quoted(value);
  std::puts((line + '}').c_str());
  std::fflush(stdout);
}

void run(Driver& driver, int type, const char* outcome = "result") {
  try {
    std::string url = driver.url;
    if (url.empty()) {
      url.resize(4096);
      url.resize(driver.curl.CurlBuildUrlRq(url.data(), 4096));
    }
    driver.curl.CurlProcessRequest(url.c_str(), type);
    print({{outcome, "ok"}});
  } catch (const CCurlException& error) {
    print({{outcome, error.ErrMsg()}});
  } catch (const ScriptError&) {
    print({{outcome, "ScriptError"}});
  }
}

void printResponse(const CCurl& curl) {
  const transfer::Response& rsp = curl.Response();
  const transfer::Settings& set = curl.Settings();
  print({{"status", std::to_string(rsp.statusCode)},
         {"text", rsp.statusText.c_str()},
         {"message", curl.Message()},
         {"header", rsp.header.data()},
         {"headerLength", std::to_string(rsp.headerLength)},
         {"contentLength", std::to_string(rsp.contentLength)},
         {"contentType", rsp.contentTypeText.c_str()},
         {"parsedType", rsp.parsedContentType.c_str()},
         {"contentEncoding", rsp.contentEncoding.c_str()},
         {"chunked", std::to_string(rsp.chunked)},
         {"server", rsp.server.c_str()},
         {"errorFile", rsp.errorFile.c_str()},
         {"ftpResponse", rsp.lastFtpResponse.data()},
         {"file", rsp.file.c_str()},
         {"getFile", set.fileHttpGetRsp.c_str()},
         {"putPostFile", set.fileHttpPutPostRsp.c_str()},
         {"ftpGetFile", set.fileFtpGetRsp.c_str()},
         {"ftpFile", set.fileFtpRsp.c_str()},
         {"descriptors", std::to_string(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}))},
         {"hasBuffer", curl.Buffer() != nullptr ? "yes" : "no"},
         {"buffer", curl.BufferLength() < 65536 && curl.Buffer() != nullptr ? curl.Buffer() : ""},
         {"bufferLength", std::to_string(curl.BufferLength())},
         {"bufferCapacity", std::to_string(curl.BufferCapacity())},
         {"running", std::to_string(CCurl::CurlTransferRunning())}});
}

void attempt(const std::string& name, const std::function<void()>& action) {
  try {
    action();
    print({{name.c_str(), "ok"}});
  } catch (const CCurlException& error) {
    print({{name.c_str(), error.ErrMsg()}});
  }
}

void act(Driver& driver, const std::string& action) {
  if (action == "throw") throw ScriptError{};
  if (action == "fault") throw CCurlException("fault of the routine");
  if (action == "cancel") driver.cancel = true;
  if (action == "interrupt") g_interrupt = 1;
  if (action == "request") run(driver, transfer::httpGet, "nested");
  if (action == "shutdown") attempt(action, [] { CCurl::CurlShutdown(); });
  if (action == "cleanup") attempt(action, [&] { driver.curl.CurlCleanup(); });
  if (action == "close") attempt(action, [] { CCurl::CurlCloseConnections(); });
  if (action == "destroy") attempt(action, [] { CCurl().CurlSetHost("another"); });
  if (action == "settings") {
    for (const auto set : {&CCurl::CurlSetFileNameHttpGetRsp, &CCurl::CurlSetFileToSend, &CCurl::CurlSetUser,
                           &CCurl::CurlSetProxy, &CCurl::CurlSetSslCAInfo, &CCurl::CurlSetCallback})
      (driver.curl.*set)("/changed/meanwhile");
    driver.curl.CurlSetFromBufPtr(1, "short", 5);
    driver.curl.CurlSetToBuf(1);
  }
}

int onStatus(char*, unsigned long, const char* message, xProgressValues* progress) {
  Driver& driver = *g_driver;
  if (!driver.quiet) {
    Fields fields{{"line", message}};
    if (progress != nullptr)
      fields.emplace_back("figures", transfer::formatLimited(200, "%d %.0f %.0f %.0f %.0f",
                                                             static_cast<int>(progress->isValid), progress->dlTotal,
                                                             progress->dlNow, progress->ulTotal, progress->ulNow));
    print(fields);
  }
  for (auto action = driver.actions.begin(); action != driver.actions.end();) {
    const auto candidate = action++;
    if (std::string(message).find(candidate->first) == std::string::npos) continue;
    act(driver, driver.actions.extract(candidate).mapped());
  }
  return std::exchange(driver.cancel, false) ? 0 : 1;
}

using Command = std::function<void(Driver&, const char*)>;

Command text(void (CCurl::*set)(const char*)) {
  return [=](Driver& driver, const char* value) { (driver.curl.*set)(value); };
}
template <class Setter>
Command number(Setter set) {
  return [=](Driver& driver, const char* value) { (driver.curl.*set)(std::atoi(value)); };
}

const std::map<std::string, int> requestTypes{
    {"get", transfer::httpGet},         {"put", transfer::httpPut},       {"post", transfer::httpPost},
    {"delete", transfer::httpDelete},   {"ftpget", transfer::ftpGet},     {"ftpput", transfer::ftpPut},
    {"ftpdir", transfer::ftpDirectory}, {"ftpcmd", transfer::ftpCommand}, {"unknown", 0x45}};

const std::map<std::string, Command> commands{
    {"scheme", text(&CCurl::CurlSetScheme)},
    {"host", text(&CCurl::CurlSetHost)},
    {"port", [](Driver& d, const char* v) { d.curl.CurlSetPort(v); }},
    {"path", text(&CCurl::CurlSetPath)},
    {"prefix", text(&CCurl::CurlSetQueryPrefix)},
    {"query", text(&CCurl::CurlSetQuery)},
    {"suffix", text(&CCurl::CurlSetQuerySuffix)},
    {"proxy", text(&CCurl::CurlSetProxy)},
    {"proxyport", [](Driver& d, const char* v) { d.curl.CurlSetProxyPort(v); }},
    {"user", text(&CCurl::CurlSetUser)},
    {"password", text(&CCurl::CurlSetPasswd)},
    {"proxyuser", text(&CCurl::CurlSetProxyUser)},
    {"proxypassword", text(&CCurl::CurlSetProxyPasswd)},
    {"authent", number(&CCurl::CurlSetAuthent)},
    {"proxyauthent", number(&CCurl::CurlSetProxyAuthent)},
    {"encode", number(&CCurl::CurlSetEncode)},
    {"dirlist", number(&CCurl::CurlSetFtpDirListType)},
    {"ascii", number(&CCurl::CurlSetFtpAscii)},
    {"explicit", number(&CCurl::CurlSetFtpExplicitSSL)},
    {"active", number(&CCurl::CurlSetFtpConnMode)},
    {"cainfo", text(&CCurl::CurlSetSslCAInfo)},
    {"verifypeer", number(&CCurl::CurlSetSslVerifyPeer)},
    {"verifyhost", number(&CCurl::CurlSetSslVerifyHost)},
    {"sslversion", number(&CCurl::CurlSetSslVersion)},
    {"extvers", number(&CCurl::CurlSetExtVers)},
    {"connectto", number(&CCurl::CurlSetConnectTo)},
    {"timeout", number(&CCurl::CurlSetRxTxTo)},
    {"verbose", number(&CCurl::CurlSetVerbose)},
    {"tobuf", number(&CCurl::CurlSetToBuf)},
    {"getfile", text(&CCurl::CurlSetFileNameHttpGetRsp)},
    {"putpostfile", text(&CCurl::CurlSetFileNameHttpPutPostRsp)},
    {"ftpgetfile", text(&CCurl::CurlSetFileNameFtpGetRsp)},
    {"ftpfile", text(&CCurl::CurlSetFileNameFtpRsp)},
    {"send", text(&CCurl::CurlSetFileToSend)},
    {"header", text(&CCurl::CurlAddHeader)},
    {"callback", text(&CCurl::CurlSetCallback)},
    {"sendmemory",
     [](Driver& d, const char* v) {
       d.memory = v;
       d.curl.CurlSetFromBufPtr(1, d.memory.c_str(), static_cast<long>(d.memory.size()));
     }},
    {"url", [](Driver& d, const char* v) { d.url = v; }},
    {"quiet", [](Driver& d, const char* v) { d.quiet = std::atoi(v) != 0; }},
    {"on",
     [](Driver& d, const char* v) {
       const std::string rule = v;
       const auto colon = rule.rfind(':');
       d.actions.emplace(rule.substr(0, colon), rule.substr(colon + 1));
     }},
    {"closeconnections", [](Driver&, const char*) { CCurl::CurlCloseConnections(); }},
    {"request", [](Driver& d, const char* v) {
       run(d, requestTypes.at(v));
       printResponse(d.curl);
     }}};

} // namespace

int main(int argc, char** argv) {
  Driver driver;
  g_driver = &driver;
  driver.curl.CurlSetCallbackFunc(onStatus);
  driver.curl.CurlSetCallback("on_status");
  CCurl::CurlSetInterruptFunc([] { return std::exchange(g_interrupt, 0); });
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const auto equals = argument.find('=');
    const auto command = commands.find(argument.substr(0, equals));
    if (equals == argument.npos || command == commands.end()) {
      std::fprintf(stderr, "unknown argument: %s\n", argv[i]);
      return 2;
    }
    command->second(driver, argv[i] + equals + 1);
  }
  return 0;
}

// What the fuzz targets do with an input; a program is built for each, which FUZZ_TARGET names.
#include "host/heap.h"
#include "host/messages.h"
#include "host/objects.h"
#include "host/routines.h"
#include "host/session.h"
#include "host/strings.h"
#include "host/variables.h"
#include "zel_ogcwms_obj.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>

namespace fuzz {

/// Ends the run with a finding unless `holds`.
void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

/// Runs what may refuse the input. \return whether it did not
template <typename Action>
bool accepts(Action&& action) {
  try {
    action();
    return true;
  } catch (const CCurlException& refusal) {
    check(std::strlen(refusal.ErrMsg()) <= 1023, "a message has at most 1023 characters");
    return false;
  }
}

/// A transfer object that believes in a running request.
struct Transfer : CCurl {
  explicit Transfer(int type) {
    accepts([&] { CurlProcessRequest("", type); });
    CurlSetToBuf(1);
    CurlSetFtpExplicitSSL(1);
    CurlSetCallback("status");
    CurlSetCallbackFunc([](char*, unsigned long, const char* text, xProgressValues*) {
      check(std::strlen(text) <= 1023, "a status line has at most 1023 characters");
      return 1;
    });
  }
  void checkLimits() const {
    const transfer::Response& rsp = response();
    check(rsp.header.back() == '\0' && rsp.lastFtpResponse.back() == '\0', "header and last FTP reply have an end");
    check(rsp.parsedContentType.str().size() <= 15, "a content type has at most 15 characters");
    for (const transfer::Text* text : {&rsp.statusText, &rsp.contentLengthText, &rsp.contentTypeText, &rsp.server,
                                       &rsp.date, &rsp.lastModified, &rsp.transferEncoding, &rsp.contentEncoding})
      check(text->str().size() <= 255, "a header value has at most 255 characters");
    check(message().size() <= 1023, "a message has at most 1023 characters");
  }
};

/// Response headers, line by line as libcurl hands them over, with the body after them; the trace of the same bytes.
void fuzz_header(const std::string& text) {
  static Transfer transfers[] = {Transfer(transfer::httpGet), Transfer(transfer::httpDelete),
                                 Transfer(transfer::ftpGet)};
  for (Transfer& curl : transfers) {
    curl.CurlResponseReset();
    std::string lines = text + '\n'; // no line waits for its end in the next input
    for (std::size_t at = 0, end = 0; at < lines.size(); at = end) {
      end = std::min(lines.find('\n', at), lines.size() - 1) + 1;
      CCurl::CurlHttpWriteHeaderCallback(lines.data() + at, 1, end - at, &curl);
      std::string traced = lines.substr(at, end - at);
      CCurl::CurlHttpDebugCallback(nullptr, CURLINFO_HEADER_OUT, traced.data(), traced.size(), &curl);
    }
    CCurl::CurlWriteDataCallback(lines.data(), 1, lines.size(), &curl);
    curl.checkLimits();
    std::array<char, 512> message{};
    curl.CurlHttpGetHtmlErrorMsg(message.data(), message.size());
    curl.CurlResponseReset();
    curl.CurlHttpParseRspHdr(text.c_str()); // a text that ends where it ends
    curl.CurlHttpExamineHeaderMsg();
    curl.checkLimits();
  }
  std::array<char, 64> error{};
  CCurl::CurlHttpParseError(text.c_str(), error.data(), error.size());
  check(error.back() == '\0', "an error text has an end");
}

/// Content types as the services read them, and the file names that they make.
void fuzz_content_type(const std::string& text) {
  const std::string header = "HTTP/1.1 200 OK\r\nContent-Type: " + text + "\r\n\r\n";
  static CCurl plain;
  static COgcWms service;
  for (CCurl* curl : {&plain, static_cast<CCurl*>(&service)}) {
    curl->CurlResponseReset();
    curl->CurlHttpParseRspHdr(header.c_str());
    check(curl->response().parsedContentType.str().size() <= 15, "a content type has at most 15 characters");
    const std::filesystem::path directory = "/nowhere/at/all";
    for (const char* name : {"map", "map.", "map.png"}) {
      transfer::Text file((directory / name).string());
      curl->CurlBuildFileName(&file);
      check(std::filesystem::path(file.str()).parent_path() == directory, "a file stays in its directory");
    }
  }
}

void checkComposed(CCurl& curl, int (CCurl::*build)(char*, int)) {
  std::vector<char> url(4096);
  std::vector<char> small(16);
  int length = 0;
  if (!accepts([&] { length = (curl.*build)(url.data(), static_cast<int>(url.size())); })) return;
  check((curl.*build)(small.data(), static_cast<int>(small.size())) == length, "the length does not depend on room");
  for (const auto& text : {url, small}) {
    const std::size_t said = static_cast<std::size_t>(length);
    const std::size_t size = std::strlen(text.data());
    check(size == said || (said >= text.size() && size + 4 >= text.size()), "a URL is as long as was said, or cut");
    check(std::strncmp(text.data(), url.data(), size) == 0, "a cut URL is the start of the whole");
  }
}

/// URLs taken apart, put together again, escaped and encoded.
void fuzz_url(const std::string& text) {
  for (const auto split : {&CCurl::CurlParseURL, &CCurl::CurlParseURLSimple}) {
    static CCurl curl;
    curl.CurlCleanup();
    accepts([&] { (curl.*split)(text.c_str()); });
    check(curl.settings().host.str().size() <= 255, "a host has at most 255 characters");
    checkComposed(curl, &CCurl::CurlBuildUrlRqSimple);
    for (const auto set : {&CCurl::CurlSetQueryPrefix, &CCurl::CurlSetQuery, &CCurl::CurlSetQuerySuffix})
      (curl.*set)(text.c_str());
    checkComposed(curl, &CCurl::CurlBuildUrlRq);
  }
  const std::string plain = text.c_str();
  std::vector<char> escaped(3 * plain.size() + 2);
  std::vector<char> decoded(plain.size() + 2);
  plain.copy(escaped.data(), plain.size());
  if (accepts([&] { CCurl::CurlEscapeSpaces(escaped.data(), 3 * plain.size() + 1); }))
    check(std::strchr(escaped.data(), ' ') == nullptr, "no space stays");
  if (CCurl::CurlUrlEncode(plain.c_str(), escaped.data(), escaped.size()) != 0) {
    check(CCurl::CurlUrlDecode(escaped.data(), decoded.data(), decoded.size()) == 1, "what was encoded is decoded");
    check(decoded.data() == plain, "encoding loses nothing");
    CCurl::CurlUrlDecode(plain.c_str(), decoded.data(), decoded.size() / 2);
  }
  std::string name = text;
  CCurl::CurlRemoveTrailingLfCrSpacesCommas(name.data(), static_cast<int>(name.size()));
  CCurl::CurlReplaceInvalidFilenameChars(name.data());
  check(CCurl::CurlCountLeadingSpaces(name.c_str()) <= static_cast<int>(name.size()), "spaces are within the text");
}

/// Service URLs, split around the control parameters and composed into requests.
void fuzz_base_url(const std::string& text) {
  static COgcWms client;
  if (!accepts([&] { client.OgcBaseParseURL(text.c_str()); })) return;
  const transfer::Settings& set = client.settings();
  const std::size_t prefix = set.queryPrefix.str().size();
  const std::size_t suffix = set.querySuffix.str().size();
  check(set.host.str().size() <= 255 && prefix <= 1023 && suffix <= 1023, "host, prefix and suffix have limits");
  check(prefix + suffix <= std::strlen(std::strchr(text.c_str(), '?') + 1), "nothing is added to the query");
  client.CurlSetQuery("Service=WMS");
  checkComposed(client, &CCurl::CurlBuildUrlRq);
}

/// Where nothing is shown and every status routine says yes.
class Quiet final : public zel::host::FrontEnd {
public:
  void callScript(const std::string&, int, ZEL_Variable** argv, ZEL_Variable* result) override {
    check(argv[0]->value.str.len <= 4095, "a status line is not longer than a query");
    constexpr std::int16_t goOn = 1;
    if (result != nullptr) ZEL_StoreScalar(result, ZEL_TYP_INT, &goOn);
  }

private:
  zel::host::InfoRedirect m_info{[](const std::string&) {}};
};

/// A directory in memory that goes with the process.
struct Directory {
  Directory() { check(mkdtemp(path.data()) != nullptr, "there is a directory"); }
  ~Directory() { std::filesystem::remove_all(path); }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  std::string path = "/dev/shm/fuzzXXXXXX";
};

/// An object of one of the module's classes in a host, and the file that it reads documents from, as a script would.
/// Findings are checked on the way: temporaries that stay, messages longer than they may be.
class Object {
public:
  using Keywords = std::vector<std::pair<const char*, std::string>>; ///< an empty text asks for an output

  explicit Object(const char* className) {
    static Quiet frontEnd;
    static const Directory directory;
    zel::host::setFrontEnd(&frontEnd);
    ::setenv("ZEL_USER_DIR", directory.path.c_str(), 1);
    check(ZEL_Load() != 0, "the module is loaded");
    m_file = directory.path + "/document.xml";
    m_object->type = ZEL_TYP_OBJREF;
    m_object->value.hvid = zel::host::newObject(zel::host::findClass(className))->hvid;
    // The copy that is kept is the document itself; of grammars on servers nothing is ever fetched.
    const auto made = call("INIT", {{"CALLBACK_FUNCTION", "status"},
                                    {"PROXY_PORT", "1"},
                                    {"PROXY_HOSTNAME", "127.0.0.1"},
                                    {"CAPABILITIES_FILENAME", directory.path + "/document"}});
    check(made == 1, "the object is initialised");
  }
  ~Object() {
    call("CLEANUP");
    ZEL_HeapVarDelete(ZEL_HeapVarHashFind(m_object->value.hvid));
  }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  /// Calls a method that reads a document: as it is, and first validated when it brings a grammar.
  /// \return its result as an integer, nothing when it raised an error
  std::optional<std::int64_t> read(const std::string& document, const char* method, Keywords keywords = {}) {
    std::ofstream(m_file, std::ios::binary) << document;
    keywords.emplace_back("FROM_FILE", m_file);
    Keywords validated = keywords;
    if (document.find("DOCTYPE") != document.npos) validated.emplace_back("VALIDATION_MODE", "1");
    if (document.find("chemaLocation") != document.npos) validated.emplace_back("SCHEMA_CHECKING", "2");
    if (validated.size() > keywords.size()) call(method, validated);
    return call(method, keywords);
  }

  /// Calls a method. \return as for read()
  std::optional<std::int64_t> call(const char* method, const Keywords& given = {}) {
    const std::int64_t temporaries = ZEL_TempCount();
    std::optional<std::int64_t> answer;
    m_count = 0;
    try {
      std::deque<zel::host::Variable> variables;
      std::vector<ZEL_Keyword> keywords;
      for (const auto& [name, text] : given) {
        ZEL_Variable* value = variables.emplace_back().get();
        keywords.push_back({name, value, text.empty()});
        if (!text.empty()) ZEL_VarCopy(zel::host::makeTempString(text), value);
      }
      ZEL_Variable* argv[] = {m_object.get()};
      const auto* routine = zel::host::findMethod(ZEL_HeapVarHashFind(m_object->value.hvid)->objdef, method);
      const zel::Temp result =
          zel::host::callRoutine(*routine, 1, argv, {static_cast<int>(keywords.size()), keywords.data()});
      if (result) answer = result->type == ZEL_TYP_INT ? result->value.i : result->n;
      for (const ZEL_Keyword& keyword : keywords)
        if (keyword.output) m_count = zel::host::scalarInteger(keyword.value);
    } catch (const ZEL_Unwind&) {
      check(zel::host::takeError().text.size() <= 1200, "an error is a prefix and at most 1023 characters");
    }
    check(ZEL_TempCount() == temporaries && zel::host::leakedTemporaries() == 0, "no temporary stays");
    return answer;
  }
  /// What the last call gave for COUNT.
  [[nodiscard]] std::int64_t count() const noexcept { return m_count; }

private:
  zel::host::Variable m_object;
  std::string m_file;
  std::int64_t m_count = 0;
};

/// Capabilities: parsed, with and without inheritance, all of it turned into structures.
void readCapabilities(Object& object, const std::string& text, const char* results, const Object::Keywords& keywords) {
  const auto read = object.read(text, "GETCAPABILITIES", keywords);
  object.call("GETSERVICESECTION");
  const auto found = object.call(results, {{"COUNT", ""}});
  check(!read || *read == static_cast<std::int16_t>(object.count()), "everything is returned");
  check(found.has_value(), "what was read can be returned");
}

void fuzz_wms(const std::string& text) {
  static Object wms("ZELNETOGCWMS");
  for (const char* disable : {"1", "0"}) readCapabilities(wms, text, "GETLAYERS", {{"DISABLE_INHERITANCE", disable}});
}

void fuzz_wcs_capabilities(const std::string& text) {
  static Object wcs("ZELNETOGCWCS");
  readCapabilities(wcs, text, "GETCOVERAGEOFFERINGBRIEFS", {});
}

/// Descriptions of coverages: parsed, each offering turned into a structure.
void fuzz_wcs_describe(const std::string& text) {
  static Object wcs("ZELNETOGCWCS");
  constexpr std::int64_t most = 20; // each costs a walk along the list
  wcs.read(text, "DESCRIBECOVERAGE", {{"COUNT", ""}});
  for (std::int64_t i = 0, last = std::min(wcs.count(), most); i < last; ++i)
    check(wcs.call("GETCOVERAGEOFFERING", {{"INDEX", std::to_string(i)}}) == 1, "every offering is returned");
}

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
  return 0;
}

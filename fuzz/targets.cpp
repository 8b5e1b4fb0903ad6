// What the fuzz targets do with an input; a program is built for each, which FUZZ_TARGET names.
#include "frontend/interpreter.h"
#include "frontend/run.h"
#include "host/messages.h"
#include "zel_ogcwms_obj.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

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

/// A client that believes in a running request.
struct Transfer : COgcBase {
  explicit Transfer(int type) : COgcBase("1.1.1") {
    accepts([&] { CurlProcessRequest("", type); });
    CurlSetToBuf(1);
    CurlSetFtpExplicitSSL(1);
    CurlSetCallback("status");
    CurlSetCallbackFunc([](char*, unsigned long, const char* text, xProgressValues*) {
      check(std::strlen(text) <= 1023, "a status line has at most 1023 characters");
      return 1;
    });
  }
  void checkLimits() {
    const transfer::Response& rsp = response();
    check(rsp.header.back() == '\0' && rsp.lastFtpResponse.back() == '\0', "header and last FTP reply have an end");
    check(rsp.parsedContentType.str().size() <= 15, "a content type has at most 15 characters");
    for (const transfer::Text* text : {&rsp.statusText, &rsp.contentLengthText, &rsp.contentTypeText, &rsp.server,
                                       &rsp.date, &rsp.lastModified, &rsp.transferEncoding, &rsp.contentEncoding})
      check(text->str().size() <= 255, "a header value has at most 255 characters");
    check(message().size() <= 1023, "a message has at most 1023 characters");
    const std::filesystem::path directory = "/nowhere/at/all";
    for (const char* name : {"map", "map.", "map.png"}) {
      transfer::Text file((directory / name).string());
      CurlBuildFileName(&file);
      check(std::filesystem::path(file.str()).parent_path() == directory, "a file stays in its directory");
    }
  }
};

/// Response headers, line by line as libcurl hands them over, with the body after them; the trace of the same bytes,
/// and the names of files that a content type makes.
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

/// What a script does with a document. A finding is an error of it: temporaries that stay, messages longer than they
/// may be, what was read and is not returned.
constexpr const char* script = R"lua(
local place = os.getenv "ZEL_USER_DIR" .. "/document"
local told = 0

-- The copy that is kept is the document itself; of grammars on servers nothing is ever fetched.
local function new(class)
  return assert(zel.new(class, {CAPABILITIES_FILENAME = place, PROXY_HOSTNAME = "127.0.0.1", PROXY_PORT = 1,
                                CALLBACK_FUNCTION = function(text) told = math.max(told, #text) end}))
end
local wms, wcs = new "ZELnetOGCWMS", new "ZELnetOGCWCS"

-- Calls a method, which may refuse; then the result is false.
local function call(o, method, keywords)
  local ok, result, out = pcall(o[method], o, keywords)
  local counts = zel.counts()
  assert(counts.temporaries == 0 and counts.leaked == 0, "no temporary stays")
  assert(told <= 4095, "a status line is not longer than a query")
  assert(ok or #result <= 1200, "an error is a prefix and at most 1023 characters")
  return ok and result, out
end

-- Calls a method that reads a document: as it is, and first validated when it brings a grammar.
local function read(o, method, text, keywords)
  keywords.FROM_FILE = place .. ".xml"
  io.open(keywords.FROM_FILE, "wb"):write(text):close()
  local dtd, schema = text:find("DOCTYPE", 1, true), text:find("chemaLocation", 1, true)
  if dtd or schema then
    keywords.VALIDATION_MODE, keywords.SCHEMA_CHECKING = dtd and 1, schema and 2
    call(o, method, keywords)
    keywords.VALIDATION_MODE, keywords.SCHEMA_CHECKING = nil, nil
  end
  return call(o, method, keywords)
end

-- Capabilities, all of them turned into structures.
local function capabilities(o, text, results, disable)
  local count = read(o, "GetCapabilities", text, {DISABLE_INHERITANCE = disable})
  assert(call(o, "GetServiceSection", {}), "the service section is returned")
  local found, out = call(o, results, {"COUNT"})
  local returned = found == 0 and 0 or #found
  assert(returned == out.COUNT and (not count or returned == count), "everything that was read is returned")
end

function fuzz_wms(text)
  for _, disable in ipairs{1, 0} do capabilities(wms, text, "GetLayers", disable) end
end

function fuzz_wcs_capabilities(text) capabilities(wcs, text, "GetCoverageOfferingBriefs") end

function fuzz_wcs_describe(text)
  local described, out = read(wcs, "DescribeCoverage", text, {"COUNT"})
  for i = 0, math.min(described and out.COUNT or 0, 20) - 1 do -- each costs a walk along the list
    assert(#call(wcs, "GetCoverageOffering", {INDEX = i}) == 1, "every offering is returned")
  end
end
)lua";

/// A directory in memory that goes with the process.
struct Directory {
  Directory() {
    check(mkdtemp(path.data()) != nullptr, "there is a directory");
    ::setenv("ZEL_USER_DIR", path.c_str(), 1);
  }
  ~Directory() { std::filesystem::remove_all(path); }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  std::string path = "/dev/shm/fuzzXXXXXX";
};

/// The script, loaded; its informational messages are not shown.
struct Runner {
  Runner() {
    check(ZEL_Load() != 0 && zel::lua::runText(interpreter.state(), script, "=script"), "the script is loaded");
  }

  Directory directory;
  zel::host::InfoRedirect quiet{[](const std::string&) {}};
  zel::lua::Interpreter interpreter;
};

/// Hands an input to a function of the script.
void runScript(const char* function, const std::string& text) {
  static const Runner runner;
  lua_State* const L = runner.interpreter.state();
  lua_getglobal(L, function);
  lua_pushlstring(L, text.data(), text.size());
  const bool well = lua_pcall(L, 1, 0, 0) == LUA_OK;
  check(well, well ? "" : lua_tostring(L, -1));
}

void fuzz_wms(const std::string& text) { runScript("fuzz_wms", text); }
void fuzz_wcs_capabilities(const std::string& text) { runScript("fuzz_wcs_capabilities", text); }
void fuzz_wcs_describe(const std::string& text) { runScript("fuzz_wcs_describe", text); }

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
  return 0;
}

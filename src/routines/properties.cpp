#include "routines/properties.h"

#include "routines/binding.h"
#include "routines/keywords.h"
#include "routines/user_directory.h"
#include "zel_ogcwcs_obj.h"
#include "zel_ogcwms_obj.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <type_traits>

using namespace ogc;

namespace {

/// The class that a member belongs to.
template <typename Class, typename Member>
std::type_identity<Class> classOf(Member Class::*);

/// \name Setters: from the caller's variable to the client
/// @{
template <auto Setter, typename Value>
void apply(COgcBase& client, Value value) {
  using Class = typename decltype(classOf(Setter))::type;
  (static_cast<Class&>(client).*Setter)(value);
}

/// A text without the leading spaces that the host pads converted numbers with, or without any.
const char* unpadded(const Converted& value, const ZEL_STRING& s, bool skipsSpaces) {
  const char* text = cString(s);
  return skipsSpaces || value.converted() ? text + CCurl::CurlCountLeadingSpaces(text) : text;
}

template <auto Setter, bool skipsSpaces = false>
void setText(COgcBase& client, ZEL_Variable* v) {
  requireScalar(v);
  const Converted text(v, ZEL_TYP_STRING);
  apply<Setter>(client, unpadded(text, text->value.str, skipsSpaces));
}
template <auto Setter>
constexpr auto setDigits = setText<Setter, true>;

template <auto Setter>
void setNumber(COgcBase& client, ZEL_Variable* v) {
  apply<Setter>(client, static_cast<int>(fixOf(v)));
}

void setCallbackFunction(COgcBase& client, ZEL_Variable* v) { client.CurlSetCallback(textOf(v).c_str()); }

void setCallbackData(COgcBase& client, ZEL_Variable* v) {
  releaseCallbackData(client);
  if (v->type != ZEL_TYP_UNDEF) client.CurlSetCallbackData(ZEL_HeapVarNew(v)->hvid);
}

void setHeaders(COgcBase& client, ZEL_Variable* v) {
  const Converted lines(v, ZEL_TYP_STRING);
  const auto [first, n] = lines.texts();
  if (*cString(*first) == '\0') {
    CCurl::CurlCleanUpStrNodes(&client.headerList());
    return;
  }
  for (const ZEL_STRING* line = first; line != first + n; ++line) client.CurlAddHeader(unpadded(lines, *line, false));
}
/// @}

/// \name Getters: from the client to the caller's variable
/// @{

/// A member of the client's settings or response, or what a member function of the client returns.
template <auto Member>
decltype(auto) read(const COgcBase& client) {
  using Class = typename decltype(classOf(Member))::type;
  if constexpr (std::is_member_function_pointer_v<decltype(Member)>)
    return (static_cast<const Class&>(client).*Member)();
  else if constexpr (std::is_base_of_v<Class, transfer::Settings>)
    return (client.settings().*Member);
  else
    return (client.response().*Member);
}

const char* cString(const transfer::Text& text) noexcept { return text.c_str(); }
const char* cString(const char* text) noexcept { return text; }
template <std::size_t Size>
const char* cString(const std::array<char, Size>& text) noexcept {
  return text.data();
}

template <auto Member>
void getText(COgcBase& client, ZEL_Variable* out) {
  ZEL_VarCopy(ZEL_StrToSTRING(cString(read<Member>(client))), out);
}

template <auto Member>
void getNumber(COgcBase& client, ZEL_Variable* out) {
  const std::int32_t number = read<Member>(client);
  ZEL_StoreScalar(out, ZEL_TYP_LONG, &number);
}

ZEL_HeapVar* callbackData(const COgcBase& client) noexcept {
  return ZEL_HeapVarHashFind(static_cast<ZEL_HVID>(client.settings().callbackData));
}

void getCallbackData(COgcBase& client, ZEL_Variable* out) {
  constexpr std::int16_t none = 0;
  if (client.settings().callbackData == 0)
    ZEL_StoreScalar(out, ZEL_TYP_INT, &none);
  else if (ZEL_HeapVar* hv = callbackData(client))
    ZEL_VarCopy(&hv->var, out);
}

void getHeaders(COgcBase& client, ZEL_Variable* out) {
  const xNodeStr_t* line = client.headerList().head();
  const int n = CCurl::CurlGetStrNodeCount(line);
  if (n == 0) {
    ZEL_VarCopy(ZEL_StrToSTRING(""), out);
    return;
  }
  char* data = nullptr;
  zel::Temp lines(ZEL_MakeTempVector(ZEL_TYP_STRING, n, &data));
  for (auto* text = reinterpret_cast<ZEL_STRING*>(data); line != nullptr; line = line->next)
    ZEL_StrStore(text++, line->str);
  ZEL_VarCopy(lines.release(), out);
}
/// @}

/// Marks what a property cannot do; sanitizer builds cannot compare functions with null at compile time.
void unavailable(COgcBase&, ZEL_Variable*) {}

/// One property.
struct Property {
  const char* name;
  void (*set)(COgcBase&, ZEL_Variable*);
  void (*get)(COgcBase&, ZEL_Variable*);
  std::string_view only = {}; ///< the class that has it, empty for both
  const char* file = nullptr; ///< of a file name: its default in the user file store
};

/// In the order in which they are applied.
constexpr Property properties[] = {
    {"CALLBACK_FUNCTION", setCallbackFunction, getText<&transfer::Settings::callback>},
    {"CALLBACK_DATA", setCallbackData, getCallbackData},
    {"HEADERS", setHeaders, getHeaders},
    {"URL_SCHEME", setText<&CCurl::CurlSetScheme>, getText<&transfer::Settings::scheme>},
    {"URL_HOSTNAME", setText<&CCurl::CurlSetHost>, getText<&transfer::Settings::host>},
    {"URL_PORT", setDigits<&CCurl::CurlSetPort>, getText<&transfer::Settings::port>},
    {"PROXY_HOSTNAME", setText<&CCurl::CurlSetProxy>, getText<&transfer::Settings::proxy>},
    {"PROXY_PORT", setDigits<&CCurl::CurlSetProxyPort>, getText<&transfer::Settings::proxyPort>},
    {"URL_PATH", setText<&CCurl::CurlSetPath>, getText<&transfer::Settings::path>},
    {"URL_QUERY_PREFIX", setText<&CCurl::CurlSetQueryPrefix>, getText<&transfer::Settings::queryPrefix>},
    {"URL_QUERY_SUFFIX", setText<&CCurl::CurlSetQuerySuffix>, getText<&transfer::Settings::querySuffix>},
    {"CAPABILITIES_FILENAME", setText<&COgcWcs::OgcWcsSetCapFN>, getText<&COgcWcs::capFile>, wcsService.className,
     "cap"},
    {"DESCRIBE_COVERAGE_FILENAME", setText<&COgcWcs::OgcWcsSetDesCovFN>, getText<&COgcWcs::desCovFile>,
     wcsService.className, "descov"},
    {"COVERAGE_FILENAME", setText<&COgcWcs::OgcWcsSetCovFN>, getText<&COgcWcs::covFile>, wcsService.className, "cov"},
    {"CAPABILITIES_FILENAME", setText<&COgcWms::OgcWmsSetCapFN>, getText<&COgcWms::capFile>, wmsService.className,
     "cap"},
    {"MAP_FILENAME", setText<&COgcWms::OgcWmsSetMapFN>, getText<&COgcWms::mapFile>, wmsService.className, "map"},
    {"FEATURE_INFO_FILENAME", setText<&COgcWms::OgcWmsSetFeatFN>, getText<&COgcWms::featFile>, wmsService.className,
     "feature"},
    {"ENCODE", setNumber<&CCurl::CurlSetEncode>, getNumber<&transfer::Settings::encode>},
    {"TIMEOUT", setNumber<&CCurl::CurlSetRxTxTo>, getNumber<&transfer::Settings::rxTxTimeout>},
    {"CONNECT_TIMEOUT", setNumber<&CCurl::CurlSetConnectTo>, getNumber<&transfer::Settings::connectTimeout>},
    {"WCS_VERSION", setText<&COgcWcs::OgcWcsSetVer>, getText<&COgcBase::version>, wcsService.className},
    {"WMS_VERSION", setText<&COgcWms::OgcWmsSetVer>, getText<&COgcBase::version>, wmsService.className},
    {"USERNAME", setText<&CCurl::CurlSetUser>, getText<&transfer::Settings::user>},
    {"PASSWORD", setText<&CCurl::CurlSetPasswd>, unavailable},
    {"AUTHENTICATION", setNumber<&CCurl::CurlSetAuthent>, getNumber<&transfer::Settings::authent>},
    {"PROXY_AUTHENTICATION", setNumber<&CCurl::CurlSetProxyAuthent>, getNumber<&transfer::Settings::proxyAuthent>},
    {"PROXY_PASSWORD", setText<&CCurl::CurlSetProxyPasswd>, unavailable},
    {"PROXY_USERNAME", setText<&CCurl::CurlSetProxyUser>, getText<&transfer::Settings::proxyUser>},
    {"VERBOSE", setNumber<&CCurl::CurlSetVerbose>, getNumber<&transfer::Settings::verbose>},
    {"SSL_VERIFY_PEER", setNumber<&CCurl::CurlSetSslVerifyPeer>, getNumber<&transfer::Settings::sslVerifyPeer>},
    {"SSL_VERIFY_HOST", setNumber<&CCurl::CurlSetSslVerifyHost>, getNumber<&transfer::Settings::sslVerifyHost>},
    {"SSL_CERTIFICATE_FILE", setText<&CCurl::CurlSetSslCAInfo>, getText<&transfer::Settings::sslCaInfo>},
    {"CONTENT_TYPE", unavailable, getText<&transfer::Response::parsedContentType>},
    {"LAST_FILE", unavailable, getText<&CCurl::responseFile>},
    {"RESPONSE_HEADER", unavailable, getText<&transfer::Response::header>},
};

using Action = void (*Property::*)(COgcBase&, ZEL_Variable*);

constexpr bool has(const Service& service, const Property& property, Action action) noexcept {
  return (property.only.empty() || property.only == service.className) && property.*action != unavailable;
}

/// Number of properties that a service has for an action.
template <const Service& service, Action action>
constexpr std::size_t propertyCount = std::ranges::count_if(properties, [](const Property& property) {
  return has(service, property, action);
});

/// The properties that a service has for an action, as keywords.
template <const Service& service, Action action, ZEL_KwFlag kind>
constexpr KeywordTable propertyKeywords([] {
  std::array<KeywordEntry, propertyCount<service, action>> entries{};
  for (std::size_t i = 0; const Property& property : properties)
    if (has(service, property, action)) entries[i++] = {property.name, kind};
  return entries;
}());

/// Runs the action of every property of the service that the call names.
template <const Service& service, Action action, ZEL_KwFlag kind>
void process(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, const std::int64_t* clientSlot) {
  COgcBase& client = clientIn(service, clientSlot);
  static constexpr auto& table = propertyKeywords<service, action, kind>;
  const Keywords keywords(table, argc, argv, argk);
  for (const Property& property : properties)
    if (has(service, property, action))
      if (ZEL_Variable* v = keywords[table.find(property.name)]) (property.*action)(client, v);
}

} // namespace

void ogc::setDefaults(const Service& service, COgcBase& client) {
  std::array<char, pathSize> directory{};
  writeUserDir(service, directory.data(), directory.size());
  for (const Property& property : properties) {
    if (property.only != service.className || property.file == nullptr) continue;
    const zel::Temp path(
        ZEL_StrToSTRING(transfer::formatLimited(pathSize - 1, "%s/%s", directory.data(), property.file).c_str()));
    property.set(client, path.get());
  }
  const zel::Temp root(ZEL_SysvDirFunc());
  constexpr std::array parts{"bin", "bin.linux.x86_64"};
  ZEL_FilePathFromRoot(directory.data(), directory.size(), root->value.str.s, parts.data(), parts.size(), nullptr,
                       nullptr);
  client.CurlSetSslCAInfo(transfer::formatLimited(pathSize - 1, "%sca-bundle.crt", directory.data()).c_str());
}

void ogc::releaseCallbackData(COgcBase& client) {
  ZEL_HeapVarDelete(callbackData(client));
  client.CurlSetCallbackData(0);
}

void OGCWCSProcessSetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, int initialise,
                                const std::int64_t* clientSlot) {
  if (initialise != 0) static_cast<void>(COgcWcs::OgcWcsInit());
  process<wcsService, &Property::set, ZEL_KW_VIN>(argc, argv, argk, clientSlot);
}

void OGCWMSProcessSetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk, int initialise,
                                const std::int64_t* clientSlot) {
  if (initialise != 0) static_cast<COgcWms&>(clientIn(wmsService, clientSlot)).OgcWmsInit();
  process<wmsService, &Property::set, ZEL_KW_VIN>(argc, argv, argk, clientSlot);
}

void OGCWCSProcessGetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk,
                                const std::int64_t* clientSlot) {
  process<wcsService, &Property::get, ZEL_KW_OUT>(argc, argv, argk, clientSlot);
}

void OGCWMSProcessGetProperties(int argc, ZEL_Variable** argv, const ZEL_Keywords* argk,
                                const std::int64_t* clientSlot) {
  process<wmsService, &Property::get, ZEL_KW_OUT>(argc, argv, argk, clientSlot);
}

#include "xml/handler.h"

#include <algorithm>
#include <cstring>
#include <strings.h>
#include <utility>
#include <xercesc/sax/SAXParseException.hpp>

namespace ogc::xml {

namespace {

constexpr std::size_t nameLimit = 1023;
constexpr std::size_t versionMessageLimit = 511;

/// Position of the first space or comma.
std::size_t endOfName(std::string_view s, std::size_t from) noexcept {
  while (from < s.size() && s[from] != ' ' && s[from] != ',') ++from;
  return from < s.size() ? from : s.npos;
}

} // namespace

Handler::Handler(Reporter& reporter, Arena& arena, const VersionRule& versions)
    : m_reporter(reporter), m_arena(arena), m_versions(versions) {}

std::string_view Handler::RemoveTrailingLfCrSpacesCommas(std::string_view s) noexcept {
  return s.substr(0, s.find_last_not_of("\n\r ,") + 1);
}

void Handler::AppendStrings(const char** dst, std::string_view src, int trimTrailing, int commaSeparated) {
  if (src.empty()) return;
  const std::string_view text = trimTrailing != 0 ? RemoveTrailingLfCrSpacesCommas(src) : src;
  const bool startsEntry = *dst == nullptr && pCurNode != nullptr && dst == &pCurNode->str;
  if (const char* known = startsEntry ? expected(text) : nullptr)
    m_arena.share(dst, known);
  else
    m_arena.append(dst, text, commaSeparated != 0 ? ", " : " ");
}

const char* Handler::expected(std::string_view text) noexcept {
  for (int tries = 2; tries > 0 && m_expected != nullptr; --tries) {
    const char* next = std::exchange(m_expected, m_expected->next)->str;
    if (next != nullptr && std::strncmp(next, text.data(), text.size()) == 0 && next[text.size()] == '\0') return next;
  }
  m_expected = nullptr;
  return nullptr;
}

void Handler::ParseConcatenatedValues(std::string_view s, int trimTrailing) {
  if (pCurNode == nullptr) return;
  const std::size_t first = s.find_first_not_of(' ');
  std::size_t end = first == s.npos ? s.npos : endOfName(s, first);
  AppendStrings(&pCurNode->str, s.substr(0, end), trimTrailing, 0);
  while (end != s.npos) {
    const std::size_t begin = s.find_first_not_of(' ', end + 1);
    if (begin == s.npos || s[begin] == ',') return;
    end = endOfName(s, begin);
    addCurrentNode(&pCurNode->next);
    AppendStrings(&pCurNode->str, transfer::cutAt(s.substr(begin, end - begin), nameLimit), trimTrailing, 0);
  }
}

xNodeStr_t* Handler::AddStringNode(xNodeStr_t** head, xNodeStr_t** tail) {
  return addRecord(head, tail, &xNodeStr_t::next);
}

xNodeStr_t* Handler::addCurrentNode(xNodeStr_t** head) { return AddStringNode(head, &pCurNode); }

const XMLCh* Handler::findAttribute(const xercesc::Attributes& attrs, const char* name) noexcept {
  for (XMLSize_t i = 0; i < attrs.getLength(); ++i) {
    if (equalsIgnoringCase(attrs.getLocalName(i), name)) return attrs.getValue(i);
  }
  return nullptr;
}

bool Handler::GetAttributes(const xercesc::Attributes& attrs, const char* name, const char** dst) {
  const XMLCh* value = findAttribute(attrs, name);
  AppendStrings(dst, m_utf8(value), 0, 0);
  return value != nullptr;
}

int Handler::HandleVersion(const xercesc::Attributes& attrs) {
  GetAttributes(attrs, "version", &szVersion);
  GetAttributes(attrs, "updatesequence", &szUpdateSequence);
  if (szVersion == nullptr) m_reporter.fail("%s", m_versions.missing);
  if (std::ranges::none_of(m_versions.supported, [&](const char* v) { return strcasecmp(v, szVersion) == 0; })) {
    m_reporter.fail("%s", transfer::formatLimited(versionMessageLimit, m_versions.unsupported, szVersion).c_str());
  }
  return 0;
}

std::string Handler::describe(const xercesc::SAXParseException& e, const char* format) {
  const std::string message(m_utf8(e.getMessage()));
  const std::string uri(m_utf8(e.getSystemId()));
  return transfer::formatLimited(transfer::messageLimit, format, message.c_str(), static_cast<int>(e.getLineNumber()),
                                 static_cast<int>(e.getColumnNumber()), uri.c_str());
}

void Handler::warning(const xercesc::SAXParseException& e) {
  m_reporter.reportWarning(describe(e, "Warning: SAX Parser: Message (%s), Line (%d), Column (%d), URI (%s).").c_str());
}

void Handler::error(const xercesc::SAXParseException& e) {
  m_reporter.reportWarning(describe(e, "Error SAX Parser: Message (%s), Line (%d), Column (%d), URI (%s).").c_str());
}

void Handler::fatalError(const xercesc::SAXParseException& e) {
  m_reporter.fail("%s",
                  describe(e, "Fatal Error: SAX Parser: Message (%s), Line (%d), Column( %d), URI (%s).").c_str());
}

} // namespace ogc::xml

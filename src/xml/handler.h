/// \file
/// The base of all SAX2 handlers: text, list and attribute helpers, version check, exception reports, error callbacks.
#pragma once

#include "xml/arena.h"
#include "xml/caller.h"
#include "xml/element_names.h"
#include "xml/utf8.h"
#include "zel_curl_text.h"

#include <span>
#include <string>
#include <string_view>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>

namespace ogc::xml {

/// Versions that a service's documents may have, and what is said about others.
struct VersionRule {
  std::span<const char* const> supported;
  const char* missing;
  const char* unsupported; ///< format with one %s, the version
};

/// What an exception report says; pieces are joined by one space.
struct ExceptionTexts {
  transfer::Text service; ///< of a ServiceExceptionReport
  transfer::Text report;  ///< of an ExceptionReport
};

/// Base of the handlers of one parse, on the stack of one request. A derived handler overrides the content callbacks.
class Handler : public xercesc::DefaultHandler {
public:
  void warning(const xercesc::SAXParseException& e) override;
  void error(const xercesc::SAXParseException& e) override;
  /// \throws CCurlException
  void fatalError(const xercesc::SAXParseException& e) override;
  [[nodiscard]] const ExceptionTexts& exceptions() const noexcept { return m_exceptions; }

protected:
  /// \param arena  owns all texts and nodes; lives at least as long as the records being filled
  Handler(Reporter& reporter, Arena& arena, const VersionRule& versions);
  ~Handler() override = default;

  /// Appends a run of text to `*dst`, after a space (or a comma and a space) if `*dst` is not null. An empty source
  /// changes nothing, but one that becomes empty by trimming does: it adds the separator, or an empty text.
  void AppendStrings(const char** dst, std::string_view src, int trimTrailing, int commaSeparated);
  /// `s` without trailing line feeds, carriage returns, spaces and commas.
  [[nodiscard]] static std::string_view RemoveTrailingLfCrSpacesCommas(std::string_view s) noexcept;
  /// Splits a run of names separated by spaces or commas. The first goes to `pCurNode`, each of the others to a new
  /// node after it, which becomes `pCurNode`. Two separators in a row end the split, unless both are spaces. All names
  /// but the first are cut to 1023 bytes.
  void ParseConcatenatedValues(std::string_view s, int trimTrailing);
  /// Appends an empty node to a list, by its head and tail slots.
  xNodeStr_t* AddStringNode(xNodeStr_t** head, xNodeStr_t** tail);
  /// Links an empty node after pCurNode, or makes it the head when pCurNode is null; it becomes pCurNode.
  xNodeStr_t* addCurrentNode(xNodeStr_t** head);
  /// Links a zero-filled record after `*current`, or stores it in `*head` when `*current` is null; it becomes
  /// `*current`. \tparam Next the record's link.
  template <typename T>
  T* addRecord(T** head, T** current, T* T::*next) {
    T* record = m_arena.make<T>();
    (*current != nullptr ? (*current)->*next : *head) = record;
    return *current = record;
  }
  /// Appends the value of the attribute that findAttribute finds to `*dst`.
  /// \return whether the attribute is there.
  bool GetAttributes(const xercesc::Attributes& attrs, const char* name, const char** dst);
  /// Value of the first attribute of that local name (lower case given, any case matched), null when there is none.
  [[nodiscard]] static const XMLCh* findAttribute(const xercesc::Attributes& attrs, const char* name) noexcept;
  /// Reads and checks the root element's version. \return 0. \throws CCurlException
  int HandleVersion(const xercesc::Attributes& attrs);

  Reporter& m_reporter;
  Arena& m_arena;
  Utf8 m_utf8;
  int iSection = 0;
  int iSubSection = 0;
  const char* szVersion = nullptr;
  const char* szUpdateSequence = nullptr;
  xNodeStr_t* pCurNode = nullptr;
  ExceptionTexts m_exceptions;
  /// The texts that the current list probably holds next, from a list before: they are not stored again.
  const xNodeStr_t* m_expected = nullptr;

private:
  /// The expected text that equals `text`. Null when neither of the next two does: then nothing more is expected.
  const char* expected(std::string_view text) noexcept;
  /// Message, line, column and document of a parser's report, in that order.
  std::string describe(const xercesc::SAXParseException& e, const char* format);

  const VersionRule& m_versions;
};

} // namespace ogc::xml

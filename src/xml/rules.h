/// \file
/// Handlers that are tables: one row for each thing that an element does.
#pragma once

#include "xml/handler.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace ogc::xml {

/// Where the reader is in a document. Codes are the handler's own, 0 is none.
struct Place {
  static constexpr int any = -1;

  int section = any; ///< opened and closed by one element, wherever it is
  int group = any;   ///< within a section
  int part = any;    ///< within a group

  [[nodiscard]] bool holds(const Place& now) const noexcept {
    return (section == any || section == now.section) && (group == any || group == now.group) &&
           (part == any || part == now.part);
  }
};

/// What an element opens or closes: codes of places.
struct Opening {
  int section = 0, group = 0, part = 0;
};

/// The rules of one kind of document for a handler of type `H`.
template <typename H>
class Grammar {
public:
  using Act = void (*)(H&, const xercesc::Attributes&);

  struct Rule {
    const char* name; ///< local name of the element, in any letter case; "*" for every one that opens no section
    Place in;         ///< where the rule holds
    Act act = nullptr;
    Opening opens{};             ///< for the elements inside, before `act`
    const char* closedBy = name; ///< the element whose end tag closes what is opened, null for none
    void (*end)(H&) = nullptr;   ///< at the end tag, instead of closing anything
    bool exact = false;          ///< the name is case-sensitive
  };

  struct Element {
    std::vector<Rule> rules; ///< in the order of the table
    Opening closes;
    void (*end)(H&) = nullptr;
    String exact; ///< the name if it is case-sensitive
    bool opensSection = false;
  };

  Grammar(std::initializer_list<Rule> rules) {
    std::map<std::string, Element> elements; // by lower-case name
    for (const Rule& rule : reportRules()) add(rule, elements);
    for (const Rule& rule : rules) add(rule, elements);
    std::vector<ElementNames::Entry> entries;
    for (auto& [name, element] : elements) {
      entries.push_back({name.c_str(), static_cast<int>(m_elements.size())});
      m_elements.push_back(std::move(element));
    }
    m_names = ElementNames(entries);
  }

  /// The element of that name; an element without rules for other names.
  [[nodiscard]] const Element& find(const XMLCh* name) const noexcept {
    const Element& element = m_elements[static_cast<std::size_t>(m_names.find(name))];
    return element.exact.empty() || element.exact == name ? element : m_elements[0];
  }
  /// What every element does that opens no section, after its own rules.
  [[nodiscard]] const std::vector<Rule>& everywhere() const noexcept { return m_everywhere; }

private:
  /// The rules of exception reports, which a server may send instead of any document. Codes of handlers are larger.
  static std::array<Rule, 5> reportRules() {
    using Attributes = xercesc::Attributes;
    using Texts = ExceptionTexts;
    enum Section : int { service = 13, report = 15 };
    static constexpr auto ignoreText = [](H& h, const Attributes&) { h.collect(nullptr); };
    static constexpr auto serviceException = [](H& h, const Attributes& attrs) {
      h.report(&Texts::service, " Code=", attrs, "code");
      h.report(&Texts::service, " Locator=", attrs, "locator");
      h.collectReport(&Texts::service, "Service Exception Text=");
    };
    static constexpr auto exception = [](H& h, const Attributes& attrs) {
      h.report(&Texts::report, " Code=", attrs, "exceptioncode");
      h.collect(nullptr);
    };
    static constexpr auto text = [](H& h, const Attributes&) { h.collectReport(&Texts::report, "Exception Text="); };
    return {{{"ServiceExceptionReport", {}, ignoreText, {service}},
             {"ServiceException", {service}, serviceException},
             {"ExceptionReport", {}, ignoreText, {report}},
             {"Exception", {report}, exception},
             {"ExceptionText", {report}, text}}};
  }

  void add(const Rule& rule, std::map<std::string, Element>& elements) {
    const std::string_view name(rule.name);
    if (name == "*") {
      m_everywhere.push_back(rule);
      return;
    }
    Element& element = elements[lowerCase(rule.name)];
    element.rules.push_back(rule);
    if (rule.exact) element.exact.assign(name.begin(), name.end());
    element.opensSection = element.opensSection || rule.opens.section != 0;
    if (rule.end != nullptr) element.end = rule.end;
    if (rule.closedBy == nullptr) return;
    Opening& closes = elements[lowerCase(rule.closedBy)].closes;
    for (const auto place : {&Opening::section, &Opening::group, &Opening::part})
      if (rule.opens.*place != 0) closes.*place = rule.opens.*place;
  }

  std::vector<Element> m_elements{1}; ///< by code
  std::vector<Rule> m_everywhere;
  ElementNames m_names{};
};

/// Reads a document by the rules of a grammar. `H` is the handler itself; its rules reach what is public here.
template <typename H>
class RuleHandler : public Handler {
public:
  using Grammar = xml::Grammar<H>;
  using Act = typename Grammar::Act;

  void startElement(const XMLCh*, const XMLCh* localname, const XMLCh*, const xercesc::Attributes& attrs) override {
    const auto& element = m_grammar.find(localname);
    m_open.push_back(&element);
    H& self = static_cast<H&>(*this);
    for (const auto& rule : element.rules) {
      if (!rule.in.holds(place())) continue;
      if (rule.opens.section != 0 || rule.opens.group != 0 || rule.opens.part != 0) open(rule.opens);
      if (rule.act != nullptr) rule.act(self, attrs);
    }
    if (element.opensSection) return;
    for (const auto& rule : m_grammar.everywhere())
      if (rule.in.holds(place())) rule.act(self, attrs);
  }

  void characters(const XMLCh* chars, XMLSize_t length) override {
    if (m_report != nullptr) return addToReport(*m_report, m_reportLabel, m_utf8(chars, length));
    if (m_names) return ParseConcatenatedValues(m_utf8(chars, length), 1);
    const char** text = m_text;
    if (m_runs != nullptr) {
      if (*m_runs > 0) text = *m_runs == 1 ? m_second : nullptr;
      ++*m_runs;
    }
    if (text != nullptr) AppendStrings(text, m_utf8(chars, length), 0, 0);
  }

  void endElement(const XMLCh*, const XMLCh*, const XMLCh*) override {
    const auto& element = *m_open.back();
    m_open.pop_back();
    collect(nullptr);
    if (element.end != nullptr) return element.end(static_cast<H&>(*this));
    if (element.closes.section != 0 && element.closes.section == iSection) {
      closeSection();
    } else if (element.closes.group != 0 && element.closes.group == iSubSection) {
      closeGroup();
    } else if (element.closes.part != 0 && element.closes.part == m_part) {
      m_part = 0;
    }
  }

  /// \name For rules
  /// @{
  using Handler::addRecord;
  using Handler::HandleVersion;
  /// Stores the text of this element, or discards it for null.
  void collect(const char** text) noexcept {
    forgetText();
    m_text = text;
  }
  /// Stores the first text that is counted in `first`, the second in `second`, and discards others.
  void collectRuns(const char** first, const char** second, int* runs) noexcept {
    collect(first);
    m_second = second;
    m_runs = runs;
  }
  /// The text of this element holds names for the list of the current node.
  void collectNames() noexcept {
    collect(nullptr);
    m_names = pCurNode != nullptr;
  }
  /// Adds the text of this element to an exception report, after a label.
  void collectReport(transfer::Text ExceptionTexts::*text, const char* label) noexcept {
    collect(nullptr);
    m_report = &(m_exceptions.*text);
    m_reportLabel = label;
  }
  /// Adds the value of an attribute to an exception report, after a label.
  void report(transfer::Text ExceptionTexts::*text, const char* label, const xercesc::Attributes& attrs,
              const char* name) {
    addToReport(m_exceptions.*text, label, m_utf8(findAttribute(attrs, name)));
  }
  void closeGroup() noexcept {
    iSubSection = m_part = 0;
    pCurNode = nullptr;
  }
  void closeSection() noexcept {
    iSection = 0;
    closeGroup();
  }
  /// Did the element open the section in which the reader is now?
  [[nodiscard]] bool sectionIsNew() const noexcept { return m_sectionIsNew; }

  template <typename T, typename Rows>
  void store(const Rows& rows, T& record, const xercesc::Attributes& attrs) {
    unsigned found = 0; // bit by row: of attributes with the same local name the first counts
    for (XMLSize_t i = 0; i < attrs.getLength(); ++i) {
      const XMLCh* name = attrs.getLocalName(i);
      for (std::size_t row = 0; row < std::size(rows); ++row) {
        if ((found >> row & 1U) != 0 || !equalsIgnoringCase(name, rows[row].name)) continue;
        found |= 1U << row;
        AppendStrings(&(record.*rows[row].text), m_utf8(attrs.getValue(i)), 0, 0);
        if constexpr (requires { rows[row].flag; }) record.*rows[row].flag = 1;
      }
    }
  }
  /// Appends a node for this element's text to a list of texts.
  void appendText(xNodeStr_t** head, xNodeStr_t** tail) {
    while (*tail != nullptr && (*tail)->next != nullptr) *tail = (*tail)->next;
    pCurNode = AddStringNode(head, tail);
    collect(&pCurNode->str);
  }
  /// @}

protected:
  RuleHandler(Reporter& reporter, Arena& arena, const VersionRule& versions, const Grammar& grammar)
      : Handler(reporter, arena, versions), m_grammar(grammar) {}
  ~RuleHandler() override = default;

private:
  void forgetText() noexcept {
    m_text = nullptr;
    m_runs = nullptr;
    m_report = nullptr;
    m_names = false;
  }
  static void addToReport(transfer::Text& text, const char* label, std::string_view piece) {
    text.join(label);
    text.join(piece);
  }
  [[nodiscard]] Place place() const noexcept { return {iSection, iSubSection, m_part}; }
  void open(const Opening& opens) noexcept {
    m_sectionIsNew = opens.section != 0 && iSection != opens.section;
    if (opens.section != 0) iSection = opens.section;
    if (opens.group != 0) iSubSection = opens.group;
    if (opens.part != 0) m_part = opens.part;
    if (m_sectionIsNew || opens.section == 0) pCurNode = nullptr;
  }

  const Grammar& m_grammar;
  std::vector<const typename Grammar::Element*> m_open;
  int m_part = 0;
  bool m_sectionIsNew = false;
  const char** m_text = nullptr;
  const char** m_second = nullptr;
  int* m_runs = nullptr;
  transfer::Text* m_report = nullptr;
  const char* m_reportLabel = nullptr;
  bool m_names = false;
};

/// Reads exception reports only: for XML that came instead of a map or a coverage.
class ExceptionHandler final : public RuleHandler<ExceptionHandler> {
public:
  ExceptionHandler(Reporter& reporter, Arena& arena);
  void endDocument() override { m_complete = true; }
  /// Was the whole document read?
  [[nodiscard]] bool complete() const noexcept { return m_complete; }

private:
  bool m_complete = false;
};

/// An attribute and the field for its value.
template <typename T>
struct Attribute {
  const char* name; ///< lower case
  const char* T::*text;
};

/// What the rules of a handler `H` do. `Record` is its pointer to the record that is being filled; while it is null,
/// they do nothing.
template <typename H>
struct Acts {
  using Attributes = xercesc::Attributes;
  template <auto Record>
  using Of = std::remove_pointer_t<std::remove_reference_t<decltype(std::declval<H&>().*Record)>>;

  template <auto... acts>
  static void all(H& h, const Attributes& attrs) {
    (acts(h, attrs), ...);
  }
  template <auto Record, auto Field>
  static void text(H& h, const Attributes&) {
    h.collect(h.*Record != nullptr ? &((h.*Record)->*Field) : nullptr);
  }
  template <auto Record, const auto& Rows>
  static void attributes(H& h, const Attributes& attrs) {
    if (h.*Record != nullptr) h.store(Rows, *(h.*Record), attrs);
  }
  template <auto Record>
  static void forget(H& h, const Attributes&) {
    h.*Record = nullptr;
  }
};

} // namespace ogc::xml

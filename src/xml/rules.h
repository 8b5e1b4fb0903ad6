/// \file
/// Handlers that are tables: one row for each thing that an element does.
#pragma once

#include "xml/handler.h"

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace ogc::xml {

/// Where the reader is in a document. Codes are the grammar's own, 0 is none.
struct Place {
  static constexpr int any = -1; ///< where rules hold; in what they open: as it was

  int section = any; ///< opened and closed by one element, wherever it is
  int group = any;   ///< within a section
  int part = any;    ///< within a group

  bool operator==(const Place&) const = default;
  [[nodiscard]] bool holds(const Place& now) const noexcept {
    return (section == any || section == now.section) && (group == any || group == now.group) &&
           (part == any || part == now.part);
  }
};

/// The rules of one kind of document for a handler of type `H`.
template <typename H>
class Grammar {
public:
  using Act = void (*)(H&, const xercesc::Attributes&);

  /// Places are written "section/group/part", by any names: "" is any, "-" is none.
  struct Rule {
    const char* name; ///< local name of the element, in any letter case; "*" for every one that opens no section
    const char* in;   ///< where the rule holds
    Act act = nullptr;
    const char* opens = "";      ///< for the elements inside, before `act`
    const char* closedBy = name; ///< the element whose end tag closes what is opened, null for none
    void (*end)(H&) = nullptr;   ///< at the end tag, instead of closing anything
    bool exact = false;          ///< the name is case-sensitive
  };

  struct Step {
    Place in, opens;
    Act act;
  };
  struct Element {
    std::vector<Step> steps; ///< in the order of the table
    Place closes;
    void (*end)(H&) = nullptr;
    String exact; ///< the name if it is case-sensitive
    bool opensSection = false;
  };

  /// \throws std::logic_error for a rule that holds where no element leads to
  Grammar(std::initializer_list<Rule> own) {
    std::vector<Rule> rules = reportRules();
    rules.insert(rules.end(), own);
    Codes codes;
    for (const Rule& rule : rules) placeOf(rule.opens, codes);
    const std::size_t opened = codes.size();
    std::map<std::string, Element> elements; // by lower-case name
    for (const Rule& rule : rules) add(rule, codes, elements);
    if (codes.size() != opened) throw std::logic_error("a rule holds in a place that no element opens");
    std::vector<std::string> names;
    for (auto& [name, element] : elements) {
      names.push_back(name);
      m_elements.push_back(std::move(element));
    }
    m_names = ElementNames(names);
  }

  /// The element of that name; an element without rules for other names.
  [[nodiscard]] const Element& find(const XMLCh* name) const noexcept {
    const Element& element = m_elements[m_names.find(name)];
    return element.exact.empty() || element.exact == name ? element : m_elements[0];
  }
  /// What every element does that opens no section, after its own rules.
  [[nodiscard]] const std::vector<Step>& everywhere() const noexcept { return m_everywhere; }

private:
  using Codes = std::map<std::string, int, std::less<>>;

  /// The rules of exception reports, which a server may send instead of any document.
  static std::vector<Rule> reportRules() {
    using Attributes = xercesc::Attributes;
    using Texts = ExceptionTexts;
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
    return {{"ServiceExceptionReport", "", ignoreText, "ServiceExceptionReport"},
            {"ServiceException", "ServiceExceptionReport", serviceException},
            {"ExceptionReport", "", ignoreText, "ExceptionReport"},
            {"Exception", "ExceptionReport", exception},
            {"ExceptionText", "ExceptionReport", text}};
  }

  /// The place of a path; a name that is new gets the next code.
  static Place placeOf(std::string_view path, Codes& codes) {
    Place place;
    for (int* code : {&place.section, &place.group, &place.part}) {
      const std::string name(path.substr(0, path.find('/')));
      path.remove_prefix(std::min(name.size() + 1, path.size()));
      if (!name.empty()) *code = name == "-" ? 0 : codes.emplace(name, codes.size() + 1).first->second;
    }
    return place;
  }

  void add(const Rule& rule, Codes& codes, std::map<std::string, Element>& elements) {
    const std::string name = lowerCase(rule.name);
    const Step step{placeOf(rule.in, codes), placeOf(rule.opens, codes), rule.act};
    if (name == "*") return m_everywhere.push_back(step);
    Element& element = elements[name];
    element.steps.push_back(step);
    if (rule.exact) element.exact.assign(rule.name, rule.name + name.size());
    element.opensSection = element.opensSection || step.opens.section != Place::any;
    if (rule.end != nullptr) element.end = rule.end;
    if (rule.closedBy == nullptr) return;
    Place& closes = elements[lowerCase(rule.closedBy)].closes;
    for (const auto level : {&Place::section, &Place::group, &Place::part})
      if (step.opens.*level != Place::any) closes.*level = step.opens.*level;
  }

  std::vector<Element> m_elements{1}; ///< by the position of their names
  std::vector<Step> m_everywhere;
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
    for (const auto& step : element.steps) {
      if (!step.in.holds(place())) continue;
      open(step.opens);
      if (step.act != nullptr) step.act(self, attrs);
    }
    if (element.opensSection) return;
    for (const auto& step : m_grammar.everywhere())
      if (step.in.holds(place())) step.act(self, attrs);
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
    if (element.closes.section == iSection)
      closeSection();
    else if (element.closes.group == iSubSection)
      closeGroup();
    else if (element.closes.part == m_part)
      m_part = 0;
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
  void open(const Place& opens) noexcept {
    if (opens == Place{}) return;
    m_sectionIsNew = opens.section != Place::any && iSection != opens.section;
    if (opens.section != Place::any) iSection = opens.section;
    if (opens.group != Place::any) iSubSection = opens.group;
    if (opens.part != Place::any) m_part = opens.part;
    if (m_sectionIsNew || opens.section == Place::any) pCurNode = nullptr;
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
  ExceptionHandler(Reporter& reporter, Arena& arena) : RuleHandler(reporter, arena, anyVersion, noOwnRules()) {}
  void endDocument() override { m_complete = true; }
  /// Was the whole document read?
  [[nodiscard]] bool complete() const noexcept { return m_complete; }

private:
  static constexpr VersionRule anyVersion{{}, "", ""};
  static const Grammar& noOwnRules() {
    static const Grammar grammar({});
    return grammar;
  }

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

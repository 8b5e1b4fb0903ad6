/// \file
/// A client of no service in particular, with documents in a directory of its own.
#pragma once

#include "client/base.h"
#include "curl_test.h"
#include "fake_bridge.h"
#include "xml/rules.h"

#include <filesystem>
#include <fstream>
#include <stdlib.h>

inline std::string shown(const char* text) { return text != nullptr ? text : "-"; }

inline std::string times(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

/// A document whose element "a" names its schema.
inline std::string withSchema(const std::string& location, const std::string& content) {
  return "<a xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xsi:noNamespaceSchemaLocation='" + location + "'>" +
         content + "</a>";
}

class Client : public COgcBase {
public:
  Client() : COgcBase("1.1.1") { CurlSetCallback("on_status"); }

  using COgcBase::fetchUrl;
  using COgcBase::setQuery;
};

/// Joins all texts of a document, and those of its attributes named "a".
class TextHandler : public ogc::xml::RuleHandler<TextHandler> {
public:
  explicit TextHandler(Client& client) : RuleHandler(client, arena, versions, noRules) {}

  void startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname,
                    const xercesc::Attributes& attrs) override {
    onElement();
    GetAttributes(attrs, "a", &attribute);
    RuleHandler::startElement(uri, localname, qname, attrs);
  }
  void characters(const XMLCh* chars, XMLSize_t length) override {
    AppendStrings(&text, m_utf8(chars, length), 0, 0);
    RuleHandler::characters(chars, length);
  }

  ogc::xml::Arena arena;
  const char* text = nullptr;
  const char* attribute = nullptr;
  std::function<void()> onElement = [] {};

private:
  static constexpr ogc::xml::VersionRule versions{{}, "", ""};
  const Grammar noRules = Grammar({});
};

class Ogc : public ::testing::Test {
protected:
  Ogc() {
    std::string name = (std::filesystem::temp_directory_path() / "ogcXXXXXX").string();
    m_directory = mkdtemp(name.data());
    fakeBridge() = {};
  }
  ~Ogc() override { std::filesystem::remove_all(m_directory); }

  [[nodiscard]] std::string path(const std::string& name) const { return (m_directory / name).string(); }
  /// Writes a file anew: cutting an old one short may wait for the disk.
  std::string write(const std::string& name, const std::string& content) {
    std::filesystem::create_directories((m_directory / name).parent_path());
    std::filesystem::remove(path(name));
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  /// Forgets the texts of the last document.
  void forget() {
    handler.arena.release();
    handler.text = handler.attribute = nullptr;
  }
  /// Parses a document given as text. \return the message of the failure, "" for none.
  std::string parse(const std::string& document, int schemaChecking = 0, int validationMode = 0) {
    const std::string file = write("document.xml", document);
    forget();
    return errorOf([&] { client.OgcBaseParse(&handler, file.c_str(), schemaChecking, validationMode); });
  }

  /// The same, or what was read: the texts, otherwise the attributes.
  std::string read(const std::string& document, int schemaChecking = 0, int validationMode = 0) {
    const std::string error = parse(document, schemaChecking, validationMode);
    return error + shown(handler.text != nullptr ? handler.text : handler.attribute);
  }

  Client client;
  TextHandler handler{client};

private:
  std::filesystem::path m_directory;
};

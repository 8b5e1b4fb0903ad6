/// \file
/// A client of no service in particular, with documents in a directory of its own.
#pragma once

#include "client/base.h"
#include "curl_test.h"
#include "fake_bridge.h"
#include "xml/handler.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string>
#include <vector>

inline std::string shown(const char* text) { return text != nullptr ? text : "-"; }

inline std::string times(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

class Client : public COgcBase {
public:
  Client() : COgcBase("1.1.1") { CurlSetCallback("on_status"); }

  using COgcBase::answerIsXml;
  using COgcBase::parseAnswer;
  using COgcBase::parseFile;
  using COgcBase::Request;
  using COgcBase::setQuery;
  using COgcBase::throwIfHtml;
};

/// Joins all texts of a document, and those of its attributes named "a"; counts elements.
class TextHandler : public ogc::xml::Handler {
public:
  explicit TextHandler(Client& client) : Handler(client, arena, versions) {}

  void startElement(const XMLCh*, const XMLCh* localname, const XMLCh*, const xercesc::Attributes& attrs) override {
    ++elements;
    if (!startReportElement(localname, attrs)) GetAttributes(attrs, "a", &attribute);
  }
  void endElement(const XMLCh*, const XMLCh* localname, const XMLCh*) override { endReportElement(localname); }
  void characters(const XMLCh* chars, XMLSize_t length) override {
    if (!addReportText(chars, length)) AppendStrings(&text, m_utf8(chars, length), 0, 0);
  }

  ogc::xml::Arena arena;
  const char* text = nullptr;
  const char* attribute = nullptr;
  int elements = 0;

private:
  static constexpr ogc::xml::VersionRule versions{{}, "", ""};
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
  std::string write(const std::string& name, const std::string& content) {
    std::filesystem::create_directories((m_directory / name).parent_path());
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  /// Parses a document given as text. \return the message of the failure, "" for none.
  std::string parse(const std::string& document, int schemaChecking = 0, int validationMode = 0) {
    const std::string file = write("document.xml", document);
    return errorOf([&] { client.OgcBaseParse(&handler, file.c_str(), schemaChecking, validationMode); });
  }

  Client client;
  TextHandler handler{client};

private:
  std::filesystem::path m_directory;
};

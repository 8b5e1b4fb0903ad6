/// \file
/// A WCS client that reads documents given as texts.
#pragma once

#include "fake_bridge.h"
#include "zel_ogcwcs_obj.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string>

inline std::string capabilities(const std::string& body) {
  return "<WCS_Capabilities version='1.0.0'>" + body + "</WCS_Capabilities>";
}

inline std::string description(const std::string& body) {
  return "<CoverageDescription version='1.0.0'>" + body + "</CoverageDescription>";
}

class Wcs : public ::testing::Test {
protected:
  Wcs() {
    std::string name = (std::filesystem::temp_directory_path() / "wcsXXXXXX").string();
    m_directory = mkdtemp(name.data());
    wcs.OgcWcsSetCapFN(path("cap").c_str());
    wcs.OgcWcsSetDesCovFN(path("descov").c_str());
    fakeBridge() = {};
  }
  ~Wcs() override { std::filesystem::remove_all(m_directory); }

  [[nodiscard]] std::string path(const char* name) const { return (m_directory / name).string(); }
  /// \return the message of the failure, "" for none.
  template <typename F>
  static std::string failure(F&& what) {
    try {
      what();
    } catch (const CCurlException& e) {
      return e.ErrMsg();
    }
    return "";
  }
  /// Reads a document from a file. \return the message of the failure, "" for none.
  std::string readCapabilities(const std::string& document) {
    return failure([&] { wcs.OgcWcsGetCap(write(document).c_str(), nullptr, 0, 0); });
  }
  std::string readDescription(const std::string& document) {
    return failure([&] { wcs.OgcWcsDescribeCoverage(nullptr, 0, write(document).c_str(), 0, 0); });
  }

  COgcWcs wcs;

private:
  std::string write(const std::string& document) {
    std::ofstream(path("document.xml")) << document;
    return path("document.xml");
  }

  std::filesystem::path m_directory;
};

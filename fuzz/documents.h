/// \file
/// Documents read by an object of the module and turned into structures, as a script would have it.
#pragma once

#include "fuzz_check.h"
#include "zel_module.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// An object of one of the module's classes in a host of its own, and the file that it reads documents from. Findings
/// are checked on the way: temporaries that stay, messages longer than they may be.
class FuzzObject {
public:
  struct Keyword {
    const char* name;
    std::int16_t value;
  };

  explicit FuzzObject(const char* className);
  ~FuzzObject();
  FuzzObject(const FuzzObject&) = delete;
  FuzzObject& operator=(const FuzzObject&) = delete;

  /// Makes `document` the file that is read.
  void write(const std::string& document);
  /// Calls a method that reads that file: as it is, and once more validated when it brings a grammar.
  /// \return its result as an integer, nothing when it raised an error
  std::optional<std::int64_t> read(const char* method, std::vector<Keyword> keywords = {});
  /// Calls a method. \return as for read()
  std::optional<std::int64_t> call(const char* method, const std::vector<Keyword>& keywords = {});
  /// The output keyword COUNT of the last call.
  [[nodiscard]] std::int64_t count() const noexcept { return m_count; }

private:
  std::optional<std::int64_t> call(const char* method, const std::vector<Keyword>& keywords, bool fromFile);

  ZEL_HVID m_object;
  std::string m_file;
  bool m_hasDtd = false;
  bool m_hasSchema = false;
  std::int64_t m_count = 0;
};

/// \file
/// The statements typed at earlier prompts.
#pragma once

#include <filesystem>
#include <string>

namespace zel::lua {

/// Readline's history, kept in a file of the user's directory. Every statement is appended immediately, whole and
/// with its time: nothing is lost however the prompt ends, and two prompts at a time keep the statements of both.
/// Without a place for the file, history lasts as long as the prompt.
class History {
public:
  History();

  /// Adds a statement of one or more lines. Not kept: an empty one, one that begins with a space, and a repetition.
  void add(const std::string& statement) const;

private:
  std::filesystem::path m_file;
};

} // namespace zel::lua

/// \file
/// Tables of texts and what becomes of them.
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

using Lines = std::vector<std::string>;
using TextFunction = std::function<std::string(const std::string&)>;

/// Checks what a function makes of each of some texts.
inline void expectEach(const TextFunction& function, const std::vector<std::pair<std::string, std::string>>& rows) {
  for (const auto& [text, expected] : rows) EXPECT_EQ(function(text), expected) << "of: " << text;
}

/// The same with "text -> expected" as rows.
inline void expectRows(const TextFunction& function, const Lines& rows) {
  for (const std::string& row : rows) {
    const auto arrow = row.find(" -> ");
    EXPECT_EQ(function(row.substr(0, arrow)), row.substr(arrow + 4)) << "of: " << row;
  }
}

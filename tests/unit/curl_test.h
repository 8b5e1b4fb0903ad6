/// \file
/// What the tests of the transfer object and of the clients share.
#pragma once

#include "zel_curl_exception.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

using Lines = std::vector<std::string>;

/// The message of the failure of an action, empty when it succeeds.
template <class Action>
std::string errorOf(Action action) {
  try {
    action();
  } catch (const CCurlException& error) {
    return error.ErrMsg();
  }
  return "";
}

/// Checks what a function makes of each of some texts.
inline void expectEach(const std::function<std::string(std::string)>& function,
                       std::initializer_list<std::pair<std::string, std::string>> rows) {
  for (const auto& [text, expected] : rows) EXPECT_EQ(function(text), expected) << "of: " << text;
}

/// The same with "text -> expected" as rows.
inline void expectRows(const std::function<std::string(std::string)>& function, const Lines& rows) {
  for (const std::string& row : rows) {
    const auto arrow = row.find(" -> ");
    EXPECT_EQ(function(row.substr(0, arrow)), row.substr(arrow + 4)) << "of: " << row;
  }
}

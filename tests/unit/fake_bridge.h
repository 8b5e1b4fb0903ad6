/// \file
/// A host in a few lines: records what the clients tell it and does the file copies.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

struct FakeBridge {
  std::vector<std::string> status; ///< lines of named callbacks, in order
  std::vector<std::string> info;
  std::vector<std::pair<std::string, std::string>> copies;                        ///< source and target base
  std::function<int(const std::string& line)> onStatus = [](auto&) { return 1; }; ///< the script's routine
  std::function<void(const std::string& text)> onInfo = [](auto&) {};
};

/// The bridge of this test program. Assign FakeBridge{} to start anew.
FakeBridge& fakeBridge();

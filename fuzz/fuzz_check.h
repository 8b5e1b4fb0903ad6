/// \file
/// What the fuzz targets share: checks that are findings when they fail.
#pragma once

#include "zel_curl_exception.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the run with a finding unless `holds`.
inline void fuzzCheck(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

/// The input as a text; what takes C strings reads it up to its first NUL.
inline std::string fuzzText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// Runs what may refuse the input. \return whether it did not
template <class Action>
bool fuzzTry(Action&& action) {
  try {
    action();
    return true;
  } catch (const CCurlException& refusal) {
    fuzzCheck(std::strlen(refusal.ErrMsg()) <= 1023, "a message has at most 1023 characters");
    return false;
  }
}

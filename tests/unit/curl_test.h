/// \file
/// What the tests of the transfer object and of the clients share.
#pragma once

#include "rows.h"
#include "zel_curl_exception.h"

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

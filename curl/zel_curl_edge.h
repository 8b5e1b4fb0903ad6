/// \file
/// The edge between libcurl's C frames and C++.
#pragma once

#include "zel_curl_obj.h"

/// Runs the body of a callback on the object. What it throws is kept until the transfer has ended, and no callback does
/// anything more until then.
template <typename Result, typename Body>
Result CCurl::guardCallback(void* object, Result failed, Body body) noexcept {
  auto& self = *static_cast<CCurl*>(object);
  if (self.m_thrown) return failed;
  try {
    return body(self);
  } catch (...) {
    self.m_thrown = std::current_exception();
    return failed;
  }
}

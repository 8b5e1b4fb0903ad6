/// \file
/// The libcurl handle of the process, and who may use it.
#pragma once

#include <curl/curl.h>

class CCurl;

namespace transfer {

/// Lends the shared handle to one request. The handle has no options set before and after; requests to close
/// connections that arrive meanwhile are carried out when it is returned.
class Lease {
public:
  /// \throws CCurlException when another request has the handle, or when there is none.
  explicit Lease(const CCurl* owner);
  ~Lease();
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  [[nodiscard]] static CURL* handle() noexcept;
  /// Does the installed interrupt check ask running transfers to end?
  [[nodiscard]] static bool interrupted();
};

} // namespace transfer

/// \file
/// The libcurl handle of the process, and who may use it.
#pragma once

#include <curl/curl.h>

class CCurl;

/// Lends the shared handle to one request. The handle comes and goes without options; requests to close connections
/// that arrive meanwhile are carried out when it is given back.
class CCurlLease {
public:
  /// \throws CCurlException when another request has the handle, or when there is none.
  explicit CCurlLease(const CCurl* owner);
  ~CCurlLease();
  CCurlLease(const CCurlLease&) = delete;
  CCurlLease& operator=(const CCurlLease&) = delete;

  [[nodiscard]] static CURL* handle() noexcept;
  /// True when the installed interrupt check wants running transfers to end.
  [[nodiscard]] static bool interrupted();
};

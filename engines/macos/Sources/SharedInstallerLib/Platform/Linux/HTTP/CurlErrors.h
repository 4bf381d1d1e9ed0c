// Translates libcurl's failures to the seam's errors. Stateless; any thread.
#pragma once

#include <cstdint>
#include <curl/curl.h>
#include <string>
#include <string_view>

#include "Base/Error.h"

namespace installer {

struct CurlFailure {
  CURLcode code = CURLE_OK;
  long osErrno = 0;   // of the last failed connection; 0 when there is none
  std::string words;  // libcurl's message; may be empty
};

// `isConnected` is whether this machine has a network: without one, a failed name lookup is a missing
// connection and not a missing host.
Error urlError(const CurlFailure& failure, bool isConnected);

// A failure of our own, one of URLErrorCode. The description ends with domain and code, so that every log
// line with it names the cause.
Error urlError(std::int64_t code, std::string_view words);

// True when an interface besides the loopback is up and has an address.
bool hasNetworkInterface();

inline Error cancelledError() {
  return {std::string{ErrorDomain::url}, URLErrorCode::cancelled, "cancelled", nullptr};
}

}  // namespace installer

// What libcurl's failures are called above the seam.
#pragma once

#include <cstdint>
#include <curl/curl.h>
#include <string>
#include <string_view>

#include "Base/Error.h"

namespace installer {

struct CurlFailure {
  CURLcode code = CURLE_OK;
  long osErrno = 0;   // of the last failed connection; 0 when it says nothing
  std::string words;  // libcurl's own; may be empty
};

// `isConnected` tells whether this machine has a network at all: without one, a name that isn't found says
// nothing about the name.
Error urlError(const CurlFailure& failure, bool isConnected);

// A failure of our own, one of URLErrorCode. The description ends with domain and code, so that every log
// line that quotes it names the cause.
Error urlError(std::int64_t code, std::string_view words);

// Some interface besides the loopback is up and has an address.
bool hasNetworkInterface();

inline Error cancelledError() {
  return {std::string{ErrorDomain::url}, URLErrorCode::cancelled, "cancelled", nullptr};
}

}  // namespace installer

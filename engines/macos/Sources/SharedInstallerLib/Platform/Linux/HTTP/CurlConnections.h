// Connection settings of this host: the authorities that TLS trusts, and the addresses of overridden names.
// Constant after construction; any thread.
#pragma once

#include <curl/curl.h>
#include <string>
#include <string_view>
#include <vector>

#include "Base/POSIX/LinuxHostSettings.h"
#include "Base/URL.h"

namespace installer {

// An entry of `hostAddresses` in libcurl's form, "host:port:address:port". An empty port means unchanged.
std::string connectTo(std::string_view host, std::string_view address);

class CurlConnections {
 public:
  explicit CurlConnections(const LinuxHostSettings& settings);
  ~CurlConnections();
  CurlConnections(const CurlConnections&) = delete;
  CurlConnections& operator=(const CurlConnections&) = delete;

  // This object must outlive `handle`.
  void apply(CURL* handle, const URL& url) const;

  // True when the settings give addresses of hosts. Then these hosts are the whole network: any other name
  // doesn't exist, also on a machine with no interface besides the loopback.
  bool isClosedNetwork() const { return !overriddenHosts_.empty(); }

 private:
  // In PEM: the extra authority, and the system's where libcurl can't look them up. Empty without an extra
  // one.
  std::string certificateAuthorities_;
  std::vector<std::string> overriddenHosts_;  // compared case-insensitively
  curl_slist* connectTo_ = nullptr;

  bool isOverridden(const URL& url) const;
};

}  // namespace installer

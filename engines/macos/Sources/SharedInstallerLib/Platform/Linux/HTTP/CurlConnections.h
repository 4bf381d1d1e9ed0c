// How this host's connections are made: which authorities TLS trusts, and the addresses of overridden names.
// Constant after construction; any thread.
#pragma once

#include <curl/curl.h>
#include <string>
#include <string_view>
#include <vector>

#include "Base/POSIX/LinuxHostSettings.h"
#include "Base/URL.h"

namespace installer {

// An entry of `hostAddresses` in libcurl's words, "host:port:address:port" with empty ports for "as it
// was".
std::string connectTo(std::string_view host, std::string_view address);

class CurlConnections {
 public:
  explicit CurlConnections(const LinuxHostSettings& settings);
  ~CurlConnections();
  CurlConnections(const CurlConnections&) = delete;
  CurlConnections& operator=(const CurlConnections&) = delete;

  // This object must outlive `handle`.
  void apply(CURL* handle, const URL& url) const;

  // The settings give addresses of hosts: they are this machine's network, and a name that they don't have
  // isn't there, even on a machine without any interface besides the loopback.
  bool isClosedNetwork() const { return !overriddenHosts_.empty(); }

 private:
  // In PEM: the extra one, and the system's where libcurl can't look them up. Empty without an extra one.
  std::string certificateAuthorities_;
  std::vector<std::string> overriddenHosts_;  // compared without regard to case
  curl_slist* connectTo_ = nullptr;

  bool isOverridden(const URL& url) const;
};

}  // namespace installer

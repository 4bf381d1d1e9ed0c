#include "Platform/Linux/HTTP/CurlConnections.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <strings.h>

#include "Platform/Linux/HTTP/CurlLibrary.h"

namespace installer {

namespace {

std::string contents(const char* path) {
  std::ifstream file{path, std::ios::binary};
  return {std::istreambuf_iterator<char>{file}, {}};
}

// Where libcurl looks for the system's authorities: `CURLINFO_CAPATH` a folder, `CURLINFO_CAINFO` one file.
std::string systemAuthorities(CURLINFO kind) {
  CURL* const handle = curl().easy_init();
  const char* path = nullptr;
  curl().easy_getinfo(handle, kind, &path);
  std::string found = path == nullptr ? "" : path;
  curl().easy_cleanup(handle);
  return found;
}

// In such a folder a certificate's file name is the hash of its subject, so only the needed one is read.
bool isHashedFolder(const std::string& folder) {
  std::error_code error;
  return std::ranges::any_of(std::filesystem::directory_iterator{folder, error}, [](const auto& entry) {
    const auto name = entry.path().filename().string();
    return name.size() == 10 && name.ends_with(".0") && name.find_first_not_of("0123456789abcdef") == 8;
  });
}

struct HostAndPort {
  std::string host;
  std::string port;
};

// Reads "a", "a:1", "[::1]", "[::1]:1" or a bare "::1"; the result has an IPv6 address in brackets.
HostAndPort split(std::string_view text) {
  const auto colon = text.rfind(':');
  if (colon == std::string_view::npos) return {std::string{text}, {}};
  const bool isBareIPv6 = !text.starts_with('[') && text.find(':') != colon;
  if (isBareIPv6) return {fmt::format("[{}]", text), {}};
  if (text.ends_with(']')) return {std::string{text}, {}};
  return {std::string{text.substr(0, colon)}, std::string{text.substr(colon + 1)}};
}

// The same host with the final point of an absolute name.
std::string withPoint(std::string_view host) {
  const auto [name, port] = split(host);
  return fmt::format("{}.{}{}", name, port.empty() ? "" : ":", port);
}

}  // namespace

std::string connectTo(std::string_view host, std::string_view address) {
  const auto from = split(host);
  const auto to = split(address);
  return fmt::format("{}:{}:{}:{}", from.host, from.port, to.host, to.port);
}

CurlConnections::CurlConnections(const LinuxHostSettings& settings) {
  if (settings.extraCertificateAuthority) {
    certificateAuthorities_ = contents(settings.extraCertificateAuthority->c_str());
    // All certificates in one text would cost about 30 milliseconds per connection.
    if (!isHashedFolder(systemAuthorities(CURLINFO_CAPATH))) {
      certificateAuthorities_ += "\n" + contents(systemAuthorities(CURLINFO_CAINFO).c_str());
    }
  }
  for (const auto& [host, address] : settings.hostAddresses) {
    connectTo_ = curl().slist_append(connectTo_, connectTo(host, address).c_str());
    connectTo_ = curl().slist_append(connectTo_, connectTo(withPoint(host), address).c_str());
    overriddenHosts_.push_back(split(host).host);
    overriddenHosts_.push_back(split(withPoint(host)).host);
  }
}

CurlConnections::~CurlConnections() {
  curl().slist_free_all(connectTo_);
}

bool CurlConnections::isOverridden(const URL& url) const {
  return url.host() && std::ranges::any_of(overriddenHosts_, [&url](const std::string& host) {
           return strcasecmp(host.c_str(), url.host()->c_str()) == 0;
         });
}

void CurlConnections::apply(CURL* handle, const URL& url) const {
  if (!certificateAuthorities_.empty()) {
    curl_blob pem{.data = const_cast<char*>(certificateAuthorities_.data()),
                  .len = certificateAuthorities_.size(),
                  .flags = CURL_BLOB_NOCOPY};
    curl().easy_setopt(handle, CURLOPT_CAINFO_BLOB, &pem);
  }
  curl().easy_setopt(handle, CURLOPT_CONNECT_TO, connectTo_);
  // An overridden address must be used; a proxy would resolve the name itself.
  if (isOverridden(url)) curl().easy_setopt(handle, CURLOPT_PROXY, "");
}

}  // namespace installer

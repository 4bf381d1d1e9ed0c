#include "Utils/URLTrust.h"

#include <algorithm>
#include <fmt/format.h>

#include "Base/Text.h"
#include "Utils/InstallerConfig.h"

namespace installer::URLTrust {

namespace {

bool isSameOrSubdomain(std::string_view host, std::string_view domain) {
  if (host == domain) return true;
  return host.size() > domain.size() && host.ends_with(domain) &&
         host[host.size() - domain.size() - 1] == '.';
}

}  // namespace

std::string normalizedHost(std::string_view host) {
  auto normal = lowercased(withoutBlanks(host));
  while (normal.ends_with('.')) normal.pop_back();
  return normal;
}

bool isHTTPS(const URL& url) {
  return url.scheme() && lowercased(*url.scheme()) == "https";
}

bool isTrusted(const URL& url, const std::vector<std::string>& domains) {
  if (!isHTTPS(url) || !url.host()) return false;
  const auto host = normalizedHost(*url.host());
  if (host.empty()) return false;
  return std::ranges::any_of(domains, [&host](const std::string& entry) {
    const auto domain = normalizedHost(entry);
    return !domain.empty() && isSameOrSubdomain(host, domain);
  });
}

bool isTrusted(const URL& url) {
  return isTrusted(url, InstallerConfig::trustedDownloadDomains());
}

std::string hostForLog(const URL& url) {
  return url.host().value_or("unknown");
}

std::string refusalReason(const URL& url) {
  return fmt::format("'{}' is not https on a host in trustedDownloadDomains {}", hostForLog(url),
                     listText(InstallerConfig::trustedDownloadDomains()));
}

}  // namespace installer::URLTrust

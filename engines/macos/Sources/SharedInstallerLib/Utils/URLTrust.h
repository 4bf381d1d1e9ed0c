// The single test for a place that bytes may come from: https, on a host that the build names or on a
// sub-domain of one. Stateless; any thread. Every surprise in the list fails closed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Base/URL.h"

namespace installer::URLTrust {

// The form in which hosts are compared: no blanks or tabs around it, lower case, no dots at the end.
std::string normalizedHost(std::string_view host);

bool isHTTPS(const URL& url);

// A host is trusted when it equals an entry of `domains` or ends in a dot and the entry. Port, user and path
// play no part, and there are no wildcards.
bool isTrusted(const URL& url, const std::vector<std::string>& domains);
// The same against the build's `trustedDownloadDomains`.
bool isTrusted(const URL& url);

// What the log says of a host: the host as it stands, or "unknown".
std::string hostForLog(const URL& url);
// A sentence for the log.
std::string refusalReason(const URL& url);

}  // namespace installer::URLTrust

// The only test of a URL before bytes are read from it: https, on a trusted host or a sub-domain of one.
// Stateless; any thread. A malformed entry of the list matches nothing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Base/URL.h"

namespace installer::URLTrust {

// The form in which hosts are compared: trimmed of blanks and tabs, lower case, without dots at the end.
std::string normalizedHost(std::string_view host);

bool isHTTPS(const URL& url);

// A host is trusted when it equals an entry of `domains` or ends in a dot and the entry. Port, user and path
// are ignored, and there are no wildcards.
bool isTrusted(const URL& url, const std::vector<std::string>& domains);
// The same for the build's `trustedDownloadDomains`.
bool isTrusted(const URL& url);

// The URL's host as written, or "unknown".
std::string hostForLog(const URL& url);
// A sentence for the log.
std::string refusalReason(const URL& url);

}  // namespace installer::URLTrust

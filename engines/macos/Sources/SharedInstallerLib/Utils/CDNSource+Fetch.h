// One metadata request of the CDN source, from the trust test to the sorting of its failure.
#pragma once

#include <expected>
#include <string>
#include <string_view>

#include "Base/URL.h"
#include "Platform/Dispatch.h"
#include "Utils/CDNFetchError.h"

namespace installer::CDNSource {

// The body of `url`. Blocks for at most `timeout`, whatever the request's own timer does. `label` names the
// app in the log. A place that isn't trusted is never asked.
std::expected<std::string, CDNFetchError> fetchJSON(const URL& url, Duration timeout, std::string_view label);

}  // namespace installer::CDNSource

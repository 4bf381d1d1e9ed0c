// HTTP over TLS on this host.
#pragma once

#include <memory>

#include "Platform/URLSession.h"

namespace installer {

struct LinuxHostSettings;

// Takes what it needs from `settings`: the extra certificate authority, the address overrides and the
// temporary directory, which exists.
std::unique_ptr<URLSessions> makeLinuxURLSessions(const LinuxHostSettings& settings);

}  // namespace installer

// Rules of runs for a shell and of unattended runs. Stateless; any thread.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "Installer/InstallOrchestratorDelegate.h"
#include "Models/AppInfo.h"
#include "Models/PackageProvider.h"
#include "Platform/Dispatch.h"

namespace installer::RunRules {

// A wait serves the main run loop in slices of this length; it delivers reports and cancels.
inline constexpr Duration kRunLoopSlice{0.05};
inline constexpr Duration kConnectivityTimeout{5.0};

// The rows of the catalog for `identifiers`, in that order, with duplicates; the whole catalog when there are
// none. An app that this build doesn't offer is left out without a message.
std::vector<AppInfo> resolveApps(const std::vector<AppIdentifier>& identifiers);

// The sentence for people about an expired installer.
std::string expiryMessage(const InstallerRetirement& retirement);

// True when an app failed, without a cancel, with a message that contains the word "permission" in any case.
// Reads the message on purpose: a failed install has no such flag.
bool anyPermissionDenied(std::span<const AppInstallResult> results);

}  // namespace installer::RunRules

// What a run for a shell and an unattended run have in common.
// Stateless; any thread.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "Installer/InstallOrchestratorDelegate.h"
#include "Models/AppInfo.h"
#include "Models/PackageProvider.h"
#include "Platform/Dispatch.h"

namespace installer::RunRules {

// A wait serves the main run loop in slices of this length: reports and cancels arrive there.
inline constexpr Duration kRunLoopSlice{0.05};
inline constexpr Duration kConnectivityTimeout{5.0};

// The rows of the catalog for `identifiers`, in that order, duplicates kept; all of it when there are none.
// An app that this build doesn't offer is dropped without a word.
std::vector<AppInfo> resolveApps(const std::vector<AppIdentifier>& identifiers);

// The sentence for people when the build's last day has passed.
std::string expiryMessage(const InstallerRetirement& retirement);

// True when some app failed, not by a cancel, with a message that has the word "permission" in it in any
// case. Reads the message on purpose: a failed install carries no such flag.
bool anyPermissionDenied(std::span<const AppInstallResult> results);

}  // namespace installer::RunRules

// For a list of apps: what is installed, what the content delivery network offers, and whether the whole
// source is missing.
//
// Any thread but a session's own; the main thread only while nothing needs its queue. Blocks for at most the
// time of two metadata fetches. A sweep never fails as a whole.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Models/AppInfo.h"
#include "Models/Vocabulary.h"
#include "Platform/Dispatch.h"

namespace installer {

// The installed copy of one app, and what the content delivery network offers.
struct AppUpdateStatus {
  AppInfo app;
  std::optional<std::string> installedVersion;
  std::optional<std::string> installedPath;
  std::optional<std::string> latestVersion;       // absent when not fetched, or when the metadata names none
  std::optional<std::int64_t> downloadSizeBytes;  // absent means unknown
  bool isInstalled = false;
  bool isAppStore = false;

  bool updateAvailable() const { return updateAvailable(latestVersion); }
  // True only for an installed app whose version is known and older than `version`, also for a copy from the
  // App Store.
  bool updateAvailable(const std::optional<std::string>& version) const;
  // Absent for an app that isn't installed.
  std::optional<CopySource> source() const;
};

struct UpdateSweep {
  std::vector<AppUpdateStatus> statuses;  // in the order of the apps given
  // Every app was looked up and none was found: the whole tree may be gone.
  bool allPackagesMissing = false;
};

namespace UpdateChecker {

// Without `network` only the installed copies are reported.
UpdateSweep sweep(const std::vector<AppInfo>& apps, bool network);
std::vector<AppUpdateStatus> statusAll(const std::vector<AppInfo>& apps, bool network);
// Absent when the fetch fails or the metadata names no version.
std::optional<std::string> fetchLatestVersion(const AppInfo& app, Duration timeout);

}  // namespace UpdateChecker

}  // namespace installer

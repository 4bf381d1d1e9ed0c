// What is installed of one app, and what the content delivery network offers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Models/AppInfo.h"

namespace installer {

struct AppUpdateStatus {
  AppInfo app;
  std::optional<std::string> installedVersion;
  std::optional<std::string> installedPath;
  std::optional<std::string> latestVersion;       // absent when not fetched, or when the metadata names none
  std::optional<std::int64_t> downloadSizeBytes;  // absent means unknown
  bool isInstalled = false;
  bool isAppStore = false;

  bool updateAvailable() const { return updateAvailable(latestVersion); }
  // True only for an installed app whose version is known and older than `version`. Holds for a copy from
  // the App Store too.
  bool updateAvailable(const std::optional<std::string>& version) const;
  // "appstore" or "direct"; absent for an app that isn't installed.
  std::optional<std::string> source() const;
};

}  // namespace installer

// One row of the catalog as a shell sees it: what the app is, what stands on the machine, what is on offer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Models/ReleaseNotes.h"

namespace installer {

// The first five optionals go out as null when absent, the last three leave their key out.
struct CatalogAppEvent {
  std::string id;  // raw value of an AppIdentifier
  std::string displayName;
  std::string descriptionCode;  // key of the shell's own texts
  std::string iconName;
  bool updateAvailable = false;
  std::optional<std::string> installedVersion;
  std::optional<std::string> latestVersion;
  std::optional<std::int64_t> sizeBytes;  // of the download
  std::optional<std::string> source;      // "direct" or "appstore"; absent when not installed
  std::optional<std::string> webUrl;
  std::optional<std::int64_t> requiredBytes;  // peak need of disk space while installing
  std::optional<std::string> installedPath;
  std::optional<ReleaseNotes> releaseNotes;

  friend bool operator==(const CatalogAppEvent&, const CatalogAppEvent&) = default;
};

}  // namespace installer

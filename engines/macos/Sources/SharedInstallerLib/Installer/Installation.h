// A disk image that is attached for as long as this object lives.
#pragma once

#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "Base/Path.h"
#include "Models/AppInfo.h"
#include "Utils/ExistingAppDetector.h"

namespace installer {

class MountedImage {
 public:
  // Attaches `dmgPath` read-only, and detaches what a killed run left attached under the same path. Blocks as
  // long as that takes, with one attempt and no time limit. The error is the text for the person; then
  // nothing stays attached as far as can be known.
  static std::expected<MountedImage, std::string> attach(const Path& dmgPath, const AppInfo& app);

  // Detaches, unless that has happened.
  ~MountedImage() { detach(); }
  MountedImage(MountedImage&& other) noexcept;
  MountedImage& operator=(MountedImage&&) = delete;

  const Path& mountPoint() const { return mountPoint_; }

  // Does nothing the second time.
  void detach();

 private:
  explicit MountedImage(Path mountPoint) : mountPoint_{std::move(mountPoint)} {}

  Path mountPoint_;
  bool isAttached_ = true;
};

// One install under way: what its steps have found out so far. Inside the disk-image installer only.
struct InstallInProgress {
  const AppInfo& app;
  std::string bundleName;  // file name of the chosen bundle in the image
  Path source;
  Path destination;  // changes when an App Store copy keeps the first choice
  std::optional<std::string> packageVersion = {};
  AppInstallationStatus existing = {};
  // Set when the old copy at the destination could only be removed as administrator.
  bool removalNeedsAdministrator = false;
};

}  // namespace installer

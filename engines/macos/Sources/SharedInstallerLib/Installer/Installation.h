// The steps of one install from a disk image. Used by the disk-image installer only, on its thread.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "Base/Path.h"
#include "Installer/DMGInstaller.h"
#include "Models/AppInfo.h"
#include "Utils/ExistingAppDetector.h"

namespace installer {

// The volume of an attached image; the destructor detaches it.
class MountedImage {
 public:
  explicit MountedImage(Path mountPoint) : mountPoint_{std::move(mountPoint)} {}
  ~MountedImage() { DMGInstaller::detachDMG(mountPoint_); }
  MountedImage(const MountedImage&) = delete;
  MountedImage& operator=(const MountedImage&) = delete;

  const Path& mountPoint() const { return mountPoint_; }

 private:
  const Path mountPoint_;
};

class Installation {
 public:
  // Both references must outlive the installation.
  Installation(const Path& dmgPath, const AppInfo& app) : dmgPath_{dmgPath}, app_{app} {}

  // Call once. The image is always detached, at the latest by the destructor.
  InstallResult run();

 private:
  // A step that ends the install returns its result; otherwise absent.
  using End = std::optional<InstallResult>;

  const Path& dmgPath_;
  const AppInfo& app_;
  std::optional<MountedImage> image_;
  std::string bundleName_;  // file name of the chosen bundle in the image
  Path source_;
  Path destination_;  // changed when an App Store copy has this path
  AppInstallationStatus existing_;
  // True when only an administrator can remove the old copy at the destination.
  bool removalNeedsAdministrator_ = false;

  // Requests all instances of the app to quit, waits up to five seconds, and ends the rest by force.
  void terminateRunningApp() const;

  // +Image: attaches the image, chooses the bundle and verifies it.
  End attach();
  End chooseBundle();
  End verifySource() const;

  // +ExistingCopy: the existing copies, and their treatment before the copy.
  End compareWithInstalled();
  End clearCopyElsewhere() const;
  void mentionOtherVariants() const;
  End testDiskSpace() const;
  End clearDestination();
  End installBesideAppStoreCopy();

  // +Copy: the copy, as the user or as administrator, and its verification.
  End copyBundle() const;
  End copyAsAdministrator() const;
  std::string privilegedCopyCommand() const;
  End verifyCopy() const;
  bool removeInstalledBundle() const;
  void removeQuarantine() const;

  InstallResult finish();
  // The failure with the app's name and the system's description of `error`.
  InstallResult failed(const Error& error) const;
};

}  // namespace installer

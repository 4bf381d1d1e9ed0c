// One install from a disk image, step by step. Inside the disk-image installer only.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "Base/Path.h"
#include "Installer/DMGInstaller.h"
#include "Models/AppInfo.h"
#include "Utils/ExistingAppDetector.h"

namespace installer {

// The volume of an attached image; detaches it at its end.
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

  // Once. The image is detached on every way out, at the latest by the destructor.
  InstallResult run();

 private:
  // A step that ends the install gives its result; one that lets it go on gives nothing.
  using End = std::optional<InstallResult>;

  const Path& dmgPath_;
  const AppInfo& app_;
  std::optional<MountedImage> image_;
  std::string bundleName_;  // file name of the chosen bundle in the image
  Path source_;
  Path destination_;  // changes when an App Store copy keeps the first choice
  AppInstallationStatus existing_;
  // Set when the old copy at the destination could only be removed as administrator.
  bool removalNeedsAdministrator_ = false;

  // Asks every instance of the app to quit, waits up to five seconds, forces what remains.
  void terminateRunningApp() const;

  // +Image: from the file to the one bundle in it that may be installed.
  End attach();
  End chooseBundle();
  End verifySource() const;

  // +ExistingCopy: what is on the machine, and what has to happen to it before the copy.
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
  // The failure that names the app and what the system says about `error`.
  InstallResult failed(const Error& error) const;
};

}  // namespace installer

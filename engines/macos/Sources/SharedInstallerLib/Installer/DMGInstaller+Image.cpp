// From the attached image to the one bundle in it that may be installed.
#include <fmt/format.h>

#include "Base/Text.h"
#include "Installer/DMGInstaller.h"
#include "Installer/InstallInProgress.h"
#include "Installer/MountedImage.h"
#include "Platform/Machine.h"
#include "Utils/ChecksumVerifier.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"
#include "Utils/ToolWords.h"

namespace installer {

namespace {

// In listing order. The names come from the image and aren't trusted to be names.
std::vector<std::string> appNames(const std::vector<std::string>& entries) {
  std::vector<std::string> names;
  for (const std::string& entry : entries) {
    if (entry.ends_with(".app") && isPlainFileName(entry)) names.push_back(entry);
  }
  return names;
}

}  // namespace

std::expected<std::string, InstallResult> DMGInstaller::chooseBundle(const MountedImage& image,
                                                                     const AppInfo& app) {
  const auto entries = machine().files.contentsOfDirectory(image.mountPoint());
  if (!entries) {
    return std::unexpected(InstallResult::failure(
        fmt::format("Failed to install {}: {}", app.displayName, entries.error().localizedDescription)));
  }
  const auto names = appNames(*entries);
  if (names.empty()) {
    logToolWords("DMGInstaller: the image holds", listText(*entries));
    return std::unexpected(InstallResult::failure("No .app bundle found in DMG"));
  }

  for (const std::string& name : names) {
    const auto bundle = ExistingAppDetector::cachedBundle(joined(image.mountPoint(), name));
    if (bundle && bundle->bundleIdentifier() == app.installerBundleIdentifier) return name;
  }
  // The only bundle is taken under any identifier: its signature is the judge.
  if (names.size() == 1) return names.front();

  log(fmt::format("DMGInstaller: DMG for {} carries {} app bundles, none with the expected identifier {}: {}",
                  app.displayName, names.size(), app.installerBundleIdentifier, listText(names)));
  return std::unexpected(InstallResult::failure(
      fmt::format("The package for {} does not contain the expected application.", app.displayName),
      "VERIFY_FAILED"));
}

DMGInstaller::EndOfInstall DMGInstaller::verifySource(const InstallInProgress& install) {
  // What a link leads to can be another thing between the look and the copy, and the copy would be of the
  // link alone.
  if (!machine().files.isSymbolicLink(install.source) &&
      ChecksumVerifier::verifyCodeRequirement(install.source)) {
    return std::nullopt;
  }
  logError(fmt::format(
      "DMGInstaller: {} in the DMG for {} does not satisfy the signing requirement — refusing to install it",
      install.bundleName, install.app.displayName));
  return InstallResult::failure(
      fmt::format("{} could not be verified as genuine and was not installed.", install.app.displayName),
      "SIGNATURE_FAILED");
}

void DMGInstaller::detachDMG(const Path& mountPoint) {
  // A volume that can't be detached changes nothing about the install.
  (void)machine().processes.run(machine().paths.hdiutil, {"detach", mountPoint, "-force", "-quiet"},
                                CapturedOutput::separate);
}

}  // namespace installer

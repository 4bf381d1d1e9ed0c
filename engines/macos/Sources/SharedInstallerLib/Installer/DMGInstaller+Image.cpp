// From the attached image to the one bundle in it that may be installed.
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "Base/Text.h"
#include "Installer/DMGInstaller.h"
#include "Installer/Installation.h"
#include "Platform/Machine.h"
#include "Utils/ChecksumVerifier.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"
#include "Utils/SystemUtils.h"

namespace installer {

namespace {

// The first mount point that `hdiutil attach` lists; absent when the list has another shape or names none.
std::optional<Path> mountPointIn(const Json& attached) {
  if (!attached.is_object()) return std::nullopt;
  const auto entities = attached.find("system-entities");
  if (entities == attached.end() || !entities->is_array()) return std::nullopt;

  std::optional<Path> mountPoint;
  for (const Json& entity : *entities) {
    if (!entity.is_object()) return std::nullopt;
    const auto entry = entity.find("mount-point");
    if (mountPoint || entry == entity.end() || !entry->is_string()) continue;
    mountPoint = entry->get<std::string>();
  }
  return mountPoint;
}

// The property list that `hdiutil` printed, if it ended well.
std::optional<Json> listOf(const Result<ProgramExit>& exit) {
  if (!exit || exit->status != 0) return std::nullopt;
  auto list = machine().propertyList.parse(exit->output);
  return list ? std::optional{*std::move(list)} : std::nullopt;
}

// The mount points of images whose file has, or had, the path `dmgPath`. The system tells the real path,
// which can have the folders of a link before ours.
std::vector<Path> mountPointsOf(const Path& dmgPath) {
  const auto list =
      listOf(machine().processes.run(machine().paths.hdiutil, {"info", "-plist"}, CapturedOutput::separate));
  std::vector<Path> mountPoints;
  if (!list || !list->is_object()) return mountPoints;
  for (const Json& image : list->value("images", Json::array())) {
    const auto mountPoint = mountPointIn(image);
    if (!mountPoint) continue;
    const auto path = image.find("image-path");
    if (path == image.end() || !path->is_string() || !path->get<std::string>().ends_with(dmgPath)) continue;
    mountPoints.push_back(*mountPoint);
  }
  return mountPoints;
}

// An engine detaches its image before the file goes. Where the file is a new one and its volume had to take a
// numbered name, another mount of the same path was left by an engine that was killed.
void detachAbandoned(const Path& dmgPath, const Path& mountPoint) {
  const auto number = mountPoint.find_last_not_of("0123456789");
  if (number == Path::npos || number + 1 == mountPoint.size() || mountPoint[number] != ' ') return;
  for (const Path& abandoned : mountPointsOf(dmgPath)) {
    if (abandoned == mountPoint) continue;
    log(fmt::format("DMGInstaller: Detaching {}, which an interrupted run left", abandoned));
    DMGInstaller::detachDMG(abandoned);
  }
}

}  // namespace

std::expected<MountedImage, std::string> MountedImage::attach(const Path& dmgPath, const AppInfo& app) {
  log(fmt::format("Mounting DMG for {} at {}", app.displayName, dmgPath));
  const auto attached = machine().processes.run(
      machine().paths.hdiutil, {"attach", dmgPath, "-nobrowse", "-noverify", "-readonly", "-plist"},
      CapturedOutput::separate);
  if (!attached) {
    return std::unexpected(fmt::format("Failed to mount DMG: {}", attached.error().localizedDescription));
  }
  if (attached->status != 0) {
    logToolWords("DMGInstaller: hdiutil attach", attached->errorOutput);
    return std::unexpected(fmt::format("hdiutil attach failed with exit code {}", attached->status));
  }
  const auto list = machine().propertyList.parse(attached->output);
  auto mountPoint = list ? mountPointIn(*list) : std::nullopt;
  if (mountPoint) {
    detachAbandoned(dmgPath, *mountPoint);
    return MountedImage{*std::move(mountPoint)};
  }

  logToolWords("DMGInstaller: hdiutil attach", attached->output);
  return std::unexpected(list ? "No mount point found" : "Failed to parse hdiutil output");
}

MountedImage::MountedImage(MountedImage&& other) noexcept
    : mountPoint_{std::move(other.mountPoint_)}, isAttached_{std::exchange(other.isAttached_, false)} {
}

void MountedImage::detach() {
  if (!std::exchange(isAttached_, false)) return;
  DMGInstaller::detachDMG(mountPoint_);
}

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
      ErrorCode::verifyFailed));
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
      ErrorCode::signatureFailed);
}

void DMGInstaller::detachDMG(const Path& mountPoint) {
  // A volume that can't be detached changes nothing about the install.
  (void)machine().processes.run(machine().paths.hdiutil, {"detach", mountPoint, "-force", "-quiet"},
                                CapturedOutput::separate);
}

}  // namespace installer

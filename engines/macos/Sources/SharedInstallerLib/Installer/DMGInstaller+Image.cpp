// Attaches the image, chooses the bundle in it and verifies that bundle.
#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "Base/JSONReader.h"
#include "Base/Text.h"
#include "Installer/Installation.h"
#include "Platform/Machine.h"
#include "Utils/ChecksumVerifier.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/KeloAppProvider.h"
#include "Utils/Log.h"

namespace installer {

namespace {

// The first mount point in the list of `hdiutil attach`; absent when the list has another form or no mount
// point.
std::optional<Path> mountPointIn(const Json& attached) {
  if (!attached.is_object()) return std::nullopt;
  const auto entities = attached.find("system-entities");
  if (entities == attached.end() || !entities->is_array()) return std::nullopt;

  std::optional<Path> mountPoint;
  for (const Json& entity : *entities) {
    if (!entity.is_object()) return std::nullopt;
    if (!mountPoint) mountPoint = JSONReader::string(entity, "mount-point");
  }
  return mountPoint;
}

// The property list of `hdiutil`; absent after a failure.
std::optional<Json> listOf(const Result<ProgramExit>& exit) {
  if (!exit || exit->status != 0) return std::nullopt;
  auto list = machine().propertyList.parse(exit->output);
  return list ? std::optional{*std::move(list)} : std::nullopt;
}

struct AttachedImage {
  Path file;  // without links, so it can begin with other folders than ours; it may have been deleted
  Path mountPoint;
};

std::vector<AttachedImage> attachedImages() {
  const auto list =
      listOf(machine().processes.run(machine().paths.hdiutil, {"info", "-plist"}, CapturedOutput::separate));
  std::vector<AttachedImage> images;
  if (!list || !list->is_object()) return images;
  for (const Json& image : list->value("images", Json::array())) {
    auto mountPoint = mountPointIn(image);
    auto file = JSONReader::string(image, "image-path");
    if (mountPoint && file) images.push_back({*std::move(file), *std::move(mountPoint)});
  }
  return images;
}

// True for an app's download, and for an app's package in the resources of any installer.
bool isImageOfAnApp(const Path& file) {
  return std::ranges::any_of(KeloAppProvider::shared().allApps(), [&](const AppInfo& app) {
    return file.ends_with(app.tempFilePath()) ||
           file.ends_with("/Contents/Resources/packages/" + app.tempFileName);
  });
}

bool isAnyVolumeHidden() {
  const Path& volumes = machine().paths.volumes;
  const auto names = machine().files.contentsOfDirectory(volumes);
  return names && std::ranges::any_of(*names, [&](const std::string& name) {
           return machine().files.isHiddenVolume(joined(volumes, name));
         });
}

// Attaches the image and returns the mount point. The error is the text for the user.
Expected<Path, std::string> attachedAt(const Path& dmgPath) {
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
  if (auto mountPoint = list ? mountPointIn(*list) : std::nullopt) return *std::move(mountPoint);

  logToolWords("DMGInstaller: hdiutil attach", attached->output);
  return std::unexpected(list ? "No mount point found" : "Failed to parse hdiutil output");
}

// In listing order. The names are from the image, so they are checked.
std::vector<std::string> appNames(const std::vector<std::string>& entries) {
  std::vector<std::string> names;
  for (const std::string& entry : entries) {
    if (entry.ends_with(".app") && isPlainFileName(entry)) names.push_back(entry);
  }
  return names;
}

// The bundle with the identifier. A single bundle is chosen with any identifier; its signature is checked
// later.
std::optional<std::string> chosenName(const Path& mountPoint, const std::vector<std::string>& names,
                                      const std::string& identifier) {
  for (const std::string& name : names) {
    const auto bundle = ExistingAppDetector::cachedBundle(joined(mountPoint, name));
    if (bundle && bundle->bundleIdentifier() == identifier) return name;
  }
  return names.size() == 1 ? std::optional{names.front()} : std::nullopt;
}

}  // namespace

void DMGInstaller::detachInterrupted() {
  if (!isAnyVolumeHidden()) return;  // the usual case, without a program
  for (const auto& [file, mountPoint] : attachedImages()) {
    if (!isImageOfAnApp(file) || !machine().files.isHiddenVolume(mountPoint)) continue;
    log("DMGInstaller: Detaching {}, left by an interrupted run", mountPoint);
    detachDMG(mountPoint);
  }
}

Installation::End Installation::attach() {
  log("Mounting DMG for {} at {}", app_.displayName, dmgPath_);
  const auto mountPoint = attachedAt(dmgPath_);
  if (!mountPoint) return InstallResult::failure(mountPoint.error());
  image_.emplace(*mountPoint);
  return std::nullopt;
}

Installation::End Installation::chooseBundle() {
  const Path& mountPoint = image_->mountPoint();
  const auto entries = machine().files.contentsOfDirectory(mountPoint);
  if (!entries) return failed(entries.error());
  const auto names = appNames(*entries);
  if (names.empty()) {
    logToolWords("DMGInstaller: the image contains", listText(*entries));
    return InstallResult::failure("No .app bundle found in DMG");
  }
  const auto chosen = chosenName(mountPoint, names, app_.installerBundleIdentifier);
  if (!chosen) {
    log("DMGInstaller: DMG for {} carries {} app bundles, none with the expected identifier {}: {}",
        app_.displayName, names.size(), app_.installerBundleIdentifier, listText(names));
    return InstallResult::failure(
        fmt::format("The package for {} does not contain the expected application.", app_.displayName),
        ErrorCode::verifyFailed);
  }
  bundleName_ = *chosen;
  source_ = joined(mountPoint, bundleName_);
  destination_ = joined(machine().paths.applications, bundleName_);
  return std::nullopt;
}

Installation::End Installation::verifySource() const {
  // A link is refused: its target can change between this check and the copy, and only the link would be
  // copied.
  if (!machine().files.isSymbolicLink(source_) && ChecksumVerifier::verifyCodeRequirement(source_)) {
    return std::nullopt;
  }
  logError(
      "DMGInstaller: {} in the DMG for {} does not satisfy the signing requirement — refusing to install it",
      bundleName_, app_.displayName);
  return InstallResult::failure(
      fmt::format("{} could not be verified as genuine and was not installed.", app_.displayName),
      ErrorCode::signatureFailed);
}

}  // namespace installer

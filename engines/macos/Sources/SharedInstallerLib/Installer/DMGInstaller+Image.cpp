// From the attached image to the one bundle in it that may be installed.
#include <expected>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "Base/Text.h"
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

// The mount points of images whose file has, or had, the path `dmgPath`. The system reports the real path,
// which can have a link's folders before ours.
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

// An engine detaches its image before it deletes the file. So if the volume had to take a numbered name, an
// engine that was killed left another mount of the same path.
void detachAbandoned(const Path& dmgPath, const Path& mountPoint) {
  const auto number = mountPoint.find_last_not_of("0123456789");
  if (number == Path::npos || number + 1 == mountPoint.size() || mountPoint[number] != ' ') return;
  for (const Path& abandoned : mountPointsOf(dmgPath)) {
    if (abandoned == mountPoint) continue;
    log("DMGInstaller: Detaching {}, which an interrupted run left", abandoned);
    DMGInstaller::detachDMG(abandoned);
  }
}

// The mount point. The error is the text for the user; then nothing stays attached as far as can be known.
std::expected<Path, std::string> attachedAt(const Path& dmgPath) {
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

// In listing order. The names come from the image and aren't trusted to be names.
std::vector<std::string> appNames(const std::vector<std::string>& entries) {
  std::vector<std::string> names;
  for (const std::string& entry : entries) {
    if (entry.ends_with(".app") && isPlainFileName(entry)) names.push_back(entry);
  }
  return names;
}

// The one with the identifier. The only bundle is taken under any identifier: its signature is the judge.
std::optional<std::string> chosenName(const Path& mountPoint, const std::vector<std::string>& names,
                                      const std::string& identifier) {
  for (const std::string& name : names) {
    const auto bundle = ExistingAppDetector::cachedBundle(joined(mountPoint, name));
    if (bundle && bundle->bundleIdentifier() == identifier) return name;
  }
  return names.size() == 1 ? std::optional{names.front()} : std::nullopt;
}

}  // namespace

Installation::End Installation::attach() {
  log("Mounting DMG for {} at {}", app_.displayName, dmgPath_);
  const auto mountPoint = attachedAt(dmgPath_);
  if (!mountPoint) return InstallResult::failure(mountPoint.error());
  detachAbandoned(dmgPath_, *mountPoint);
  image_.emplace(*mountPoint);
  return std::nullopt;
}

Installation::End Installation::chooseBundle() {
  const Path& mountPoint = image_->mountPoint();
  const auto entries = machine().files.contentsOfDirectory(mountPoint);
  if (!entries) return failed(entries.error());
  const auto names = appNames(*entries);
  if (names.empty()) {
    logToolWords("DMGInstaller: the image holds", listText(*entries));
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
  // What a link leads to can be another thing between the look and the copy, and the copy would be of the
  // link alone.
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

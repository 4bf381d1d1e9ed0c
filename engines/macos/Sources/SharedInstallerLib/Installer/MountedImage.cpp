#include "Installer/MountedImage.h"

#include <fmt/format.h>
#include <optional>
#include <utility>

#include "Installer/DMGInstaller.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"
#include "Utils/ToolWords.h"

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
    logToolWords("DMGInstaller: hdiutil attach", attached->errorOutput, LogLevel::warn);
    return std::unexpected(fmt::format("hdiutil attach failed with exit code {}", attached->status));
  }
  const auto list = machine().propertyList.parse(attached->output);
  auto mountPoint = list ? mountPointIn(*list) : std::nullopt;
  if (mountPoint) return MountedImage{*std::move(mountPoint)};

  logToolWords("DMGInstaller: hdiutil attach", attached->output, LogLevel::warn);
  return std::unexpected(list ? "No mount point found" : "Failed to parse hdiutil output");
}

MountedImage::MountedImage(MountedImage&& other) noexcept
    : mountPoint_{std::move(other.mountPoint_)}, isAttached_{std::exchange(other.isAttached_, false)} {
}

void MountedImage::detach() {
  if (!std::exchange(isAttached_, false)) return;
  DMGInstaller::detachDMG(mountPoint_);
}

}  // namespace installer

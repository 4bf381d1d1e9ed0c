// The way back, and the platform's memory of where the bundle stood.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Installer/AppUninstaller.h"
#include "Platform/FileSystem.h"
#include "Platform/Machine.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"

namespace installer {

namespace {

// The information of the bundle as it lies on disk; absent unless it is a dictionary.
std::optional<Json> readInfoPlist(const Path& path) {
  const auto bytes = readBoundedFile(machine().files, path, kMaximumInformationBytes);
  if (!bytes) return std::nullopt;
  auto information = machine().propertyList.parse(*bytes);
  if (!information || !information->is_object()) return std::nullopt;
  return *std::move(information);
}

}  // namespace

bool AppUninstaller::restore(const Path& staged, const Path& path, const AppInfo& app) {
  if (!bundleLooksIntact(staged)) {
    logError(fmt::format(
        "AppUninstaller: NOT restoring {} — the staged bundle at {} is no longer complete; leaving it staged rather than putting a broken app back into /Applications",
        app.displayName, staged));
    unregisterFromLaunchServices(path);
    ExistingAppDetector::forgetCachedBundle(path);
    return false;
  }
  if (const auto moved = machine().files.moveItem(staged, path); !moved) {
    logError(fmt::format("AppUninstaller: FAILED to restore {} from {} to {}: {}", app.displayName, staged,
                         path, moved.error().localizedDescription));
    return false;
  }
  ExistingAppDetector::forgetCachedBundle(path);
  log(fmt::format("AppUninstaller: restored {} to {}", app.displayName, path));
  return true;
}

// Looks at the two things without which a bundle can't start, and at nothing else.
bool AppUninstaller::bundleLooksIntact(const Path& path) {
  const auto information = readInfoPlist(joined(path, "Contents/Info.plist"));
  if (!information) return false;
  const auto executable = information->find("CFBundleExecutable");
  if (executable == information->end() || !executable->is_string()) return false;
  return machine().files.fileExists(joined(joined(path, "Contents/MacOS"), executable->get<std::string>()));
}

void AppUninstaller::forgetBundle(const Path& path, const Path& staged) {
  unregisterFromLaunchServices(path);
  if (staged != path) unregisterFromLaunchServices(staged);
  ExistingAppDetector::forgetCachedBundle(path);
  ExistingAppDetector::forgetCachedBundle(staged);
}

void AppUninstaller::unregisterFromLaunchServices(const Path& path) {
  const Path& lsregister = machine().paths.lsregister;
  if (!machine().files.isExecutable(lsregister)) return;
  const auto exit = machine().processes.run(lsregister, {"-u", path}, CapturedOutput::none);
  if (!exit) {
    logWarn(fmt::format("AppUninstaller: lsregister -u failed: {}", exit.error().localizedDescription));
    return;
  }
  log(fmt::format("AppUninstaller: lsregister -u {} exited {}", path, exit->status));
}

}  // namespace installer

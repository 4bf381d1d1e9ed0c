// The hidden name beside the bundle, and the look for what would stop its deletion.
#include <fmt/format.h>

#include "Installer/AppUninstaller.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

namespace {

constexpr int stagingCandidates = 20;

}  // namespace

Path AppUninstaller::stagingPath(const Path& path, int number) {
  auto name = fmt::format(".{}.kelo-uninstall", lastPathComponent(path));
  if (number > 0) name += fmt::format(".{}", number);
  return joined(parentFolder(path), name);
}

void AppUninstaller::clearLeftovers(const Path& path) {
  if (!machine().files.clearLeftovers(path)) return;
  log(fmt::format("AppUninstaller: cleared what an interrupted run left beside {}", path));
}

std::optional<Path> AppUninstaller::claimStagingPath(const Path& path) {
  FileSystem& files = machine().files;
  for (int number = 0; number < stagingCandidates; ++number) {
    auto candidate = stagingPath(path, number);
    if (!files.itemExists(candidate)) return candidate;

    // Left by an earlier run that didn't come to its end.
    log(fmt::format("AppUninstaller: clearing a leftover staging path at {}", candidate));
    const auto removed = files.removeItem(candidate);
    if (!files.itemExists(candidate)) return candidate;
    logWarn(fmt::format("AppUninstaller: could not clear {} — trying the next staging name", candidate));
    if (!removed) logWarn("AppUninstaller: " + removed.error().localizedDescription);
  }
  logError(fmt::format("AppUninstaller: no free staging name beside {}", path));
  return std::nullopt;
}

std::optional<Path> AppUninstaller::firstUnwritableDirectory(const Path& top) {
  FileSystem& files = machine().files;
  if (files.isSymbolicLink(top)) return std::nullopt;  // its target stays as it is
  if (!files.isWritable(top)) return top;

  std::optional<Path> found;
  const auto visit = [&](const DirectoryEntry& entry) {
    if (found || entry.isSymbolicLink) return Descend::no;
    if (entry.isDirectory && !files.isWritable(entry.path)) found = entry.path;
    return found ? Descend::no : Descend::yes;
  };
  const auto onError = [&found](const Path& path, const Error& error) {
    if (found) return;  // the answer stands; the rest of the walk is of no interest
    logWarn(fmt::format("AppUninstaller: cannot enumerate {}: {}", path, error.localizedDescription));
  };
  // Without an answer from the walk, the deletion itself will tell.
  (void)files.enumerate(top, HiddenEntries::visit, visit, onError);
  return found;
}

}  // namespace installer

#include "Platform/Bundles.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer {

std::optional<Path> LinuxWorkspace::applicationPath(const std::string& bundleIdentifier) {
  std::optional<Path> stale;
  const auto applications = registry_.applications();
  for (auto entry = applications.rbegin(); entry != applications.rend(); ++entry) {
    if (entry->identifier != bundleIdentifier) continue;
    if (LinuxFileSystem{}.directoryExists(entry->path)) return entry->path;
    if (!stale) stale = entry->path;
  }
  return stale;
}

void LinuxWorkspace::registerBundle(const Path& path) {
  const auto bundle = bundles_.read(path);
  if (bundle == nullptr) return;
  const auto identifier = bundle->bundleIdentifier();
  // Failures are ignored by contract: an installed bundle that isn't registered is still found at its
  // expected path.
  (void)(identifier ? registry_.add({path, *identifier}) : registry_.remove(path));
}

}  // namespace installer

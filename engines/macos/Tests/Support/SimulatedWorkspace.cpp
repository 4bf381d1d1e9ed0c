#include "Support/SimulatedWorkspace.h"

namespace installer::test {

void SimulatedWorkspace::unregisterPath(const Path& path) {
  std::erase_if(registrations_, [&path](const auto& entry) { return entry.second == path; });
}

std::optional<Path> SimulatedWorkspace::applicationPath(const std::string& bundleIdentifier) {
  const auto found = registrations_.find(bundleIdentifier);
  return found == registrations_.end() ? std::nullopt : std::optional{found->second};
}

void SimulatedWorkspace::registerBundle(const Path& path) {
  registeredBundles_.push_back(path);
  const auto bundle = bundles_.read(path);
  if (bundle == nullptr) return;
  unregisterPath(path);
  if (const auto identifier = bundle->bundleIdentifier()) registrations_[*identifier] = path;
}

}  // namespace installer::test

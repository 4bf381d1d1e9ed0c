#include "Support/SimulatedWorkspace.h"

namespace installer::test {

void SimulatedWorkspace::unregisterPath(const Path& path) {
  std::erase_if(registrations_, [&path](const auto& entry) { return entry.second == path; });
}

std::optional<Path> SimulatedWorkspace::applicationPath(const std::string& bundleIdentifier) {
  if (plan_.answersNo("applicationPath", bundleIdentifier)) return std::nullopt;
  const auto found = registrations_.find(bundleIdentifier);
  return found == registrations_.end() ? std::nullopt : std::optional{found->second};
}

void SimulatedWorkspace::registerBundle(const Path& path) {
  if (plan_.answersNo("registerBundle", path)) return;
  const FaultPlan::Pause pause{plan_};
  registeredBundles_.push_back(path);
  const auto bundle = bundles_.read(path);
  if (bundle == nullptr) return;
  unregisterPath(path);
  if (const auto identifier = bundle->bundleIdentifier()) registrations_[*identifier] = path;
}

}  // namespace installer::test

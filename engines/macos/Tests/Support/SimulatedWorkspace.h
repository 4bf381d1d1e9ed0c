// Registrations of applications. They may be stale and have any path.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Bundles.h"
#include "Platform/Workspace.h"
#include "Support/FaultPlan.h"

namespace installer::test {

class SimulatedWorkspace : public Workspace {
 public:
  SimulatedWorkspace(Bundles& bundles, FaultPlan& plan) : bundles_{bundles}, plan_{plan} {}

  // Makes `path`, which may be missing, the registered path of `identifier`.
  void addRegistration(const std::string& identifier, const Path& path) { registrations_[identifier] = path; }
  void removeRegistration(const std::string& identifier) { registrations_.erase(identifier); }
  // Removes every registration of `path`.
  void unregisterPath(const Path& path);

  // The paths that the engine registered, in order.
  const std::vector<Path>& registeredBundles() const { return registeredBundles_; }

  std::optional<Path> applicationPath(const std::string& bundleIdentifier) override;
  void registerBundle(const Path& path) override;

 private:
  Bundles& bundles_;
  FaultPlan& plan_;
  std::map<std::string, Path> registrations_;
  std::vector<Path> registeredBundles_;
};

}  // namespace installer::test

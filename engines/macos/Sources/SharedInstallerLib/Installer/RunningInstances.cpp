#include "Installer/RunningInstances.h"

#include "Platform/Machine.h"

namespace installer {

std::vector<RunningApplication> runningInstances(const std::vector<std::string>& bundleIdentifiers) {
  std::vector<RunningApplication> running;
  for (const std::string& identifier : bundleIdentifiers) {
    for (auto& instance : machine().runningApplications.instances(identifier)) {
      running.push_back(std::move(instance));
    }
  }
  return running;
}

std::string nameOf(const RunningApplication& application) {
  return application.localizedName.value_or("unknown");
}

}  // namespace installer

// Applications that are running now, matched by the bundle identifier of the bundle they run from, wherever
// that bundle is. Any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace installer {

struct RunningApplication {
  std::optional<std::string> localizedName;  // absent when the bundle has none
  std::int32_t processIdentifier = 0;
  // Keeps hold of the very process, so that a reused identifier is never hit. Owned by the host.
  std::shared_ptr<void> handle;
};

class RunningApplications {
 public:
  virtual ~RunningApplications() = default;

  virtual std::vector<RunningApplication> instances(const std::string& bundleIdentifier) = 0;

  // Asks the application to quit; it may take its time or refuse. Returns at once.
  virtual void terminate(const RunningApplication& application) = 0;
  // Ends the process. Returns at once.
  virtual void forceTerminate(const RunningApplication& application) = 0;
};

}  // namespace installer

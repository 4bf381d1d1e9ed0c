// The running applications, found by the identifier of the bundle that they run from, at any path. Any
// thread.
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
  // Refers to the process itself, so that a reused process identifier is never signalled. Owned by the host.
  std::shared_ptr<void> handle;
};

class RunningApplications {
 public:
  virtual ~RunningApplications() = default;

  virtual std::vector<RunningApplication> instances(const std::string& bundleIdentifier) = 0;

  // Requests the application to quit; it may take long or refuse. Returns at once.
  virtual void terminate(const RunningApplication& application) = 0;
  // Ends the process. Returns at once.
  virtual void forceTerminate(const RunningApplication& application) = 0;
};

}  // namespace installer

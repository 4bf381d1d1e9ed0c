#include <csignal>

#include "Platform/Bundles.h"
#include "Platform/Linux/LinuxServices.h"
#include "Platform/Linux/Processes/ProcessHandle.h"
#include "Platform/Linux/Processes/ProcessTable.h"

namespace installer {

namespace {

void send(const RunningApplication& application, int signal) {
  const auto process = std::static_pointer_cast<FileDescriptor>(application.handle);
  // A process that has ended meanwhile needs no signal, and one that may not be signalled is met again by the
  // caller's next look.
  if (process != nullptr) (void)signalProcess(*process, signal);
}

std::optional<std::string> nameOf(const Bundle& bundle) {
  auto name = bundle.infoString("CFBundleDisplayName");
  return name ? name : bundle.infoString("CFBundleName");
}

}  // namespace

std::vector<RunningApplication> LinuxRunningApplications::instances(const std::string& bundleIdentifier) {
  std::vector<RunningApplication> found;
  for (const pid_t process : visibleProcesses()) {
    // Held before anything is read: if it still runs afterwards, what was read is about this very process.
    auto handle = std::make_shared<FileDescriptor>(holdProcess(process));
    if (!*handle) continue;
    const auto path = bundleOfProcess(process);
    const auto bundle = path && path->starts_with(joined(root_, "")) ? bundles_.read(*path) : nullptr;
    if (bundle == nullptr || bundle->bundleIdentifier() != bundleIdentifier) continue;
    if (isRunning(*handle)) found.push_back({nameOf(*bundle), process, std::move(handle)});
  }
  return found;
}

void LinuxRunningApplications::terminate(const RunningApplication& application) {
  send(application, SIGTERM);
}

void LinuxRunningApplications::forceTerminate(const RunningApplication& application) {
  send(application, SIGKILL);
}

}  // namespace installer

#include <csignal>

#include "Platform/Bundles.h"
#include "Platform/Linux/LinuxServices.h"
#include "Platform/Linux/Processes/ProcessHandle.h"
#include "Platform/Linux/Processes/ProcessTable.h"

namespace installer {

namespace {

void send(const RunningApplication& application, int signal) {
  const auto process = std::static_pointer_cast<FileDescriptor>(application.handle);
  // Failures are ignored: an ended process needs no signal, and the caller's next query finds a process that
  // may not be signalled.
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
    // Opened before anything is read: if the process still runs afterwards, the values read are its own.
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

// `RunningApplications` on NSRunningApplication.
#import <AppKit/AppKit.h>

#include "Base/POSIX/HiddenSibling.h"
#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

std::shared_ptr<void> retained(NSRunningApplication* application) {
  return {const_cast<void*>(CFBridgingRetain(application)), [](void* object) { CFRelease(object); }};
}

NSRunningApplication* object(const RunningApplication& application) {
  return (__bridge NSRunningApplication*)application.handle.get();
}

// The main run loop updates the system's list, and it doesn't run while an uninstall waits for an application
// to quit. A process that has ended is therefore no instance, even if the list has it.
bool hasProcess(NSRunningApplication* application) {
  const pid_t process = application.processIdentifier;
  return process > 0 && isRunning(process);
}

class DarwinRunningApplications final : public RunningApplications {
 public:
  std::vector<RunningApplication> instances(const std::string& bundleIdentifier) override {
    @autoreleasepool {
      std::vector<RunningApplication> found;
      NSString* identifier = nsString(bundleIdentifier);
      if (identifier == nil || bundleIdentifier.empty()) return found;
      for (NSRunningApplication* running in
           [NSRunningApplication runningApplicationsWithBundleIdentifier:identifier]) {
        if (!hasProcess(running)) continue;
        RunningApplication application;
        if (running.localizedName != nil) application.localizedName = text(running.localizedName);
        application.processIdentifier = running.processIdentifier;
        application.handle = retained(running);
        found.push_back(std::move(application));
      }
      return found;
    }
  }

  void terminate(const RunningApplication& application) override {
    @autoreleasepool {
      [object(application) terminate];
    }
  }

  void forceTerminate(const RunningApplication& application) override {
    @autoreleasepool {
      [object(application) forceTerminate];
    }
  }
};

}  // namespace

std::unique_ptr<RunningApplications> makeRunningApplications() {
  return std::make_unique<DarwinRunningApplications>();
}

}  // namespace installer::darwin

// `RunningApplications` on NSRunningApplication.
#import <AppKit/AppKit.h>

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

class DarwinRunningApplications final : public RunningApplications {
 public:
  std::vector<RunningApplication> instances(const std::string& bundleIdentifier) override {
    @autoreleasepool {
      std::vector<RunningApplication> found;
      for (NSRunningApplication* running in
           [NSRunningApplication runningApplicationsWithBundleIdentifier:nsString(bundleIdentifier)]) {
        RunningApplication application;
        if (running.localizedName != nil) application.localizedName = text(running.localizedName);
        application.processIdentifier = running.processIdentifier;
        application.handle = retained(running);
        found.push_back(std::move(application));
      }
      return found;
    }
  }

  void terminate(const RunningApplication& application) override { [object(application) terminate]; }
  void forceTerminate(const RunningApplication& application) override {
    [object(application) forceTerminate];
  }
};

}  // namespace

std::unique_ptr<RunningApplications> makeRunningApplications() {
  return std::make_unique<DarwinRunningApplications>();
}

}  // namespace installer::darwin

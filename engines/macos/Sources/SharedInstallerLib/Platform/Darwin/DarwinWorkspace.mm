// `Workspace` on NSWorkspace and Launch Services.
#import <AppKit/AppKit.h>
#import <CoreServices/CoreServices.h>

#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

class DarwinWorkspace final : public Workspace {
 public:
  std::optional<Path> applicationPath(const std::string& bundleIdentifier) override {
    @autoreleasepool {
      NSString* identifier = nsString(bundleIdentifier);
      if (identifier == nil || bundleIdentifier.empty()) return std::nullopt;
      NSURL* found = [[NSWorkspace sharedWorkspace] URLForApplicationWithBundleIdentifier:identifier];
      if (found == nil) return std::nullopt;
      return text(found.path);
    }
  }

  void registerBundle(const Path& path) override {
    @autoreleasepool {
      NSURL* url = fileURL(path);
      if (url == nil) return;
      // Failures are ignored: the detector also checks the expected path.
      (void)LSRegisterURL((__bridge CFURLRef)url, true);
    }
  }
};

}  // namespace

std::unique_ptr<Workspace> makeWorkspace() {
  return std::make_unique<DarwinWorkspace>();
}

}  // namespace installer::darwin

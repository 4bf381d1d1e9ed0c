// `Bundles` on NSBundle. No object is kept, because one object answers from memory for as long as it lives.
#import <Foundation/Foundation.h>

#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

class DarwinBundles final : public Bundles {
 public:
  std::shared_ptr<const Bundle> read(const Path& path) override {
    @autoreleasepool {
      NSBundle* found = [[NSBundle alloc] initWithPath:nsString(path)];
      if (found == nil) return nullptr;
      auto bundle = std::make_shared<Bundle>();
      bundle->path = path;
      if (found.infoDictionary != nil) bundle->infoDictionary = json(found.infoDictionary);
      return bundle;
    }
  }

  std::optional<Path> mainResources() override {
    @autoreleasepool {
      NSString* path = [NSBundle mainBundle].resourceURL.path;
      if (path == nil) return std::nullopt;
      return text(path);
    }
  }
};

}  // namespace

std::unique_ptr<Bundles> makeBundles() { return std::make_unique<DarwinBundles>(); }

}  // namespace installer::darwin

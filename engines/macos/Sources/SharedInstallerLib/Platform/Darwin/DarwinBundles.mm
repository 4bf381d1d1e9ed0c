// `Bundles` on NSBundle and on what CoreFoundation reads for it. NSBundle hands out one object for a path for
// as long as anybody holds it, and that object answers from memory, so the information is read from the
// directory itself each time.
#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#include <nlohmann/json.hpp>
#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

bool isDirectory(NSString* path) {
  BOOL directory = NO;
  return path != nil && [[NSFileManager defaultManager] fileExistsAtPath:path isDirectory:&directory] &&
         directory;
}

class DarwinBundles final : public Bundles {
 public:
  std::shared_ptr<const Bundle> read(const Path& path) override {
    @autoreleasepool {
      NSURL* url = fileURL(path);
      if (url == nil || !isDirectory(url.path)) return nullptr;
      auto bundle = std::make_shared<Bundle>();
      bundle->path = path;
      NSDictionary* information =
          (__bridge_transfer NSDictionary*)CFBundleCopyInfoDictionaryInDirectory((__bridge CFURLRef)url);
      if (information != nil) bundle->infoDictionary = std::make_shared<const Json>(json(information));
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

// `Bundles`. NSBundle shares one object per path while it is retained and caches its information, so the file
// is read each time. NSBundle is used only for the resources of this executable.
#import <Foundation/Foundation.h>

#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

class DarwinBundles final : public Bundles {
 public:
  std::shared_ptr<const Bundle> read(const Path& path) override {
    return readBundle(*files_, *propertyList_, path);
  }

  std::optional<Path> mainResources() override {
    @autoreleasepool {
      NSString* path = [NSBundle mainBundle].resourceURL.path;
      if (path == nil) return std::nullopt;
      return text(path);
    }
  }

 private:
  std::unique_ptr<FileSystem> files_ = makeFileSystem();
  std::unique_ptr<PropertyList> propertyList_ = makePropertyList();
};

}  // namespace

std::unique_ptr<Bundles> makeBundles() {
  return std::make_unique<DarwinBundles>();
}

}  // namespace installer::darwin

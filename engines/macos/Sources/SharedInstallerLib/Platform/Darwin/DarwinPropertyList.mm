// `PropertyList` on NSPropertyListSerialization.
#import <Foundation/Foundation.h>

#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

class DarwinPropertyList final : public PropertyList {
 public:
  Result<Json> parse(std::string_view bytes) override {
    @autoreleasepool {
      NSError* problem = nil;
      id value = [NSPropertyListSerialization propertyListWithData:nsData(bytes)
                                                           options:NSPropertyListImmutable
                                                            format:nil
                                                             error:&problem];
      if (value != nil) return json(value);
      return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt, error(problem).localizedDescription);
    }
  }
};

}  // namespace

std::unique_ptr<PropertyList> makePropertyList() { return std::make_unique<DarwinPropertyList>(); }

}  // namespace installer::darwin

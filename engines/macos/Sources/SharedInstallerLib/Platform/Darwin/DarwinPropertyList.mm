// `PropertyList` on NSPropertyListSerialization.
#import <Foundation/Foundation.h>
#include <algorithm>
#include <nlohmann/json.hpp>

#include "Base/POSIX/PropertyListBounds.h"
#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

std::unexpected<Error> corrupt(std::string_view reason) {
  return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt,
                 "The property list can’t be read: " + std::string{reason});
}

std::string_view withoutByteOrderMark(std::string_view bytes) {
  constexpr std::string_view mark = "\xEF\xBB\xBF";
  if (bytes.starts_with(mark)) bytes.remove_prefix(mark.size());
  return bytes;
}

// The system's reader recurses without a limit.
bool isBounded(std::string_view bytes) {
  return bytes.starts_with(kBinaryPropertyListMagic) ? isBoundedBinaryPropertyList(bytes)
                                                     : isBoundedXMLPropertyList(bytes);
}

// A property list has no null; a null marks a value without a counterpart in JSON.
bool holdsNull(const Json& value) {
  return value.is_null() || (value.is_structured() && std::ranges::any_of(value, holdsNull));
}

class DarwinPropertyList final : public PropertyList {
 public:
  Result<Json> parse(std::string_view bytes) override {
    bytes = withoutByteOrderMark(bytes);
    if (bytes.empty()) return corrupt("it is empty");
    if (bytes.size() > PropertyListBounds{}.bytes) return corrupt("it is too long");
    if (!isBounded(bytes)) return corrupt("it is malformed");
    @autoreleasepool {
      return parseBounded(bytes);
    }
  }

 private:
  static Result<Json> parseBounded(std::string_view bytes) {
    NSError* problem = nil;
    NSPropertyListFormat format = NSPropertyListXMLFormat_v1_0;
    id found = [NSPropertyListSerialization propertyListWithData:nsData(bytes)
                                                         options:NSPropertyListImmutable
                                                          format:&format
                                                           error:&problem];
    if (found == nil) return corrupt(error(problem).localizedDescription);
    // In the oldest format almost any word is a string.
    if (format == NSPropertyListOpenStepFormat) return corrupt("it is malformed");
    Json value = json(found);
    if (holdsNull(value)) return corrupt("it contains a value of an unsupported type");
    return value;
  }
};

}  // namespace

std::unique_ptr<PropertyList> makePropertyList() {
  return std::make_unique<DarwinPropertyList>();
}

}  // namespace installer::darwin

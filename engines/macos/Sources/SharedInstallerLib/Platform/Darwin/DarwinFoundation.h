// Translations between the seam's values and Foundation's. Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>
#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Base/JSONReader.h"

namespace installer::darwin {

// Nil for bytes that aren't UTF-8 and for text with a NUL, at which Foundation would cut it. Many methods
// raise an exception for nil, so the caller must check.
NSString* nsString(std::string_view text);
std::string text(NSString* string);  // nil gives the empty string

NSData* nsData(std::string_view bytes);
std::string bytes(NSData* data);

// Nil for a path that isn't absolute or that `nsString` refuses.
NSURL* fileURL(std::string_view path);

// Domain, code and localised description unchanged, and a download's resume data. A nil error, which a failed
// method may leave, gives an unknown error of Cocoa's domain.
Error error(NSError* error);
inline std::unexpected<Error> failed(NSError* given) {
  return std::unexpected(error(given));
}

// A property-list value. A value without a counterpart in JSON, or nested deeper than 512 levels, is null.
Json json(id value);

}  // namespace installer::darwin

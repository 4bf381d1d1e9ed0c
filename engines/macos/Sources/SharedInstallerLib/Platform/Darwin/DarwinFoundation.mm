#import "Platform/Darwin/DarwinFoundation.h"

#include <nlohmann/json.hpp>

namespace installer::darwin {

namespace {

constexpr int kDeepestNesting = 512;

Json jsonOfNumber(NSNumber* number) {
  if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID()) return number.boolValue == YES;
  if (CFNumberIsFloatType((__bridge CFNumberRef)number)) return number.doubleValue;
  return number.longLongValue;
}

Json jsonAtDepth(id value, int depth) {
  if (depth > kDeepestNesting) return nullptr;
  if ([value isKindOfClass:[NSString class]]) return text(value);
  if ([value isKindOfClass:[NSNumber class]]) return jsonOfNumber(value);
  if ([value isKindOfClass:[NSData class]]) {
    const std::string content = bytes(value);
    return Json::binary({content.begin(), content.end()});
  }
  if ([value isKindOfClass:[NSDate class]]) return ((NSDate*)value).timeIntervalSince1970;
  if ([value isKindOfClass:[NSArray class]]) {
    Json array = Json::array();
    for (id element in (NSArray*)value) array.push_back(jsonAtDepth(element, depth + 1));
    return array;
  }
  if ([value isKindOfClass:[NSDictionary class]]) {
    Json object = Json::object();
    NSDictionary* dictionary = value;
    for (id key in dictionary) {
      if ([key isKindOfClass:[NSString class]]) object[text(key)] = jsonAtDepth(dictionary[key], depth + 1);
    }
    return object;
  }
  return nullptr;
}

}  // namespace

NSString* nsString(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return nil;
  return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

std::string text(NSString* string) {
  if (string == nil) return {};
  return bytes([string dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES]);
}

NSData* nsData(std::string_view bytes) {
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

std::string bytes(NSData* data) {
  if (data == nil || data.length == 0) return {};
  return {static_cast<const char*>(data.bytes), data.length};
}

NSURL* fileURL(std::string_view path) {
  NSString* absolute = path.starts_with('/') ? nsString(path) : nil;
  return absolute != nil ? [NSURL fileURLWithPath:absolute] : nil;
}

Error error(NSError* given) {
  if (given == nil) {
    return {std::string{ErrorDomain::cocoa}, CocoaError::fileReadUnknown, "The operation failed.", nullptr};
  }
  const auto domain = text(given.domain);
  // The sentence has domain and code, so that every log line with it names the cause.
  Error translated{domain, given.code,
                   text(given.localizedDescription) + " (" + domain + " " + std::to_string(given.code) + ")",
                   nullptr};
  id resumeData = given.userInfo[NSURLSessionDownloadTaskResumeData];
  if ([resumeData isKindOfClass:[NSData class]]) {
    translated.downloadResumeData = std::make_shared<const std::string>(bytes(resumeData));
  }
  return translated;
}

Json json(id value) {
  return jsonAtDepth(value, 0);
}

}  // namespace installer::darwin

#import "Platform/Darwin/DarwinURLTranslation.h"

#import "Platform/Darwin/DarwinFoundation.h"

namespace installer::darwin {

NSURL* nsURL(const URL& url) {
  NSString* address = nsString(url.absoluteString());
  NSURL* made = address != nil ? [NSURL URLWithString:address] : nil;
  if (made == nil || text(made.host) != url.host().value_or("")) return nil;
  return made;
}

URL urlOf(NSURL* given) {
  return given != nil ? URL::parse(text(given.absoluteString)).value_or(URL{}) : URL{};
}

static NSURLRequestCachePolicy policyOf(CachePolicy policy) {
  switch (policy) {
    case CachePolicy::protocolDefault: return NSURLRequestUseProtocolCachePolicy;
    case CachePolicy::reloadIgnoringLocalCacheData: return NSURLRequestReloadIgnoringLocalCacheData;
    case CachePolicy::reloadIgnoringLocalAndRemoteCacheData:
      return NSURLRequestReloadIgnoringLocalAndRemoteCacheData;
  }
}

NSURLRequest* nsRequest(const URLRequest& request, NSURL* url) {
  NSMutableURLRequest* made = [NSMutableURLRequest requestWithURL:url
                                                      cachePolicy:policyOf(request.cachePolicy)
                                                  timeoutInterval:request.timeoutInterval.count()];
  if (NSString* method = nsString(request.method)) made.HTTPMethod = method;
  return made;
}

NSURLRequest* followed(const URLRequest& allowed, const URLRequest& asked, NSURLRequest* request) {
  if (allowed.url == asked.url && allowed.method == asked.method) return request;
  NSURL* url = nsURL(allowed.url);
  return url != nil ? nsRequest(allowed, url) : nil;
}

std::optional<HTTPURLResponse> responseOf(NSURLResponse* response) {
  if (![response isKindOfClass:[NSHTTPURLResponse class]]) return std::nullopt;
  NSHTTPURLResponse* http = (NSHTTPURLResponse*)response;
  return HTTPURLResponse{static_cast<int>(http.statusCode), urlOf(http.URL)};
}

Error urlError(std::int64_t code, const char* description) {
  return {std::string{ErrorDomain::url}, code, description, nullptr};
}

}  // namespace installer::darwin

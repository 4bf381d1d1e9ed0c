// Translations between the seam's requests and answers and Foundation's. Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>
#include <optional>

#include "Platform/URLSession.h"

namespace installer::darwin {

// Nil when the system reads another host from the text than the one that the engine checked.
NSURL* nsURL(const URL& url);
// `URL{}` for an address that the strict reader can't parse.
URL urlOf(NSURL* given);

NSURLRequest* nsRequest(const URLRequest& request, NSURL* url);
// The request to follow: `request` itself when `allowed` equals `asked`, which was made from it. Nil when it
// can't be followed.
NSURLRequest* followed(const URLRequest& allowed, const URLRequest& asked, NSURLRequest* request);

// Absent when the answer isn't HTTP.
std::optional<HTTPURLResponse> responseOf(NSURLResponse* response);

Error urlError(std::int64_t code, const char* description);

}  // namespace installer::darwin

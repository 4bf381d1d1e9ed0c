// Translations between the seam's requests and answers and Foundation's. Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>

#include <optional>

#include "Platform/URLSession.h"

namespace installer::darwin {

// Nil when the system would read another host out of the text than the engine judged.
NSURL* nsURL(const URL& url);
// `URL{}` for an address that the strict reader can't take apart.
URL urlOf(NSURL* given);

NSURLRequest* nsRequest(const URLRequest& request, NSURL* url);
// The request to follow where `asked` was the question about the system's `request`; nil when it can't be
// followed.
NSURLRequest* followed(const URLRequest& allowed, const URLRequest& asked, NSURLRequest* request);

// Absent when the answer isn't HTTP.
std::optional<HTTPURLResponse> responseOf(NSURLResponse* response);

Error urlError(std::int64_t code, const char* description);

}  // namespace installer::darwin

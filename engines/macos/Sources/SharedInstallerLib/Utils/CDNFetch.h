// Checks each redirect of the metadata fetches and records the tasks that it stopped, so that the caller can
// distinguish a refusal from a network failure. Callbacks run on the session's queue; queries from any
// thread.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

#include "Base/Error.h"
#include "Base/Mutex.h"
#include "Base/URL.h"
#include "Platform/Dispatch.h"
#include "Platform/URLSession.h"
#include "Utils/CDNSource.h"

namespace installer {

class TrustedRedirectDelegate : public URLSessionDelegate {
 public:
  void willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& task,
                                  const HTTPURLResponse& redirect, const URLRequest& newRequest,
                                  const RedirectDecision& decide) override;

  // True when a redirect of that task was refused. The call erases the record: a second call is false.
  bool didRefuseRedirect(int forTask);

 private:
  Mutex lock_;
  std::unordered_set<int> refusedTasks_ GUARDED_BY(lock_);
};

}  // namespace installer

// One metadata request of the CDN source, from the trust test to the kind of its failure.
namespace installer::CDNSource {

// The body of `url`. Blocks for at most `timeout`, independent of the request's own timer. `label` names the
// app in the log. An untrusted URL is never requested.
Expected<std::string, CDNFetchError> fetchJSON(const URL& url, Duration timeout, std::string_view label);

}  // namespace installer::CDNSource

// Judges each redirect of the metadata fetches and remembers which tasks it stopped, so that a refusal can be
// told apart from a network failure. Callbacks come on the session's queue, questions from any thread.
#pragma once

#include <expected>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

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

  // Whether a redirect of that task was refused. Asking forgets it: true once, false from then on.
  bool didRefuseRedirect(int forTask);

 private:
  Mutex lock_;
  std::unordered_set<int> refusedTasks_ GUARDED_BY(lock_);
};

}  // namespace installer

// One metadata request of the CDN source, from the trust test to the sorting of its failure.
namespace installer::CDNSource {

// The body of `url`. Blocks for at most `timeout`, whatever the request's own timer does. `label` names the
// app in the log. A place that isn't trusted is never asked.
std::expected<std::string, CDNFetchError> fetchJSON(const URL& url, Duration timeout, std::string_view label);

}  // namespace installer::CDNSource

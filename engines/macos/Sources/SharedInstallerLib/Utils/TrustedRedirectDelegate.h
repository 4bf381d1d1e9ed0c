// Judges each redirect of the metadata fetches and remembers which tasks it stopped, so that a refusal can be
// told apart from a network failure. Callbacks come on the session's queue, questions from any thread.
#pragma once

#include <memory>
#include <mutex>
#include <unordered_set>

#include "Platform/URLSession.h"

namespace installer {

class TrustedRedirectDelegate : public URLSessionDelegate {
 public:
  void willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& task,
                                  const HTTPURLResponse& redirect, const URLRequest& newRequest,
                                  const RedirectDecision& decide) override;

  // Whether a redirect of that task was refused. Asking forgets it: true once, false from then on.
  bool didRefuseRedirect(int forTask);

 private:
  std::mutex lock_;  // held for the one set operation only
  std::unordered_set<int> refusedTasks_;
};

}  // namespace installer

#include "Utils/TrustedRedirectDelegate.h"

#include <fmt/format.h>

#include "Base/Text.h"
#include "Utils/InstallerConfig.h"
#include "Utils/Log.h"
#include "Utils/URLTrust.h"

namespace installer {

void TrustedRedirectDelegate::willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& task,
                                                         const HTTPURLResponse& /*redirect*/,
                                                         const URLRequest& newRequest,
                                                         const RedirectDecision& decide) {
  if (URLTrust::isTrusted(newRequest.url)) {
    decide(newRequest);
    return;
  }
  logError(
      fmt::format("URLTrust: refusing a redirect to '{}' — not https on a host in trustedDownloadDomains {}",
                  URLTrust::hostForLog(newRequest.url), listText(InstallerConfig::trustedDownloadDomains())));
  {
    // In the set before the refusal can be seen anywhere: whether the task then ends with the redirect's own
    // answer or with a cancellation is a race.
    const std::lock_guard guard{lock_};
    refusedTasks_.insert(task->taskIdentifier());
  }
  decide(std::nullopt);
  task->cancel();
}

bool TrustedRedirectDelegate::didRefuseRedirect(int forTask) {
  const std::lock_guard guard{lock_};
  return refusedTasks_.erase(forTask) > 0;
}

}  // namespace installer

#include "Utils/CDNFetch.h"

#include <memory>
#include <optional>

#include "Base/ProcessWide.h"
#include "Base/Text.h"
#include "Platform/Machine.h"
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
  logError("URLTrust: refusing a redirect to '{}' — not https on a host in trustedDownloadDomains {}",
           URLTrust::hostForLog(newRequest.url), listText(InstallerConfig::trustedDownloadDomains()));
  {
    // Inserted before the task can end: its end races between the redirect's own answer and a cancellation,
    // and the completion reads the set in both cases.
    const MutexLock guard{lock_};
    refusedTasks_.insert(task->taskIdentifier());
  }
  decide(std::nullopt);
  task->cancel();
}

bool TrustedRedirectDelegate::didRefuseRedirect(int forTask) {
  const MutexLock guard{lock_};
  return refusedTasks_.erase(forTask) > 0;
}

}  // namespace installer

namespace installer::CDNSource {

namespace {

using Outcome = Expected<std::string, CDNFetchError>;

// The session of all fetches, with the delegate that records the refused redirects.
struct Connection {
  std::shared_ptr<TrustedRedirectDelegate> redirectDelegate = std::make_shared<TrustedRedirectDelegate>();
  std::shared_ptr<URLSession> session = machine().sessions.make(redirectDelegate);

  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { session->invalidateAndCancel(); }
};

Connection& connection() {
  static constinit ProcessWide<Connection> shared{[] { return std::make_unique<Connection>(); }};
  return shared.get();
}

// Shared by the completion of one fetch and the thread that waits for it.
struct Fetch {
  URL url;
  std::string label;
  std::shared_ptr<TrustedRedirectDelegate> redirectDelegate = connection().redirectDelegate;
  std::shared_ptr<Semaphore> done = machine().dispatch.makeSemaphore(0);
  int taskIdentifier = -1;                                      // written before the task is resumed
  Outcome outcome = std::unexpected(CDNFetchError::transient);  // read only after `done` was signalled
};

// A host name that doesn't resolve counts as a missing tree; `InstallerLifecycle` confirms or rejects it.
CDNFetchError classify(const Error& error) {
  return error.is(ErrorDomain::url, URLErrorCode::cannotFindHost) ? CDNFetchError::notFound
                                                                  : CDNFetchError::transient;
}

CDNFetchError classifyStatus(int status) {
  return status == 404 || status == 410 || status == 403 ? CDNFetchError::notFound : CDNFetchError::transient;
}

Outcome refusedRedirect(const Fetch& fetch) {
  logError("CDNSource: {} metadata fetch was refused — untrusted redirect", fetch.label);
  return std::unexpected(CDNFetchError::untrusted);
}

Outcome failed(const Fetch& fetch, const Error& error, bool wasRefused) {
  if (error.code == URLErrorCode::cancelled && wasRefused) return refusedRedirect(fetch);
  logWarn("CDNSource: fetch failed for {} ({}): {}", fetch.label, fetch.url.lastPathComponent(),
          error.localizedDescription);
  return std::unexpected(classify(error));
}

Outcome judge(const Fetch& fetch, std::optional<std::string> data,
              const std::optional<HTTPURLResponse>& response, const std::optional<Error>& error) {
  const bool wasRefused = fetch.redirectDelegate->didRefuseRedirect(fetch.taskIdentifier);
  if (error) return failed(fetch, *error, wasRefused);
  // A refused redirect can arrive as a plain 3xx answer too.
  if (wasRefused) return refusedRedirect(fetch);
  if (response && !URLTrust::isTrusted(response->url)) {
    logError("CDNSource: {} metadata came from an untrusted host — {}", fetch.label,
             URLTrust::refusalReason(response->url));
    return std::unexpected(CDNFetchError::untrusted);
  }
  if (response && (response->statusCode < 200 || response->statusCode > 299)) {
    log("CDNSource: HTTP {} for {} at {}", response->statusCode, fetch.label, fetch.url.absoluteString());
    return std::unexpected(classifyStatus(response->statusCode));
  }
  return std::move(data).value_or(std::string{});
}

std::shared_ptr<URLSessionTask> start(const std::shared_ptr<Fetch>& fetch, Duration timeout) {
  const URLRequest request{.url = fetch->url,
                           .method = "GET",
                           .cachePolicy = CachePolicy::reloadIgnoringLocalCacheData,
                           .timeoutInterval = timeout};
  auto task = connection().session->dataTask(request, [fetch](auto data, auto response, auto error) {
    fetch->outcome = judge(*fetch, std::move(data), response, error);
    fetch->done->signal();
  });
  fetch->taskIdentifier = task->taskIdentifier();
  task->resume();
  return task;
}

}  // namespace

Outcome fetchJSON(const URL& url, Duration timeout, std::string_view label) {
  if (!URLTrust::isTrusted(url)) {
    logError("CDNSource: refusing to fetch {} metadata — {}", label, URLTrust::refusalReason(url));
    return std::unexpected(CDNFetchError::untrusted);
  }
  const auto fetch = std::make_shared<Fetch>(Fetch{.url = url, .label = std::string{label}});
  const auto task = start(fetch, timeout);
  if (!fetch->done->waitFor(timeout)) {
    task->cancel();
    logWarn("CDNSource: fetch timed out for {} at {}", label, url.absoluteString());
    return std::unexpected(CDNFetchError::transient);
  }
  return std::move(fetch->outcome);
}

}  // namespace installer::CDNSource

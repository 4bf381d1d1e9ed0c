// HTTP over TLS: data tasks, resumable download tasks, and a callback before each redirect.
//
// Threads: any thread may create, resume and cancel tasks. The callbacks of one session, including
// completions of data tasks, run one at a time, in order, on the session's own queue; never inside the call
// that created, resumed or cancelled the task.
// Ownership: a session keeps its delegate alive until it is invalidated and its last task has ended.
// Errors are `ErrorDomain::url`, with the codes of `URLErrorCode`.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Base/Error.h"
#include "Base/Path.h"
#include "Base/URL.h"
#include "Platform/Dispatch.h"

namespace installer {

enum class CachePolicy {
  protocolDefault,
  reloadIgnoringLocalCacheData,
  reloadIgnoringLocalAndRemoteCacheData
};

struct URLRequest {
  URL url;
  std::string method = "GET";
  CachePolicy cachePolicy = CachePolicy::protocolDefault;
  Duration timeoutInterval{60.0};  // of silence: each received byte restarts it
};

struct HTTPURLResponse {
  int statusCode = 0;
  URL url;  // the final one, after redirects
};

class URLSessionTask {
 public:
  virtual ~URLSessionTask() = default;
  virtual int taskIdentifier() const = 0;  // unique in its session, known before `resume`
  virtual void resume() = 0;               // starts; a task that is never resumed does nothing
  // Ends the task with `URLErrorCode::cancelled`, unless it has ended already. The callbacks that end a task
  // still run, later.
  virtual void cancel() = 0;
  virtual std::optional<HTTPURLResponse> response() const = 0;  // absent until its head has arrived
};

// Takes the request to follow, or nothing to refuse. After a refusal the task ends with the redirect's own
// answer (a 3xx) as its result, unless it is also cancelled. Called at most once, from any thread.
using RedirectDecision = std::function<void(std::optional<URLRequest>)>;

class URLSessionDelegate {
 public:
  virtual ~URLSessionDelegate() = default;

  // Called when a redirect's head has arrived; a target that isn't a strict URL is `URL{}`. By default
  // follows.
  virtual void willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& task,
                                          const HTTPURLResponse& redirect, const URLRequest& newRequest,
                                          const RedirectDecision& decide);

  // Download tasks only. `totalBytesWritten` includes the earlier bytes of a resumed download.
  // `totalBytesExpectedToWrite` is -1 when the server doesn't send the length.
  virtual void didWriteData(const std::shared_ptr<URLSessionTask>& task, std::int64_t totalBytesWritten,
                            std::int64_t totalBytesExpectedToWrite);
  // Download tasks only: a complete body, with any status. The file is deleted when this returns.
  virtual void didFinishDownloadingTo(const std::shared_ptr<URLSessionTask>& task, const Path& location);
  // The last callback of a task without a completion; the error is absent after a success.
  virtual void didCompleteWithError(const std::shared_ptr<URLSessionTask>& task,
                                    const std::optional<Error>& error);
};

// A success has a response, and data unless the body is empty; a failure has an error, and the response if
// one arrived.
using DataTaskCompletion = std::function<void(
    std::optional<std::string> data, std::optional<HTTPURLResponse> response, std::optional<Error> error)>;

class URLSession {
 public:
  virtual ~URLSession() = default;

  // Larger than any metadata; bounds the memory for an endless body.
  static constexpr std::size_t kMaximumDataLength = std::size_t{8} << 20U;

  // The completion runs exactly once after `resume`. The body is kept in memory; a body longer than
  // `kMaximumDataLength` fails with `URLErrorCode::dataLengthExceedsMaximum`.
  virtual std::shared_ptr<URLSessionTask> dataTask(const URLRequest& request,
                                                   DataTaskCompletion completion) = 0;

  // Streams the body to a temporary file.
  virtual std::shared_ptr<URLSessionTask> downloadTask(const URL& url) = 0;
  // Resumes from `Error::downloadResumeData`. A resource that changed meanwhile is downloaded again from its
  // first byte; bytes of two versions are never joined. Invalid resume data gives a task that fails at once.
  virtual std::shared_ptr<URLSessionTask> downloadTaskWithResumeData(const std::string& resumeData) = 0;

  // Both end the session: a task created later fails with `URLErrorCode::cancelled` when resumed.
  virtual void finishTasksAndInvalidate() = 0;  // running tasks finish
  virtual void invalidateAndCancel() = 0;       // running tasks are cancelled
};

class URLSessions {
 public:
  virtual ~URLSessions() = default;
  // The process's session without a delegate; follows redirects.
  virtual std::shared_ptr<URLSession> shared() = 0;
  virtual std::shared_ptr<URLSession> make(std::shared_ptr<URLSessionDelegate> delegate) = 0;
};

}  // namespace installer

// A session's task on this host: its `resume`, its redirects and its end.
//
// Any thread may call the seam's functions. Everything else runs on the engine's thread, and every callback
// to the caller on the session's queue.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Mutex.h"
#include "Platform/Linux/HTTP/CurlTransfer.h"
#include "Platform/Linux/HTTP/URLSessionCore.h"
#include "Platform/URLSession.h"

namespace installer {

class LinuxURLTask : public URLSessionTask,
                     public CurlTransfer::Client,
                     public std::enable_shared_from_this<LinuxURLTask> {
 public:
  using Verdict = CurlTransfer::Verdict;

  LinuxURLTask(std::shared_ptr<URLSessionCore> session, URLRequest request);

  int taskIdentifier() const override { return taskIdentifier_; }
  void resume() override;
  void cancel() override;
  std::optional<HTTPURLResponse> response() const override;

 protected:
  URLSessionCore& session() { return *session_; }
  const URLRequest& request() const { return request_; }  // the current one, after redirects

  // Runs before the first request; an error ends the task instead.
  virtual std::optional<Error> prepare() { return std::nullopt; }
  // Additional header fields, called before each request.
  virtual std::vector<std::string> requestFields() { return {}; }
  // The head of an answer that isn't a redirect to follow.
  virtual Verdict acceptHead(const ResponseHead& head) = 0;
  // A whole body has arrived, or the answer is a refused redirect and no head was accepted.
  virtual void succeed() = 0;
  // The transfer failed. By default the task ends with that failure.
  virtual void breakOff(const CurlFailure& failure);

  // Engine's thread. Requests the current URL again.
  void startRequest();
  // End the task; later calls do nothing. `deliver` runs on the session's queue.
  void endWith(Error error);
  void endWith(Work deliver);
  bool isCancelled() const { return isCancelRequested_; }
  // Delivers an error to the caller; runs on the session's queue.
  virtual void deliverError(const Error& error) = 0;
  // Keeps or removes the files of a failed or cancelled task.
  virtual void discard(Error& /*error*/) {}

 private:
  const std::shared_ptr<URLSessionCore> session_;
  const int taskIdentifier_;
  const bool wasMadeTooLate_;  // the session was already invalidated
  URLRequest request_;

  std::atomic<bool> isResumed_{false};
  std::atomic<bool> isCancelRequested_{false};

  CurlTransfer* transfer_ = nullptr;
  bool hasEnded_ = false;
  std::optional<URLRequest> redirect_;  // the request that a received redirect asks for
  int redirectCount_ = 0;

  mutable Mutex responseMutex_;
  std::optional<HTTPURLResponse> response_ GUARDED_BY(responseMutex_);

  Verdict didReceiveHead(const ResponseHead& head) final;
  void didEnd(const CurlFailure& failure) final;

  void start();
  void setResponse(std::optional<HTTPURLResponse> response);
  bool endsBecauseCancelled();
  void askAboutRedirect();
  void decided(std::optional<URLRequest> follow);
};

}  // namespace installer

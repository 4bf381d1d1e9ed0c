#include "Platform/Linux/HTTP/LinuxURLTask.h"

#include <strings.h>
#include <utility>

namespace installer {

namespace {

constexpr int kMaximumRedirects = 20;

bool isHTTPS(const URL& url) {
  return url.scheme() && url.host() && strcasecmp(url.scheme()->c_str(), "https") == 0;
}

}  // namespace

LinuxURLTask::LinuxURLTask(std::shared_ptr<URLSessionCore> session, URLRequest request)
    : session_{std::move(session)},
      taskIdentifier_{session_->nextTaskIdentifier()},
      wasMadeTooLate_{session_->isInvalidated()},
      request_{std::move(request)} {
}

void LinuxURLTask::resume() {
  if (isResumed_.exchange(true)) return;
  session_->taskStarted(shared_from_this());
  session_->engine().post([self = shared_from_this()] { self->start(); });
}

// No file of a cancelled task remains after this returns, even if the process ends at once.
void LinuxURLTask::cancel() {
  isCancelRequested_ = true;
  if (!isResumed_.exchange(true)) session_->taskStarted(shared_from_this());
  session_->engine().run([this] { endsBecauseCancelled(); });
}

std::optional<HTTPURLResponse> LinuxURLTask::response() const {
  const MutexLock guard{responseMutex_};
  return response_;
}

void LinuxURLTask::start() {
  if (endsBecauseCancelled()) return;
  if (auto error = prepare()) {
    endWith(std::move(*error));
    return;
  }
  startRequest();
}

bool LinuxURLTask::endsBecauseCancelled() {
  if (!isCancelRequested_ && !wasMadeTooLate_ && !session_->isCancelled()) return false;
  endWith(cancelledError());
  return true;
}

void LinuxURLTask::startRequest() {
  redirect_.reset();
  if (!isHTTPS(request_.url)) {
    endWith(urlError({.code = CURLE_UNSUPPORTED_PROTOCOL, .osErrno = 0, .words = "unsupported URL"}, true));
    return;
  }
  setResponse(std::nullopt);
  transfer_ = session_->engine().start({.url = request_.url,
                                        .method = request_.method,
                                        .fields = requestFields(),
                                        .silence = request_.timeoutInterval},
                                       shared_from_this());
}

void LinuxURLTask::setResponse(std::optional<HTTPURLResponse> response) {
  const MutexLock guard{responseMutex_};
  response_ = std::move(response);
}

// A redirect is decided by its head alone: its body may be truncated or endless.
CurlTransfer::Verdict LinuxURLTask::didReceiveHead(const ResponseHead& head) {
  setResponse(HTTPURLResponse{head.status, head.url});
  const auto target = head.redirectTarget();
  if (!target) return acceptHead(head);
  redirect_ = request_;
  redirect_->url = *target;
  return Verdict::stop;
}

void LinuxURLTask::didEnd(const CurlFailure& failure) {
  transfer_ = nullptr;
  if (redirect_) return askAboutRedirect();
  if (failure.code != CURLE_OK) return breakOff(failure);
  succeed();
}

void LinuxURLTask::breakOff(const CurlFailure& failure) {
  endWith(urlError(failure, failure.code != CURLE_COULDNT_RESOLVE_HOST || session_->engine().hasNetwork()));
}

void LinuxURLTask::askAboutRedirect() {
  if (++redirectCount_ > kMaximumRedirects) {
    endWith(
        urlError({.code = CURLE_TOO_MANY_REDIRECTS, .osErrno = 0, .words = "too many HTTP redirects"}, true));
    return;
  }
  const auto answer = response().value_or(HTTPURLResponse{});
  session_->callbacks().async([self = shared_from_this(), answer, request = *redirect_] {
    const RedirectDecision decide = [self](std::optional<URLRequest> follow) {
      self->session_->engine().post([self, follow = std::move(follow)] { self->decided(follow); });
    };
    const auto delegate = self->session_->delegate();
    if (delegate == nullptr) {
      decide(request);
      return;
    }
    delegate->willPerformHTTPRedirection(self, answer, request, decide);
  });
}

void LinuxURLTask::decided(std::optional<URLRequest> follow) {
  if (hasEnded_ || !redirect_) return;
  if (!follow) {
    succeed();
    return;
  }
  request_ = std::move(*follow);
  startRequest();
}

void LinuxURLTask::endWith(Error error) {
  if (hasEnded_) return;
  discard(error);
  endWith([this, error = std::move(error)] { deliverError(error); });
}

void LinuxURLTask::endWith(Work deliver) {
  if (std::exchange(hasEnded_, true)) return;
  session_->engine().drop(std::exchange(transfer_, nullptr));
  session_->callbacks().async([self = shared_from_this(), deliver = std::move(deliver)] {
    deliver();
    self->session_->taskEnded(self);
  });
}

}  // namespace installer

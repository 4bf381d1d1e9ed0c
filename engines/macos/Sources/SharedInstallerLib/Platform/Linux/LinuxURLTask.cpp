#include "Platform/Linux/LinuxURLTask.h"

#include <strings.h>
#include <utility>

namespace installer {

namespace {

constexpr int maximumRedirects = 20;
constexpr std::size_t maximumRedirectBody = std::size_t{64} << 10U;  // read to keep the connection, no more

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

void LinuxURLTask::cancel() {
  isCancelRequested_ = true;
  if (!isResumed_.exchange(true)) session_->taskStarted(shared_from_this());
  session_->engine().post([self = shared_from_this()] { self->endsBecauseCancelled(); });
}

std::optional<HTTPURLResponse> LinuxURLTask::response() const {
  const std::lock_guard guard{responseMutex_};
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
  redirectBodyBytes_ = 0;
  if (!isHTTPS(request_.url)) {
    endWith(urlError({.code = CURLE_UNSUPPORTED_PROTOCOL, .osErrno = 0, .words = "unsupported URL"}, true));
    return;
  }
  transfer_ = session_->engine().start({.url = request_.url,
                                        .method = request_.method,
                                        .fields = requestFields(),
                                        .silence = request_.timeoutInterval},
                                       shared_from_this());
}

CurlTransfer::Verdict LinuxURLTask::didReceiveHead(const ResponseHead& head) {
  {
    const std::lock_guard guard{responseMutex_};
    response_ = HTTPURLResponse{head.status, request_.url};
  }
  if (const auto target = head.redirectTarget(request_.url)) {
    redirect_ = request_;
    redirect_->url = *target;
    return Verdict::goOn;
  }
  return acceptHead(head);
}

CurlTransfer::Verdict LinuxURLTask::didReceiveBody(std::string_view bytes) {
  if (!redirect_) return acceptBody(bytes);
  redirectBodyBytes_ += bytes.size();
  return redirectBodyBytes_ > maximumRedirectBody ? Verdict::stop : Verdict::goOn;
}

void LinuxURLTask::didEnd(const CurlFailure& failure) {
  transfer_ = nullptr;
  const bool wasLeft = redirect_ && redirectBodyBytes_ > maximumRedirectBody;
  if (failure.code != CURLE_OK && !wasLeft) {
    breakOff(failure);
    return;
  }
  if (redirect_) {
    askAboutRedirect();
    return;
  }
  succeed();
}

void LinuxURLTask::breakOff(const CurlFailure& failure) {
  endWith(urlError(failure, failure.code != CURLE_COULDNT_RESOLVE_HOST || session_->engine().hasNetwork()));
}

void LinuxURLTask::askAboutRedirect() {
  if (++redirectCount_ > maximumRedirects) {
    endWith(
        urlError({.code = CURLE_TOO_MANY_REDIRECTS, .osErrno = 0, .words = "too many HTTP redirects"}, true));
    return;
  }
  session_->callbacks().async([self = shared_from_this(), answer = *response(), request = *redirect_] {
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

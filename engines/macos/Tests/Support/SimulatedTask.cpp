#include "Support/SimulatedTask.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "Base/JSONReader.h"

namespace installer::test {

namespace {

constexpr int kMaximumRedirects = 16;

Error urlError(std::int64_t code, std::string description = {}) {
  if (description.empty()) {
    switch (code) {
      case URLErrorCode::cancelled: description = "cancelled"; break;
      case URLErrorCode::timedOut: description = "The request timed out."; break;
      case URLErrorCode::networkConnectionLost: description = "The network connection was lost."; break;
      default:
        description =
            "The operation couldn’t be completed. (NSURLErrorDomain error " + std::to_string(code) + ".)";
    }
  }
  return {std::string{ErrorDomain::url}, code, std::move(description), nullptr};
}

}  // namespace

void SimulatedTask::fetchData(const URLRequest& request, DataTaskCompletion completion) {
  kind_ = Kind::data;
  request_ = request;
  completion_ = std::move(completion);
}

void SimulatedTask::download(const URLRequest& request) {
  request_ = request;
}

void SimulatedTask::downloadFrom(const std::string& resumeData) {
  const auto saved = Json::from_cbor(resumeData, true, false);
  const auto url = saved.is_object() ? URL::parse(saved.value("url", "")) : std::nullopt;
  if (!url) return failAtOnce(URLErrorCode::unknown);
  request_ = URLRequest{.url = *url};
  validator_ = saved.value("validator", "");
  const auto& bytes = saved["received"].get_binary();
  received_.assign(bytes.begin(), bytes.end());
}

void SimulatedTask::failAtOnce(std::int64_t code) {
  if (!failsAtOnce_) failsAtOnce_ = code;
}

void SimulatedTask::resume() {
  if (std::exchange(resumed_, true) || ended_) return;
  session_->taskStarted(shared_from_this());
  if (failsAtOnce_) return end(urlError(*failsAtOnce_));
  request();
}

void SimulatedTask::cancel() {
  if (!ended_) end(urlError(URLErrorCode::cancelled));
}

// Calls `step` after `delay`, unless the task has ended by then.
void SimulatedTask::later(Duration delay, void (SimulatedTask::*step)()) {
  network_.dispatch_.schedule(delay, [self = shared_from_this(), step] {
    if (!self->ended_) (self.get()->*step)();
  });
}

void SimulatedTask::request() {
  response_.reset();
  const auto offset = validator_.empty() ? 0 : static_cast<std::int64_t>(received_.size());
  network_.requests_.push_back({request_->url.absoluteString(), request_->method, request_->cachePolicy,
                                request_->timeoutInterval, offset, network_.dispatch_.elapsed()});
  resource_ = network_.find(request_->url, answer_);
  if (resource_ != nullptr) answer_ = resource_->takeNext();
  if (auto fault = network_.plannedFault(*request_)) answer_ = *std::move(fault);
  const auto latency = resource_ == nullptr ? Duration{0} : resource_->latency_;
  if (answer_.kind == ServerAnswer::Kind::silence || latency > request_->timeoutInterval) {
    network_.dispatch_.schedule(request_->timeoutInterval, [self = shared_from_this()] {
      if (!self->ended_) self->end(urlError(URLErrorCode::timedOut));
    });
    return;
  }
  later(latency, &SimulatedTask::arrive);
}

void SimulatedTask::arrive() {
  if (answer_.kind == ServerAnswer::Kind::failure) {
    return end(urlError(answer_.errorCode, answer_.errorDescription));
  }
  response_ = HTTPURLResponse{answer_.status, request_->url};
  if (answer_.kind == ServerAnswer::Kind::redirect) return redirect();
  begin();
}

void SimulatedTask::redirect() {
  if (++redirects_ > kMaximumRedirects) return end(urlError(URLErrorCode::httpTooManyRedirects));
  auto next = *request_;
  next.url = URL::parse(answer_.location).value_or(URL{});
  const auto& delegate = session_->delegate();
  if (delegate == nullptr) return follow(next);
  session_->post([self = shared_from_this(), delegate, next] {
    if (self->ended_) return;
    delegate->willPerformHTTPRedirection(
        self, *self->response_, next,
        [self](const std::optional<URLRequest>& decision) { self->follow(decision); });
  });
}

// A refusal ends the task with the redirect's own answer. A cancellation at the same time races with that; a
// setting of the network selects the result.
void SimulatedTask::follow(const std::optional<URLRequest>& decision) {
  if (ended_) return;
  if (decision) {
    request_ = decision;
    return later(Duration{0}, &SimulatedTask::request);
  }
  if (network_.refusalEndsAs_ == SimulatedNetwork::RefusalEndsAs::plainAnswer) return finish();
  later(std::chrono::milliseconds{1}, &SimulatedTask::finish);
}

void SimulatedTask::begin() {
  const auto validator = resource_ == nullptr ? std::nullopt : resource_->validatorOf(answer_.body);
  const bool continues = !validator_.empty() && resource_ != nullptr && resource_->acceptsRanges_ &&
                         validator == validator_ && answer_.status == 200 &&
                         received_.size() <= answer_.body.size();
  if (continues) response_->statusCode = 206;
  if (!continues) received_.clear();
  validator_ = validator.value_or("");
  position_ = received_.size();
  drop_ = answer_.dropsAfter ? position_ + *answer_.dropsAfter : std::string::npos;
  const bool saysLength = resource_ == nullptr || resource_->saysLength_;
  expected_ = saysLength ? static_cast<std::int64_t>(answer_.body.size()) : -1;
  receivePiece();
}

void SimulatedTask::receivePiece() {
  const auto limit = std::min(answer_.body.size(), drop_);
  const auto whole = resource_ == nullptr || resource_->pieceBytes_ == 0;
  const auto bytes = std::min(limit - std::min(limit, position_), whole ? limit : resource_->pieceBytes_);
  received_.append(answer_.body, position_, bytes);
  position_ += bytes;
  if (kind_ == Kind::data && received_.size() > URLSession::kMaximumDataLength) {
    return end(urlError(URLErrorCode::dataLengthExceedsMaximum));
  }
  if (resource_ != nullptr) resource_->bytesServed_ += static_cast<std::int64_t>(bytes);
  if (kind_ == Kind::download && bytes > 0 && session_->delegate() != nullptr) {
    session_->post([self = shared_from_this(), delegate = session_->delegate(),
                    written = static_cast<std::int64_t>(received_.size()),
                    expected = expected_] { delegate->didWriteData(self, written, expected); });
  }
  if (position_ < limit) return later(resource_->pieceInterval_, &SimulatedTask::receivePiece);
  if (limit < answer_.body.size()) {
    return answer_.stalls ? later(request_->timeoutInterval, &SimulatedTask::breakOff) : breakOff();
  }
  later(Duration{0}, &SimulatedTask::finish);
}

void SimulatedTask::breakOff() {
  end(lost());
}

Error SimulatedTask::lost() const {
  auto error = urlError(answer_.dropCode);
  if (kind_ != Kind::download || validator_.empty() || received_.empty()) return error;
  const Json saved{{"url", request_->url.absoluteString()},
                   {"validator", validator_},
                   {"received", Json::binary(std::vector<std::uint8_t>(received_.begin(), received_.end()))}};
  const auto bytes = Json::to_cbor(saved);
  error.downloadResumeData = std::make_shared<const std::string>(bytes.begin(), bytes.end());
  return error;
}

// The body is complete, or the answer is that of a refused redirect.
void SimulatedTask::finish() {
  if (ended_) return;
  if (kind_ == Kind::download) return finishDownload();
  ended_ = true;
  session_->post([self = shared_from_this()] {
    std::optional<std::string> data;
    if (!self->received_.empty()) data = self->received_;
    const auto completion = std::exchange(self->completion_, nullptr);
    completion(data, self->response_, std::nullopt);
    self->session_->taskEnded(self);
  });
}

void SimulatedTask::finishDownload() {
  ended_ = true;
  const auto location = joined(network_.temporaryDirectory_,
                               "CFNetworkDownload_" + std::to_string(++network_.filesMade_) + ".tmp");
  session_->post([self = shared_from_this(), delegate = session_->delegate(), location] {
    auto& files = self->network_.files_;
    files.addFile(location, self->received_);
    if (delegate != nullptr) delegate->didFinishDownloadingTo(self, location);
    files.erase(location);
    if (delegate != nullptr) delegate->didCompleteWithError(self, std::nullopt);
    self->session_->taskEnded(self);
  });
}

void SimulatedTask::end(std::optional<Error> error) {
  ended_ = true;
  session_->post([self = shared_from_this(), delegate = session_->delegate(), error = std::move(error)] {
    const auto completion = std::exchange(self->completion_, nullptr);
    if (completion) completion(std::nullopt, self->response_, error);
    if (self->kind_ == Kind::download && delegate != nullptr) delegate->didCompleteWithError(self, error);
    self->session_->taskEnded(self);
  });
}

}  // namespace installer::test

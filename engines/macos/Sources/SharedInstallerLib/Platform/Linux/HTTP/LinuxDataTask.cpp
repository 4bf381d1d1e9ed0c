#include "Platform/Linux/HTTP/LinuxDataTask.h"

#include <utility>

namespace installer {

LinuxDataTask::LinuxDataTask(std::shared_ptr<URLSessionCore> session, URLRequest request,
                             DataTaskCompletion completion)
    : LinuxURLTask{std::move(session), std::move(request)}, completion_{std::move(completion)} {
}

CurlTransfer::Verdict LinuxDataTask::acceptHead(const ResponseHead& /*head*/) {
  body_.clear();
  return Verdict::goOn;
}

CurlTransfer::Verdict LinuxDataTask::didReceiveBody(std::string_view bytes) {
  isTooLong_ = body_.size() + bytes.size() > URLSession::kMaximumDataLength;
  if (isTooLong_) return Verdict::stop;
  body_ += bytes;
  return Verdict::goOn;
}

void LinuxDataTask::succeed() {
  endWith([this] {
    auto completion = std::exchange(completion_, nullptr);
    auto data = body_.empty() ? std::nullopt : std::optional{std::move(body_)};
    if (completion) completion(std::move(data), response(), std::nullopt);
  });
}

void LinuxDataTask::breakOff(const CurlFailure& failure) {
  if (!isTooLong_) {
    LinuxURLTask::breakOff(failure);
    return;
  }
  endWith(urlError({.code = CURLE_FILESIZE_EXCEEDED, .osErrno = 0, .words = "resource exceeds maximum size"},
                   true));
}

void LinuxDataTask::deliverError(const Error& error) {
  auto completion = std::exchange(completion_, nullptr);
  if (completion) completion(std::nullopt, response(), error);
}

}  // namespace installer

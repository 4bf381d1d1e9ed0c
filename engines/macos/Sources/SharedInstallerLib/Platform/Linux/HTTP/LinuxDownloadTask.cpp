#include "Platform/Linux/HTTP/LinuxDownloadTask.h"

#include <utility>

#include "Platform/Linux/HTTP/CurlErrors.h"

namespace installer {

namespace {

// Each callback wakes a thread, which costs more than writing a piece of the body.
constexpr auto kProgressInterval = std::chrono::milliseconds{20};

Error badServerResponse(std::string_view words) {
  return urlError(URLErrorCode::badServerResponse, words);
}

bool allowsResumption(const ResponseHead& head) {
  const auto* const ranges = head.field("accept-ranges");
  return head.status == 200 && !head.isEncoded() && (ranges == nullptr || *ranges != "none");
}

URLRequest requestFor(const URL& url, const URLSessionCore& session) {
  return {.url = url, .timeoutInterval = session.requestTimeout()};
}

URL urlOf(const std::string& resumeData) {
  const auto decoded = ResumeData::decode(resumeData);
  return decoded ? decoded->url : URL{};
}

}  // namespace

LinuxDownloadTask::LinuxDownloadTask(const std::shared_ptr<URLSessionCore>& session, const URL& url)
    : LinuxURLTask{session, requestFor(url, *session)}, url_{url} {
}

LinuxDownloadTask::LinuxDownloadTask(const std::shared_ptr<URLSessionCore>& session,
                                     const std::string& resumeData)
    : LinuxURLTask{session, requestFor(urlOf(resumeData), *session)},
      url_{urlOf(resumeData)},
      isGarbage_{!ResumeData::decode(resumeData)},
      resumed_{ResumeData::decode(resumeData)} {
}

std::optional<Error> LinuxDownloadTask::prepare() {
  if (isGarbage_) return urlError(URLErrorCode::unknown, "the resume data can't be read");
  if (!resumed_) return std::nullopt;
  partial_ = session().takePartial(resumed_->partialFile);
  if (!partial_ || !partial_->goBackTo(resumed_->received)) forgetPartial();
  return std::nullopt;
}

std::vector<std::string> LinuxDownloadTask::requestFields() {
  if (!resumed_) return {};
  return {"Range: bytes=" + std::to_string(resumed_->received) + "-",
          "If-Range: " + resumed_->validator.text()};
}

CurlTransfer::Verdict LinuxDownloadTask::acceptHead(const ResponseHead& head) {
  return resumed_ ? acceptAnswerToResumption(head) : acceptFromStart(head);
}

CurlTransfer::Verdict LinuxDownloadTask::acceptAnswerToResumption(const ResponseHead& head) {
  if (head.status == 206 && continuesPartial(head)) {
    file_ = std::move(partial_);
    continues_ = true;
    total_ = head.contentRange()->total;
    validator_ = resumed_->validator;
    return Verdict::goOn;
  }
  if (head.status == 206 || head.status == 412 || head.status == 416) {
    restarts_ = true;
    return Verdict::stop;
  }
  // A success is another version from its first byte. Any other answer leaves the earlier bytes as they are.
  if (head.isSuccess()) forgetPartial();
  return acceptFromStart(head);
}

// True when the body is the whole rest of the same version.
bool LinuxDownloadTask::continuesPartial(const ResponseHead& head) const {
  const auto range = head.contentRange();
  if (head.isMultipart() || head.isEncoded() || !range || !range->total ||
      range->first != resumed_->received || range->last + 1 != *range->total) {
    return false;
  }
  if (resumed_->total && *resumed_->total != *range->total) return false;
  if (head.bodyLength && *head.bodyLength != *range->total - range->first) return false;
  return resumed_->validator.agreesWith(head);
}

CurlTransfer::Verdict LinuxDownloadTask::acceptFromStart(const ResponseHead& head) {
  if (head.status == 206)
    return stopWith(badServerResponse("the server sent a partial response to a request without a range"));
  auto file = PartialFile::create(session().temporaryDirectory());
  if (!file) return stopWith(file.error());
  file_ = std::move(*file);
  total_ = head.bodyLength;
  validator_ = allowsResumption(head) ? Validator::of(head) : std::nullopt;
  return Verdict::goOn;
}

CurlTransfer::Verdict LinuxDownloadTask::didReceiveBody(std::string_view bytes) {
  if (total_ && file_->length() + static_cast<std::int64_t>(bytes.size()) > *total_) {
    return stopWith(badServerResponse("the server sent more than it announced"));
  }
  if (auto written = file_->append(bytes); !written) return stopWith(written.error());
  const auto now = CurlTransfer::Clock::now();
  if (now - lastProgress_ >= kProgressInterval) postProgress(now);
  return Verdict::goOn;
}

// Writes the last bytes of the body; false, with `ownFailure_`, when that fails.
bool LinuxDownloadTask::completeFile() {
  const auto written = file_ ? file_->flush() : Result<>{};
  if (!written) ownFailure_ = written.error();
  return written.has_value();
}

CurlTransfer::Verdict LinuxDownloadTask::stopWith(Error error) {
  ownFailure_ = std::move(error);
  return Verdict::stop;
}

void LinuxDownloadTask::succeed() {
  if (continues_ && total_ != file_->length()) {
    return breakOff({.code = CURLE_PARTIAL_FILE, .osErrno = 0, .words = "the transfer ended early"});
  }
  if (!completeFile()) return breakOff({});
  // After an error page or a refusal the earlier bytes can still be resumed.
  if (partial_) session().keepPartial(std::move(partial_));
  if (!file_) return endWith([this] { deliverRefusedRedirect(); });
  if (lastPostedLength() != file_->length()) postProgress(CurlTransfer::Clock::now());
  endWith([this, file = std::shared_ptr{std::move(file_)}] { deliverFile(*file); });
}

void LinuxDownloadTask::deliverFile(PartialFile& file) {
  const auto delegate = session().delegate();
  if (delegate) delegate->didFinishDownloadingTo(shared_from_this(), file.path());
  file.remove();
  if (delegate) delegate->didCompleteWithError(shared_from_this(), std::nullopt);
}

// Delivers the redirect's own answer, without its body. A cancelled task creates no file, because a process
// that ends now would leave it.
void LinuxDownloadTask::deliverRefusedRedirect() {
  if (isCancelled()) return deliverError(cancelledError());
  const auto file = PartialFile::create(session().temporaryDirectory());
  if (!file) return deliverError(file.error());
  deliverFile(**file);
}

void LinuxDownloadTask::breakOff(const CurlFailure& failure) {
  if (std::exchange(restarts_, false)) {
    forgetPartial();
    startRequest();
    return;
  }
  if (ownFailure_ || !completeFile()) return endWith(std::move(*ownFailure_));
  LinuxURLTask::breakOff(failure);
}

void LinuxDownloadTask::forgetPartial() {
  resumed_.reset();
  if (!partial_) return;
  partial_->remove();
  partial_.reset();
}

// The resume data for a later task: the bytes of this body, else those that this task started with.
std::optional<ResumeData> LinuxDownloadTask::resumable() const {
  if (!file_ || !validator_ || file_->length() == 0) return partial_ ? resumed_ : std::nullopt;
  return ResumeData{url_, file_->path(), *validator_, file_->length(), total_};
}

void LinuxDownloadTask::discard(Error& error) {
  const bool isLost = error.code != URLErrorCode::cancelled && !ownFailure_;
  const auto resume = isLost ? resumable() : std::nullopt;
  if (resume) {
    error.downloadResumeData = std::make_shared<const std::string>(resume->encode());
  }
  for (auto* const file : {&file_, &partial_}) {
    if (!*file) continue;
    if (resume && resume->partialFile == (*file)->path()) {
      session().keepPartial(std::move(*file));
    } else {
      std::exchange(*file, nullptr)->remove();
    }
  }
}

void LinuxDownloadTask::deliverError(const Error& error) {
  if (const auto delegate = session().delegate()) delegate->didCompleteWithError(shared_from_this(), error);
}

std::int64_t LinuxDownloadTask::lastPostedLength() {
  const MutexLock lock{progress_.mutex};
  return progress_.written;
}

// At most one callback is posted at a time, even when more pieces arrive meanwhile.
void LinuxDownloadTask::postProgress(CurlTransfer::Clock::time_point now) {
  lastProgress_ = now;
  {
    const MutexLock guard{progress_.mutex};
    progress_.written = file_->length();
    progress_.expected = total_.value_or(-1);
    if (std::exchange(progress_.isPosted, true)) return;
  }
  session().callbacks().async([self = shared_from_this(), this] { deliverProgress(); });
}

void LinuxDownloadTask::deliverProgress() {
  std::int64_t written = 0;
  std::int64_t expected = 0;
  {
    const MutexLock guard{progress_.mutex};
    progress_.isPosted = false;
    written = progress_.written;
    expected = progress_.expected;
  }
  if (const auto delegate = session().delegate())
    delegate->didWriteData(shared_from_this(), written, expected);
}

}  // namespace installer

// A task that streams its body to a file and can resume an interrupted download.
//
// Bytes of two versions are never joined: unless the answer to the request for the rest proves that it is the
// rest, the download restarts from its first byte, once.
#pragma once

#include <memory>
#include <optional>

#include "Base/Mutex.h"
#include "Platform/Linux/HTTP/LinuxURLTask.h"
#include "Platform/Linux/HTTP/PartialFile.h"
#include "Platform/Linux/HTTP/ResumeData.h"
#include "Platform/Linux/HTTP/Validator.h"

namespace installer {

class LinuxDownloadTask : public LinuxURLTask {
 public:
  LinuxDownloadTask(const std::shared_ptr<URLSessionCore>& session, const URL& url);
  // Invalid resume data gives a task that fails at once.
  LinuxDownloadTask(const std::shared_ptr<URLSessionCore>& session, const std::string& resumeData);

 private:
  const URL url_;                         // before redirects
  const bool isGarbage_ = false;          // the resume data couldn't be read
  std::optional<ResumeData> resumed_;     // while the download may still resume from it
  std::unique_ptr<PartialFile> partial_;  // the file of `resumed_`
  std::unique_ptr<PartialFile> file_;     // the file of the body
  bool continues_ = false;                // `file_` is the partial one, and the body is the rest of it
  std::optional<std::int64_t> total_;
  std::optional<Validator> validator_;  // of the body in `file_`
  std::optional<Error> ownFailure_;     // why this task stopped the transfer
  bool restarts_ = false;               // the transfer was stopped to start afresh

  CurlTransfer::Clock::time_point lastProgress_;  // when a callback was last posted

  struct Progress {
    Mutex mutex;
    std::int64_t written GUARDED_BY(mutex) = 0;
    std::int64_t expected GUARDED_BY(mutex) = -1;
    bool isPosted GUARDED_BY(mutex) = false;  // a callback is posted and will read the latest figures
  } progress_;

  std::optional<Error> prepare() override;
  std::vector<std::string> requestFields() override;
  Verdict acceptHead(const ResponseHead& head) override;
  Verdict didReceiveBody(std::string_view bytes) override;
  void succeed() override;
  void breakOff(const CurlFailure& failure) override;
  void deliverError(const Error& error) override;
  void discard(Error& error) override;

  Verdict acceptAnswerToResumption(const ResponseHead& head);
  Verdict acceptFromStart(const ResponseHead& head);
  bool continuesPartial(const ResponseHead& head) const;
  void forgetPartial();
  bool completeFile();
  Verdict stopWith(Error error);
  std::optional<ResumeData> resumable() const;
  void deliverFile(PartialFile& file);
  void deliverRefusedRedirect();
  std::int64_t lastPostedLength();
  void postProgress(CurlTransfer::Clock::time_point now);
  void deliverProgress();
};

}  // namespace installer

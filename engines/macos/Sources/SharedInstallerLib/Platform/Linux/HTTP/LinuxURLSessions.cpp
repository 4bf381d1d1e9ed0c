#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

#include "Base/Mutex.h"
#include "Base/POSIX/LinuxHostSettings.h"
#include "Platform/Linux/HTTP/CurlEngine.h"
#include "Platform/Linux/HTTP/LinuxDataTask.h"
#include "Platform/Linux/HTTP/LinuxDownloadTask.h"
#include "Platform/Linux/HTTP/PartialFile.h"
#include "Platform/Linux/HTTP/URLSessionCore.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer {

namespace {

class LinuxURLSession : public URLSession {
 public:
  explicit LinuxURLSession(std::shared_ptr<URLSessionCore> core) : core_{std::move(core)} {}
  ~LinuxURLSession() override { core_->invalidate(URLSessionCore::Running::finish); }
  LinuxURLSession(const LinuxURLSession&) = delete;
  LinuxURLSession& operator=(const LinuxURLSession&) = delete;

  std::shared_ptr<URLSessionTask> dataTask(const URLRequest& request,
                                           DataTaskCompletion completion) override {
    return std::make_shared<LinuxDataTask>(core_, request, std::move(completion));
  }
  std::shared_ptr<URLSessionTask> downloadTask(const URL& url) override {
    return std::make_shared<LinuxDownloadTask>(core_, url);
  }
  std::shared_ptr<URLSessionTask> downloadTaskWithResumeData(const std::string& resumeData) override {
    return std::make_shared<LinuxDownloadTask>(core_, resumeData);
  }
  void finishTasksAndInvalidate() override { core_->invalidate(URLSessionCore::Running::finish); }
  void invalidateAndCancel() override { core_->invalidate(URLSessionCore::Running::cancel); }

 private:
  std::shared_ptr<URLSessionCore> core_;
};

// The engine is created with the first session. The destructor cancels the running tasks and waits for the
// callbacks.
class LinuxURLSessions : public URLSessions {
 public:
  explicit LinuxURLSessions(const LinuxHostSettings& settings) : settings_{settings} {
    // libcurl would write the TLS secrets of every connection to the file that the variable names.
    ::unsetenv("SSLKEYLOGFILE");
    PartialFile::removeOrphans(settings_.temporaryDirectory());
  }
  ~LinuxURLSessions() override;
  LinuxURLSessions(const LinuxURLSessions&) = delete;
  LinuxURLSessions& operator=(const LinuxURLSessions&) = delete;

  std::shared_ptr<URLSession> shared() override;
  std::shared_ptr<URLSession> make(std::shared_ptr<URLSessionDelegate> delegate) override;

 private:
  const LinuxHostSettings settings_;

  Mutex mutex_;
  std::optional<CurlEngine> engine_ GUARDED_BY(mutex_);
  std::shared_ptr<URLSession> shared_ GUARDED_BY(mutex_);
  std::vector<std::weak_ptr<URLSessionCore>> cores_ GUARDED_BY(mutex_);
};

LinuxURLSessions::~LinuxURLSessions() {
  for (const auto& weakly : cores_) {
    const auto core = weakly.lock();
    if (!core) continue;
    core->invalidate(URLSessionCore::Running::cancel);
    core->drain();
  }
}

std::shared_ptr<URLSession> LinuxURLSessions::shared() {
  {
    const MutexLock guard{mutex_};
    if (shared_) return shared_;
  }
  auto session = make(nullptr);
  const MutexLock guard{mutex_};
  if (!shared_) shared_ = std::move(session);
  return shared_;
}

std::shared_ptr<URLSession> LinuxURLSessions::make(std::shared_ptr<URLSessionDelegate> delegate) {
  const MutexLock guard{mutex_};
  if (!engine_) engine_.emplace(settings_);
  auto core = std::make_shared<URLSessionCore>(
      *engine_, URLSessionCore::Configuration{settings_.temporaryDirectory(), settings_.requestTimeout},
      std::move(delegate));
  std::erase_if(cores_, [](const auto& weakly) { return weakly.expired(); });
  cores_.push_back(core);
  return std::make_shared<LinuxURLSession>(std::move(core));
}

}  // namespace

std::unique_ptr<URLSessions> makeLinuxURLSessions(const LinuxHostSettings& settings) {
  return std::make_unique<LinuxURLSessions>(settings);
}

}  // namespace installer

#include "Platform/Linux/LinuxURLSessions.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace installer {

namespace {

Error unavailable(bool cancelled) {
  if (cancelled) return {std::string{ErrorDomain::url}, URLErrorCode::cancelled, "cancelled", nullptr};
  return {std::string{ErrorDomain::url}, URLErrorCode::notConnectedToInternet,
          "networking isn't available in this build", nullptr};
}

// Runs what is posted, one at a time and in order, until it is destroyed; what is queued then still runs.
class CallbackQueue {
 public:
  CallbackQueue() : thread_{[this] { serve(); }} {}
  ~CallbackQueue() {
    post({});
    thread_.join();
  }
  CallbackQueue(const CallbackQueue&) = delete;
  CallbackQueue& operator=(const CallbackQueue&) = delete;

  void post(Work work) {
    const std::lock_guard lock{mutex_};
    queue_.push_back(std::move(work));
    arrived_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Work> queue_;
  std::thread thread_;

  void serve() {
    for (;;) {
      std::unique_lock lock{mutex_};
      arrived_.wait(lock, [this] { return !queue_.empty(); });
      const Work work = std::move(queue_.front());
      queue_.pop_front();
      lock.unlock();
      if (!work) return;
      work();
    }
  }
};

class FailingTask : public URLSessionTask, public std::enable_shared_from_this<FailingTask> {
 public:
  using Report = std::function<void(const std::shared_ptr<URLSessionTask>&, Error)>;
  FailingTask(int identifier, CallbackQueue& queue, Report report)
      : identifier_{identifier}, queue_{queue}, report_{std::move(report)} {}

  int taskIdentifier() const override { return identifier_; }
  void resume() override { end(); }
  void cancel() override {
    cancelled_ = true;
    end();
  }
  std::optional<HTTPURLResponse> response() const override { return std::nullopt; }

 private:
  int identifier_;
  CallbackQueue& queue_;
  Report report_;
  std::atomic<bool> cancelled_{false};
  std::atomic<bool> ended_{false};

  void end() {
    if (ended_.exchange(true)) return;
    queue_.post([self = shared_from_this(), error = unavailable(cancelled_)] { self->report_(self, error); });
  }
};

class FailingSession : public URLSession {
 public:
  FailingSession(CallbackQueue& queue, std::shared_ptr<URLSessionDelegate> delegate)
      : queue_{queue}, delegate_{std::move(delegate)} {}

  std::shared_ptr<URLSessionTask> dataTask(const URLRequest&, DataTaskCompletion completion) override {
    return make([completion = std::move(completion)](const auto&, const Error& error) {
      completion(std::nullopt, std::nullopt, error);
    });
  }
  std::shared_ptr<URLSessionTask> downloadTask(const URL&) override {
    return make([delegate = delegate_](const auto& task, const Error& error) {
      if (delegate != nullptr) delegate->didCompleteWithError(task, error);
    });
  }
  std::shared_ptr<URLSessionTask> downloadTaskWithResumeData(const std::string&) override {
    return make([delegate = delegate_](const auto& task, const Error& error) {
      if (delegate != nullptr) delegate->didCompleteWithError(task, error);
    });
  }
  void finishTasksAndInvalidate() override { delegate_.reset(); }
  void invalidateAndCancel() override { delegate_.reset(); }

 private:
  CallbackQueue& queue_;
  std::shared_ptr<URLSessionDelegate> delegate_;
  std::atomic<int> lastIdentifier_{0};

  std::shared_ptr<URLSessionTask> make(FailingTask::Report report) {
    return std::make_shared<FailingTask>(++lastIdentifier_, queue_, std::move(report));
  }
};

class FailingSessions : public URLSessions {
 public:
  std::shared_ptr<URLSession> shared() override { return make(nullptr); }
  std::shared_ptr<URLSession> make(std::shared_ptr<URLSessionDelegate> delegate) override {
    return std::make_shared<FailingSession>(queue_, std::move(delegate));
  }

 private:
  CallbackQueue queue_;
};

}  // namespace

std::unique_ptr<URLSessions> makeLinuxURLSessions(const LinuxHostSettings&) {
  return std::make_unique<FailingSessions>();
}

}  // namespace installer

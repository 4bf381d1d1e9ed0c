// The engine's objects for a session's tasks. Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "Base/Mutex.h"
#import "Platform/Darwin/DarwinFoundation.h"
#import "Platform/Darwin/DarwinURLTranslation.h"
#include "Platform/URLSession.h"

namespace installer::darwin {

class DarwinTask final : public URLSessionTask {
 public:
  // `completion` is a data task's; empty for a download.
  explicit DarwinTask(NSURLSessionTask* task, DataTaskCompletion completion = nullptr)
      : task_{task}, completion_{std::move(completion)} {}
  int taskIdentifier() const override { return static_cast<int>(task_.taskIdentifier); }
  void resume() override {
    @autoreleasepool {
      [task_ resume];
    }
  }
  void cancel() override {
    @autoreleasepool {
      [task_ cancel];
    }
  }
  std::optional<HTTPURLResponse> response() const override {
    @autoreleasepool {
      return responseOf(task_.response);
    }
  }

  // For the session's delegate, on its queue: more of a data task's body, and its end. False for a download,
  // whose end goes to the engine's own delegate.
  void receive(NSData* data) {
    if (isTooLong_) return;
    isTooLong_ = body_.size() + data.length > URLSession::kMaximumDataLength;
    if (isTooLong_) return cancel();
    body_ += bytes(data);
  }
  bool complete(NSError* problem) {
    if (!completion_) return false;
    const auto completion = std::exchange(completion_, nullptr);
    auto answer = response();
    if (auto failure = failureOf(problem, answer.has_value())) {
      completion(std::nullopt, std::move(answer), std::move(failure));
      return true;
    }
    completion(body_.empty() ? std::nullopt : std::optional{std::move(body_)}, std::move(answer),
               std::nullopt);
    return true;
  }

 private:
  NSURLSessionTask* task_;
  DataTaskCompletion completion_;
  std::string body_;
  bool isTooLong_ = false;

  std::optional<Error> failureOf(NSError* problem, bool isAnswered) const {
    if (isTooLong_) return urlError(URLErrorCode::dataLengthExceedsMaximum, "The answer is too long.");
    if (problem != nil) return error(problem);
    if (!isAnswered) return urlError(URLErrorCode::badServerResponse, "The answer isn’t HTTP.");
    return std::nullopt;
  }
};

// A task that the system can't create. It fails on the session's queue after `resume`.
class FailedTask final : public URLSessionTask, public std::enable_shared_from_this<FailedTask> {
 public:
  using Deliver = std::function<void(const std::shared_ptr<URLSessionTask>&)>;
  FailedTask(int identifier, NSOperationQueue* queue, Deliver deliver)
      : identifier_{identifier}, queue_{queue}, deliver_{std::move(deliver)} {}

  int taskIdentifier() const override { return identifier_; }
  void resume() override {
    if (resumed_.exchange(true)) return;
    @autoreleasepool {
      auto self = shared_from_this();
      [queue_ addOperationWithBlock:^{
        self->deliver_(self);
      }];
    }
  }
  // The task's end is delivered also after a cancel.
  void cancel() override { resume(); }
  std::optional<HTTPURLResponse> response() const override { return std::nullopt; }

 private:
  int identifier_;
  NSOperationQueue* queue_;
  Deliver deliver_;
  std::atomic<bool> resumed_{false};
};

// The tasks of one session by identifier, so that a callback passes the object that the caller has.
class TaskTable {
 public:
  std::shared_ptr<DarwinTask> add(NSURLSessionTask* task, DataTaskCompletion completion = nullptr) {
    auto made = std::make_shared<DarwinTask>(task, std::move(completion));
    const MutexLock lock{mutex_};
    tasks_[task.taskIdentifier] = made;
    return made;
  }
  std::shared_ptr<DarwinTask> find(NSURLSessionTask* task) {
    {
      const MutexLock lock{mutex_};
      if (const auto found = tasks_.find(task.taskIdentifier); found != tasks_.end()) return found->second;
    }
    return std::make_shared<DarwinTask>(task);
  }
  void forget(NSUInteger identifier) {
    const MutexLock lock{mutex_};
    tasks_.erase(identifier);
  }

 private:
  Mutex mutex_;
  std::map<NSUInteger, std::shared_ptr<DarwinTask>> tasks_ GUARDED_BY(mutex_);
};

}  // namespace installer::darwin

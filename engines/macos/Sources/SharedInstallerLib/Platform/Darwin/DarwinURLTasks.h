// The tasks of a session, as the engine holds them. Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#import "Platform/Darwin/DarwinURLTranslation.h"
#include "Platform/URLSession.h"

namespace installer::darwin {

class DarwinTask final : public URLSessionTask {
 public:
  explicit DarwinTask(NSURLSessionTask* task) : task_{task} {}
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

 private:
  NSURLSessionTask* task_;
};

// A task that the system can't be asked for: it fails on the session's queue once it is resumed.
class FailedTask final : public URLSessionTask, public std::enable_shared_from_this<FailedTask> {
 public:
  using Deliver = std::function<void(const std::shared_ptr<URLSessionTask>&)>;
  FailedTask(int identifier, NSOperationQueue* queue, Deliver deliver)
      : identifier_{identifier}, queue_{queue}, deliver_{std::move(deliver)} {}

  int taskIdentifier() const override { return identifier_; }
  void resume() override {
    if (resumed_.exchange(true)) return;
    auto self = shared_from_this();
    [queue_ addOperationWithBlock:^{
      self->deliver_(self);
    }];
  }
  // Its end comes all the same.
  void cancel() override { resume(); }
  std::optional<HTTPURLResponse> response() const override { return std::nullopt; }

 private:
  int identifier_;
  NSOperationQueue* queue_;
  Deliver deliver_;
  std::atomic<bool> resumed_{false};
};

// The tasks of one session by identifier, so that a callback hands on the object that the caller holds.
class TaskTable {
 public:
  std::shared_ptr<URLSessionTask> add(NSURLSessionTask* task) {
    auto made = std::make_shared<DarwinTask>(task);
    const std::lock_guard lock{mutex_};
    tasks_[task.taskIdentifier] = made;
    return made;
  }
  std::shared_ptr<URLSessionTask> find(NSURLSessionTask* task) {
    {
      const std::lock_guard lock{mutex_};
      if (const auto found = tasks_.find(task.taskIdentifier); found != tasks_.end()) return found->second;
    }
    return std::make_shared<DarwinTask>(task);
  }
  void forget(NSUInteger identifier) {
    const std::lock_guard lock{mutex_};
    tasks_.erase(identifier);
  }

 private:
  std::mutex mutex_;
  std::map<NSUInteger, std::shared_ptr<URLSessionTask>> tasks_;
};

}  // namespace installer::darwin

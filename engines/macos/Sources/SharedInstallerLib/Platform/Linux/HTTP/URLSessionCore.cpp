#include "Platform/Linux/HTTP/URLSessionCore.h"

#include <unistd.h>
#include <utility>

#include "Platform/Linux/HTTP/LinuxURLTask.h"

namespace installer {

URLSessionCore::URLSessionCore(CurlEngine& engine, Configuration configuration,
                               std::shared_ptr<URLSessionDelegate> delegate)
    : engine_{engine}, configuration_{std::move(configuration)}, delegate_{std::move(delegate)} {
}

URLSessionCore::~URLSessionCore() {
  for (const auto& path : partials_) unlink(path.c_str());
}

std::shared_ptr<URLSessionDelegate> URLSessionCore::delegate() {
  const MutexLock guard{mutex_};
  return delegate_;
}

void URLSessionCore::invalidate(Running running) {
  std::set<std::shared_ptr<LinuxURLTask>> cancelled;
  std::set<Path> partials;
  {
    const MutexLock guard{mutex_};
    isInvalidated_ = true;
    partials = std::exchange(partials_, {});
    if (running == Running::cancel) {
      isCancelled_ = true;
      cancelled = running_;
    }
  }
  for (const auto& path : partials) unlink(path.c_str());
  for (const auto& task : cancelled) task->cancel();
  releaseDelegateIfDone();
}

bool URLSessionCore::isInvalidated() {
  const MutexLock guard{mutex_};
  return isInvalidated_;
}

bool URLSessionCore::isCancelled() {
  const MutexLock guard{mutex_};
  return isCancelled_;
}

void URLSessionCore::drain() {
  engine_.run([] {});
  callbacks_.drain();
}

void URLSessionCore::taskStarted(const std::shared_ptr<LinuxURLTask>& task) {
  const MutexLock guard{mutex_};
  running_.insert(task);
}

void URLSessionCore::taskEnded(const std::shared_ptr<LinuxURLTask>& task) {
  {
    const MutexLock guard{mutex_};
    running_.erase(task);
  }
  releaseDelegateIfDone();
}

void URLSessionCore::keepPartial(const Path& path) {
  {
    const MutexLock guard{mutex_};
    if (!isInvalidated_) {
      partials_.insert(path);
      return;
    }
  }
  unlink(path.c_str());
}

void URLSessionCore::forgetPartial(const Path& path) {
  const MutexLock guard{mutex_};
  partials_.erase(path);
}

void URLSessionCore::releaseDelegateIfDone() {
  std::shared_ptr<URLSessionDelegate> released;  // destroyed after the lock is released
  const MutexLock guard{mutex_};
  if (isInvalidated_ && running_.empty()) released = std::exchange(delegate_, nullptr);
}

}  // namespace installer

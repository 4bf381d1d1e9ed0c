#include "Platform/Linux/HTTP/URLSessionCore.h"

#include <utility>

#include "Platform/Linux/HTTP/LinuxURLTask.h"

namespace installer {

URLSessionCore::URLSessionCore(CurlEngine& engine, Configuration configuration,
                               std::shared_ptr<URLSessionDelegate> delegate)
    : engine_{engine}, configuration_{std::move(configuration)}, delegate_{std::move(delegate)} {
}

URLSessionCore::~URLSessionCore() {
  for (const auto& [path, file] : partials_) file->remove();
}

std::shared_ptr<URLSessionDelegate> URLSessionCore::delegate() {
  const MutexLock guard{mutex_};
  return delegate_;
}

void URLSessionCore::invalidate(Running running) {
  std::set<std::shared_ptr<LinuxURLTask>> cancelled;
  Partials partials;
  {
    const MutexLock guard{mutex_};
    isInvalidated_ = true;
    partials = std::exchange(partials_, {});
    if (running == Running::cancel) {
      isCancelled_ = true;
      cancelled = running_;
    }
  }
  for (const auto& [path, file] : partials) file->remove();
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

void URLSessionCore::keepPartial(std::unique_ptr<PartialFile> file) {
  const MutexLock guard{mutex_};
  if (isInvalidated_) return file->remove();
  const auto& path = file->path();
  partials_[path] = std::move(file);
}

std::unique_ptr<PartialFile> URLSessionCore::takePartial(const Path& path) {
  const MutexLock guard{mutex_};
  const auto kept = partials_.extract(path);
  return kept ? std::move(kept.mapped()) : nullptr;
}

void URLSessionCore::releaseDelegateIfDone() {
  std::shared_ptr<URLSessionDelegate> released;  // destroyed after the lock is released
  const MutexLock guard{mutex_};
  if (isInvalidated_ && running_.empty()) released = std::exchange(delegate_, nullptr);
}

}  // namespace installer

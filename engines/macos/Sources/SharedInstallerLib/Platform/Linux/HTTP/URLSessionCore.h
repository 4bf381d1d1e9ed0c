// The state that a session shares with its tasks. Any thread.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "Base/Mutex.h"
#include "Platform/Linux/Dispatch/CallbackQueue.h"
#include "Platform/Linux/HTTP/CurlEngine.h"
#include "Platform/Linux/HTTP/PartialFile.h"
#include "Platform/URLSession.h"

namespace installer {

class LinuxURLTask;

class URLSessionCore : public std::enable_shared_from_this<URLSessionCore> {
 public:
  // Shared by the sessions of a process.
  struct Configuration {
    Path temporaryDirectory;
    Duration requestTimeout;  // of silence, for requests without their own
  };

  URLSessionCore(CurlEngine& engine, Configuration configuration,
                 std::shared_ptr<URLSessionDelegate> delegate);
  ~URLSessionCore();
  URLSessionCore(const URLSessionCore&) = delete;
  URLSessionCore& operator=(const URLSessionCore&) = delete;

  CurlEngine& engine() { return engine_; }
  CallbackQueue& callbacks() { return callbacks_; }
  const Path& temporaryDirectory() const { return configuration_.temporaryDirectory; }
  Duration requestTimeout() const { return configuration_.requestTimeout; }

  int nextTaskIdentifier() { return ++lastTaskIdentifier_; }
  // Null without one, and after the session has released it.
  std::shared_ptr<URLSessionDelegate> delegate();

  enum class Running { finish, cancel };
  void invalidate(Running running);
  bool isInvalidated();
  bool isCancelled();  // invalidated with `Running::cancel`

  // Waits until the blocks posted to the engine, and then those of the callback queue, have run.
  void drain();

  // A task counts as running from its `resume` to its last callback.
  void taskStarted(const std::shared_ptr<LinuxURLTask>& task);
  void taskEnded(const std::shared_ptr<LinuxURLTask>& task);

  // Keeps a partial file, and its lock, for a resumed download. Invalidating the session removes it.
  void keepPartial(std::unique_ptr<PartialFile> file);
  // The kept file; null without one.
  std::unique_ptr<PartialFile> takePartial(const Path& path);

 private:
  using Partials = std::map<Path, std::unique_ptr<PartialFile>>;

  CurlEngine& engine_;
  const Configuration configuration_;
  std::atomic<int> lastTaskIdentifier_{0};

  Mutex mutex_;
  std::shared_ptr<URLSessionDelegate> delegate_ GUARDED_BY(mutex_);
  bool isInvalidated_ GUARDED_BY(mutex_) = false;
  bool isCancelled_ GUARDED_BY(mutex_) = false;
  std::set<std::shared_ptr<LinuxURLTask>> running_ GUARDED_BY(mutex_);
  Partials partials_ GUARDED_BY(mutex_);

  CallbackQueue callbacks_;

  void releaseDelegateIfDone();
};

}  // namespace installer

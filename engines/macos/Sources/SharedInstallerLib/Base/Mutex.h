// Mutexes whose use clang checks: with -Wthread-safety, a field marked GUARDED_BY(mutex) can be accessed only
// while a `MutexLock` of that mutex is in scope, or in a function marked REQUIRES(mutex). Constructors and
// destructors are exempt. Other compilers ignore the marks.
//
// Clang checks a lambda as a separate function, so a wait is a loop around `Condition::wait`, without a
// predicate.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#ifdef __clang__
#define THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define THREAD_SAFETY(attribute)
#endif
#define GUARDED_BY(mutex) THREAD_SAFETY(guarded_by(mutex))
#define REQUIRES(mutex) THREAD_SAFETY(requires_capability(mutex))

namespace installer {

template <class Underlying>
class THREAD_SAFETY(capability("mutex")) BasicMutex {
 public:
  constexpr BasicMutex() = default;
  BasicMutex(const BasicMutex&) = delete;
  BasicMutex& operator=(const BasicMutex&) = delete;

  void lock() THREAD_SAFETY(acquire_capability()) { underlying_.lock(); }
  void unlock() THREAD_SAFETY(release_capability()) { underlying_.unlock(); }

 private:
  friend class Condition;
  Underlying underlying_;
};

using Mutex = BasicMutex<std::mutex>;
using RecursiveMutex = BasicMutex<std::recursive_mutex>;

// Holds the mutex from its construction to its destruction, except between `unlock` and `lock`.
template <class AnyMutex>
class THREAD_SAFETY(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(AnyMutex& mutex) THREAD_SAFETY(acquire_capability(mutex)) : mutex_{mutex} {
    mutex_.lock();
  }
  ~MutexLock() THREAD_SAFETY(release_capability()) {
    if (isHeld_) mutex_.unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void unlock() THREAD_SAFETY(release_capability()) {
    mutex_.unlock();
    isHeld_ = false;
  }
  void lock() THREAD_SAFETY(acquire_capability()) {
    mutex_.lock();
    isHeld_ = true;
  }

 private:
  AnyMutex& mutex_;
  bool isHeld_ = true;
};

// A condition variable. A wait releases the mutex meanwhile, and may end without a notification.
class Condition {
 public:
  void notifyOne() { changed_.notify_one(); }
  void notifyAll() { changed_.notify_all(); }

  void wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock lock{mutex.underlying_, std::adopt_lock};
    changed_.wait(lock);
    lock.release();
  }
  // False when `deadline` has passed.
  bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point deadline) REQUIRES(mutex) {
    std::unique_lock lock{mutex.underlying_, std::adopt_lock};
    const auto status = changed_.wait_until(lock, deadline);
    lock.release();
    return status == std::cv_status::no_timeout;
  }

 private:
  std::condition_variable changed_;
};

}  // namespace installer

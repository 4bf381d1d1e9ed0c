// A value that is made at first use and then stays as long as the process: the configuration, the catalog,
// the manifest, the logger.
//
// Any thread may ask first; it is made once. It is never destroyed at exit, because a worker or the listener
// may still be using it then. A test that installs another machine gets a fresh value with it.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "Base/Mutex.h"

namespace installer {

// Runs `forget` once, at the next `forgetProcessWide`, the latest addition first. Any thread.
void atForgetting(std::function<void()> forget);

// Forgets every process-wide value. No other thread may be using one. For the change of machines; a process
// that installs one machine for life never forgets any.
void forgetProcessWide();

template <class T>
class ProcessWide {
 public:
  using Make = std::unique_ptr<T> (*)();

  constexpr explicit ProcessWide(Make make) : make_{make} {}

  // `make` may log and may use other process-wide values, but not this one.
  T& get() {
    const MutexLock lock{mutex_};
    if (value_ == nullptr) {
      value_ = make_().release();
      atForgetting([this] { forget(); });
    }
    return *value_;
  }

 private:
  Make make_;
  Mutex mutex_;
  T* value_ GUARDED_BY(mutex_) = nullptr;  // not destroyed at exit, by design

  void forget() {
    const MutexLock lock{mutex_};
    delete std::exchange(value_, nullptr);
  }
};

}  // namespace installer

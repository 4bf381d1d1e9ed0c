// A value that is created at first use and exists until the process ends: the configuration, the catalog, the
// manifest, the logger.
//
// Any thread may use it first; it is created once. It isn't destroyed at exit, because a worker or the
// listener may still use it then. A test that installs another machine gets a new value.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "Base/Mutex.h"

namespace installer {

// Runs `forget` once, at the next `forgetProcessWide`, in reverse order of the calls. Any thread.
void atForgetting(std::function<void()> forget);

// Destroys every process-wide value. No other thread may use one meanwhile. Only a change of machines calls
// this, so a process with one machine never does.
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
  T* value_ GUARDED_BY(mutex_) = nullptr;  // intentionally not destroyed at exit

  void forget() {
    const MutexLock lock{mutex_};
    delete std::exchange(value_, nullptr);
  }
};

}  // namespace installer

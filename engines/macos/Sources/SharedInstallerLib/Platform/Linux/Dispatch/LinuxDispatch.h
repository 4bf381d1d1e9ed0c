// Queues, timers and the clock. The main queue is an Asio context that only `runMainLoop` serves; global
// blocks run on a pool that grows when blocks wait; a timer thread, created with the first timer, only posts
// blocks. The quality of service is ignored: every worker has the process's priority.
#pragma once

#include <memory>

#include "Platform/Dispatch.h"

namespace installer {

class LinuxDispatch : public Dispatch {
 public:
  LinuxDispatch();
  // Stops the timers and waits for the blocks of the global and serial queues. The rest of the main queue is
  // dropped, also `syncMain` work that hasn't begun: no thread may be waiting for it then.
  ~LinuxDispatch() override;

  bool isMainThread() override;
  void asyncMain(Work work) override;
  void asyncMainAfter(Duration delay, Work work) override;
  void syncMain(const Work& work) override;
  void runMainLoop(Duration slice) override;
  void asyncGlobal(QualityOfService quality, Work work) override;
  std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label, QualityOfService quality) override;
  std::shared_ptr<Semaphore> makeSemaphore(int count) override;
  std::unique_ptr<Timer> startTimer(Duration interval, Work handler) override;
  void detachThread(Work work) override;
  TimePoint now() override;
  void sleep(Duration duration) override;

  // Posts `work` to the main queue once, when `descriptor` is readable. The caller owns the descriptor, which
  // must outlive the wait. For the host's own services.
  void asyncMainWhenReadable(int descriptor, Work work);

 private:
  struct Contexts;
  std::unique_ptr<Contexts> contexts_;
};

}  // namespace installer

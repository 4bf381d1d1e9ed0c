// A URL session of the simulated network, and its tasks.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "Support/SimulatedNetwork.h"

namespace installer::test {

class SimulatedTask;

class SimulatedSession : public URLSession, public std::enable_shared_from_this<SimulatedSession> {
 public:
  SimulatedSession(SimulatedNetwork& network, std::shared_ptr<URLSessionDelegate> delegate);

  std::shared_ptr<URLSessionTask> dataTask(const URLRequest& request, DataTaskCompletion completion) override;
  std::shared_ptr<URLSessionTask> downloadTask(const URL& url) override;
  std::shared_ptr<URLSessionTask> downloadTaskWithResumeData(const std::string& resumeData) override;
  void finishTasksAndInvalidate() override;
  void invalidateAndCancel() override;

  bool isInvalidated() const { return invalidated_; }
  const std::shared_ptr<URLSessionDelegate>& delegate() const { return delegate_; }
  // Runs `callback` on the session's queue.
  void post(Work callback) { queue_->async(std::move(callback)); }
  void taskStarted(const std::shared_ptr<SimulatedTask>& task) { running_.insert(task); }
  void taskEnded(const std::shared_ptr<SimulatedTask>& task);
  void letGo();

 private:
  SimulatedNetwork& network_;
  std::shared_ptr<URLSessionDelegate> delegate_;
  std::shared_ptr<SerialQueue> queue_;
  std::set<std::shared_ptr<SimulatedTask>> running_;
  int nextIdentifier_ = 1;
  bool invalidated_ = false;

  std::shared_ptr<SimulatedTask> makeTask();
  void releaseDelegateWhenDone();
};

}  // namespace installer::test

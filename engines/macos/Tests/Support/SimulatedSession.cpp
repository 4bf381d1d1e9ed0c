#include "Support/SimulatedSession.h"

#include <utility>

#include "Support/SimulatedTask.h"

namespace installer::test {

SimulatedSession::SimulatedSession(SimulatedNetwork& network, std::shared_ptr<URLSessionDelegate> delegate)
    : network_{network},
      delegate_{std::move(delegate)},
      queue_{network.dispatch_.makeSerialQueue("URL session", QualityOfService::standard)} {
}

std::shared_ptr<SimulatedTask> SimulatedSession::makeTask() {
  auto task = std::make_shared<SimulatedTask>(network_, shared_from_this(), nextIdentifier_++);
  if (invalidated_) task->failAtOnce(URLErrorCode::cancelled);
  return task;
}

std::shared_ptr<URLSessionTask> SimulatedSession::dataTask(const URLRequest& request,
                                                           DataTaskCompletion completion) {
  auto task = makeTask();
  task->fetchData(request, std::move(completion));
  return task;
}

std::shared_ptr<URLSessionTask> SimulatedSession::downloadTask(const URL& url) {
  auto task = makeTask();
  task->download(URLRequest{.url = url});
  return task;
}

std::shared_ptr<URLSessionTask> SimulatedSession::downloadTaskWithResumeData(const std::string& resumeData) {
  auto task = makeTask();
  task->downloadFrom(resumeData);
  return task;
}

void SimulatedSession::finishTasksAndInvalidate() {
  invalidated_ = true;
  releaseDelegateWhenDone();
}

void SimulatedSession::invalidateAndCancel() {
  invalidated_ = true;
  const auto running = running_;
  for (const auto& task : running) task->cancel();
  releaseDelegateWhenDone();
}

void SimulatedSession::taskEnded(const std::shared_ptr<SimulatedTask>& task) {
  running_.erase(task);
  releaseDelegateWhenDone();
}

void SimulatedSession::releaseDelegateWhenDone() {
  if (!invalidated_ || !running_.empty()) return;
  post([self = shared_from_this()] {
    if (self->running_.empty()) self->delegate_ = nullptr;
  });
}

void SimulatedSession::letGo() {
  const auto delegate = std::exchange(delegate_, nullptr);
  const auto running = std::exchange(running_, {});
}

}  // namespace installer::test

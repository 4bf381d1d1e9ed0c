#include "Installer/OnlineAcquisition.h"

#include <utility>

#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

OnlineAcquisition::OnlineAcquisition(AppInfo app, std::string label,
                                     PackageProvider::ProgressHandler progressHandler,
                                     PackageProvider::Completion completion)
    : app_{std::move(app)},
      label_{std::move(label)},
      progressHandler_{std::move(progressHandler)},
      completion_{std::move(completion)} {
}

void OnlineAcquisition::start() {
  {
    auto session = machine().sessions.make(shared_from_this());
    const MutexLock guard{lock_};
    downloadSession_ = std::move(session);
  }
  machine().dispatch.asyncGlobal(QualityOfService::userInitiated, [weakly = weak_from_this()] {
    if (const auto self = weakly.lock()) self->resolvePackage();
  });
}

void OnlineAcquisition::cancel() {
  std::shared_ptr<URLSession> session;
  std::shared_ptr<URLSessionTask> task;
  bool wasWaitingToRetry = false;
  {
    const MutexLock guard{lock_};
    isCancelled_ = true;
    session = downloadSession_;
    task = downloadTask_;
    wasWaitingToRetry = std::exchange(isWaitingToRetry_, false);
  }
  if (task) task->cancel();
  if (session) session->invalidateAndCancel();
  log("OnlinePackageProvider: Acquisition cancelled");
  if (!wasWaitingToRetry) return;
  // No task reports this cancel, so it is reported here; the retry timer may fire much later.
  machine().dispatch.asyncMain([weakly = weak_from_this()] {
    if (const auto self = weakly.lock()) self->fail(ProviderError::downloadFailed(kCancelled));
  });
}

void OnlineAcquisition::report(const std::string& statusText, const std::string& detailText,
                               const Progress& progress) {
  PackageProvider::ProgressHandler handler;
  {
    const MutexLock guard{lock_};
    handler = progressHandler_;
  }
  if (handler) handler(statusText, detailText, progress);
}

void OnlineAcquisition::fail(ProviderError error) {
  complete(std::unexpected(PackageProvider::Outcome::error_type{std::move(error)}));
}

void OnlineAcquisition::complete(PackageProvider::Outcome outcome) {
  std::shared_ptr<URLSession> session;
  PackageProvider::ProgressHandler handler;
  PackageProvider::Completion completion;
  bool isDuplicate = false;
  {
    const MutexLock guard{lock_};
    isDuplicate = std::exchange(isFinished_, true);
    if (!isDuplicate) {
      session = std::exchange(downloadSession_, nullptr);
      handler = std::exchange(progressHandler_, nullptr);
      completion = std::exchange(completion_, nullptr);
    }
  }
  if (isDuplicate) {
    log("OnlinePackageProvider: ignoring a duplicate completion");
    return;
  }
  if (session) session->finishTasksAndInvalidate();
  completion(std::move(outcome));
}

}  // namespace installer

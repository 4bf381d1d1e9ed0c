// One acquisition of the online package source, from the metadata to the image at its path:
//
//   resolve -> check an existing file -> transfer <-> wait to retry -> finished
//
// A lost connection is retried after 5, 10 and 15 seconds; after any other failure the alternate location is
// tried, once. Each step starts the next one; only a cancel runs at the same time. `lock_` guards the fields
// that both use and isn't held during calls to other code. The completion runs exactly once. The session
// keeps the object alive until then.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "Base/Mutex.h"
#include "Models/PackageMeta.h"
#include "Models/PackageProvider.h"
#include "Platform/Dispatch.h"
#include "Platform/URLSession.h"

namespace installer {

enum class CDNFetchError;
struct CDNPackage;

class OnlineAcquisition : public URLSessionDelegate, public std::enable_shared_from_this<OnlineAcquisition> {
 public:
  OnlineAcquisition(AppInfo app, std::string label, PackageProvider::ProgressHandler progressHandler,
                    PackageProvider::Completion completion);

  void start();
  void cancel();

  void willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& task,
                                  const HTTPURLResponse& redirect, const URLRequest& newRequest,
                                  const RedirectDecision& decide) override;
  void didWriteData(const std::shared_ptr<URLSessionTask>& task, std::int64_t totalBytesWritten,
                    std::int64_t totalBytesExpectedToWrite) override;
  void didFinishDownloadingTo(const std::shared_ptr<URLSessionTask>& task, const Path& location) override;
  void didCompleteWithError(const std::shared_ptr<URLSessionTask>& task,
                            const std::optional<Error>& error) override;

 private:
  const AppInfo app_;
  const std::string label_;

  // Used by one step at a time; each step starts the next one.
  std::optional<VersionInfo> versionInfo_;   // the package being fetched, and its address
  std::optional<URL> alternateDownloadURL_;  // the second location, until it is used
  std::shared_ptr<const std::string> resumeData_;
  std::size_t downloadRetryCount_ = 0;         // at the current location
  std::optional<TimePoint> lastUIUpdateTime_;  // the time of the last report of bytes
  int lastLoggedPercentage_ = -10;             // a multiple of ten

  Mutex lock_;
  bool isFinished_ GUARDED_BY(lock_) = false;  // the completion has been moved out to run
  bool isCancelled_ GUARDED_BY(lock_) = false;
  bool isWaitingToRetry_ GUARDED_BY(lock_) = false;
  std::shared_ptr<URLSession> downloadSession_ GUARDED_BY(lock_);       // null once finished
  std::shared_ptr<URLSessionTask> downloadTask_ GUARDED_BY(lock_);      // the last one
  PackageProvider::ProgressHandler progressHandler_ GUARDED_BY(lock_);  // empty once finished
  PackageProvider::Completion completion_ GUARDED_BY(lock_);            // empty once finished

  // +Resolve
  void resolvePackage();
  void resolveFailed(CDNFetchError error);
  void judgePackage(const CDNPackage& package);

  // +Transfer
  void startTrustedDownload(VersionInfo versionInfo);
  void startDownload();
  void checkExistingFile();
  void beginDownload();
  std::shared_ptr<URLSession> sessionForDownload();
  bool switchToAlternate(const std::string& reason);

  // +Callbacks
  bool retriesAfter(const Error& error);
  bool startsWaiting();
  void retryLater(int delaySeconds);
  void logProgress(double percent);
  bool mayFeedHandler(double percent);
  [[nodiscard]] Result<> moveIntoPlace(const Path& location);
  AcquiredPackage acquiredPackage() const;

  static constexpr const char* kCancelled = "cancelled";  // the reason of a cancelled acquisition's failure

  void report(const std::string& statusText, const std::string& detailText = {},
              const Progress& progress = {});
  void fail(ProviderError error);
  void complete(PackageProvider::Outcome outcome);
};

}  // namespace installer

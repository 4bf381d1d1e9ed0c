// Checks for an existing file and starts the transfer.
#include <fmt/format.h>
#include <utility>

#include "Installer/OnlineAcquisition.h"
#include "Platform/Machine.h"
#include "Utils/ChecksumVerifier.h"
#include "Utils/Log.h"
#include "Utils/URLTrust.h"

namespace installer {

void OnlineAcquisition::startTrustedDownload(VersionInfo versionInfo) {
  if (!URLTrust::isTrusted(versionInfo.downloadURL)) {
    logError("OnlinePackageProvider: refusing download URL — " +
             URLTrust::refusalReason(versionInfo.downloadURL));
    fail(ProviderError::untrustedDownloadURL(URLTrust::hostForLog(versionInfo.downloadURL)));
    return;
  }
  versionInfo_ = std::move(versionInfo);
  startDownload();
}

void OnlineAcquisition::startDownload() {
  if (!machine().files.fileExists(app_.tempFilePath())) {
    beginDownload();
    return;
  }
  log("OnlinePackageProvider: Temp file exists for {}, verifying checksum...", app_.displayName);
  report(fmt::format("Verifying existing file - {}...", label_));
  machine().dispatch.asyncGlobal(QualityOfService::userInitiated, [weakly = weak_from_this()] {
    if (const auto self = weakly.lock()) self->checkExistingFile();
  });
}

void OnlineAcquisition::checkExistingFile() {
  if (ChecksumVerifier::verifyFileChecksum(app_.tempFilePath(), versionInfo_->checksum)) {
    log("OnlinePackageProvider: Existing file valid for {}, skipping download", app_.displayName);
    complete(acquiredPackage());
    return;
  }
  // Failures are ignored: `moveIntoPlace` reports them.
  static_cast<void>(machine().files.removeItem(app_.tempFilePath()));
  resumeData_.reset();
  beginDownload();
}

void OnlineAcquisition::beginDownload() {
  const auto session = sessionForDownload();
  if (!session) return;
  report(fmt::format("Downloading {}...", label_));
  log("OnlinePackageProvider: Starting download for {}: {}", app_.displayName,
      versionInfo_->downloadURL.absoluteString());
  const auto task = resumeData_ ? session->downloadTaskWithResumeData(*resumeData_)
                                : session->downloadTask(versionInfo_->downloadURL);
  {
    const MutexLock guard{lock_};
    downloadTask_ = task;
  }
  // After a cancel meanwhile, the session or the task has ended, and the task fails without a transfer.
  task->resume();
}

std::shared_ptr<URLSession> OnlineAcquisition::sessionForDownload() {
  std::shared_ptr<URLSession> session;
  bool wasCancelled = false;
  {
    const MutexLock guard{lock_};
    isWaitingToRetry_ = false;
    session = downloadSession_;
    wasCancelled = isCancelled_;
  }
  // A retry timer or a late step can call this after the end.
  if (!session) {
    log("OnlinePackageProvider: ignoring a download start after the run already finished");
    return nullptr;
  }
  if (!wasCancelled) return session;
  log("OnlinePackageProvider: not starting a download for a cancelled run");
  fail(ProviderError::downloadFailed(kCancelled));
  return nullptr;
}

bool OnlineAcquisition::switchToAlternate(const std::string& reason) {
  if (!alternateDownloadURL_ || !versionInfo_) return false;
  {
    const MutexLock guard{lock_};
    if (isFinished_ || isCancelled_) return false;
  }
  const auto url = *std::exchange(alternateDownloadURL_, std::nullopt);
  resumeData_.reset();  // belongs to the other location
  downloadRetryCount_ = 0;
  logWarn(
      "OnlinePackageProvider: primary download failed ({}); trying the alternateDownloadUrl from meta.json: {}",
      reason, url.absoluteString());
  report("Retrying from an alternate location...");
  startTrustedDownload(
      {.version = versionInfo_->version, .downloadURL = url, .checksum = versionInfo_->checksum});
  return true;
}

}  // namespace installer

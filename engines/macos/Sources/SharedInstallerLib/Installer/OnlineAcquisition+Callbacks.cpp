// The session's callbacks about a running transfer.
#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "Installer/OnlineAcquisition.h"
#include "Platform/Machine.h"
#include "Utils/ByteCountFormatter.h"
#include "Utils/Log.h"
#include "Utils/SystemUtils.h"
#include "Utils/URLTrust.h"

namespace installer {

namespace {

constexpr std::array downloadRetryTimeouts{5, 10, 15};  // seconds before the first, second and third retry

constexpr Duration kHandlerInterval{1.0};
constexpr double kDownloadShare = 0.8;  // of the app's 100 points

// 0 while the total is unknown.
double percentOf(std::int64_t written, std::int64_t expected) {
  if (expected <= 0 || written <= 0) return 0.0;
  return std::min(100.0, static_cast<double>(written) / static_cast<double>(expected) * 100.0);
}

std::string byteText(std::int64_t count) {
  return ByteCountFormatter::string(count, ByteCountFormatter::CountStyle::binary);
}

bool isHTTPError(const std::optional<HTTPURLResponse>& response) {
  return response && (response->statusCode < 200 || response->statusCode > 299);
}

}  // namespace

void OnlineAcquisition::willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& task,
                                                   const HTTPURLResponse& /*redirect*/,
                                                   const URLRequest& newRequest,
                                                   const RedirectDecision& decide) {
  if (URLTrust::isTrusted(newRequest.url)) {
    decide(newRequest);
    return;
  }
  const auto host = URLTrust::hostForLog(newRequest.url);
  logError(
      "OnlinePackageProvider: refusing a redirect to '{}' — not https on a host in trustedDownloadDomains",
      host);
  decide(std::nullopt);
  task->cancel();
  fail(ProviderError::untrustedDownloadURL(host));
}

void OnlineAcquisition::didWriteData(const std::shared_ptr<URLSessionTask>& /*task*/,
                                     std::int64_t totalBytesWritten, std::int64_t totalBytesExpectedToWrite) {
  const double percent = percentOf(totalBytesWritten, totalBytesExpectedToWrite);
  logProgress(percent);
  if (!mayFeedHandler(percent)) return;
  const bool isTotalKnown = totalBytesExpectedToWrite > 0;
  report(
      "Downloading " + label_,
      fmt::format("{} of {} ({}%)", byteText(totalBytesWritten),
                  isTotalKnown ? byteText(totalBytesExpectedToWrite) : "unknown", static_cast<int>(percent)),
      {.percent = percent * kDownloadShare,
       .downloadedBytes = totalBytesWritten,
       .totalBytes = isTotalKnown ? std::optional{totalBytesExpectedToWrite} : std::nullopt});
  lastUIUpdateTime_ = machine().dispatch.now();
}

void OnlineAcquisition::logProgress(double percent) {
  const int tens = static_cast<int>(percent / 10.0) * 10;
  if (tens == lastLoggedPercentage_) return;
  log("OnlinePackageProvider: Download progress for {}: {}%", app_.displayName, static_cast<int>(percent));
  lastLoggedPercentage_ = tens;
}

bool OnlineAcquisition::mayFeedHandler(double percent) {
  if (!lastUIUpdateTime_ || percent >= 100.0) return true;
  return machine().dispatch.now() - *lastUIUpdateTime_ >= kHandlerInterval;
}

void OnlineAcquisition::didFinishDownloadingTo(const std::shared_ptr<URLSessionTask>& task,
                                               const Path& location) {
  if (!versionInfo_) {
    logError("OnlinePackageProvider: download finished with no active app/versionInfo — failing the run");
    fail(ProviderError::invalidResponse());
    return;
  }
  if (const auto response = task->response(); isHTTPError(response)) {
    const auto reason = fmt::format("HTTP {}", response->statusCode);
    logError("OnlinePackageProvider: download for {} returned {}", app_.displayName, reason);
    if (!switchToAlternate(reason)) fail(ProviderError::downloadFailed(reason));
    return;
  }
  if (const auto moved = moveIntoPlace(location); !moved) {
    fail(ProviderError::fileSaveFailed(moved.error().localizedDescription));
    return;
  }
  resumeData_.reset();
  log("OnlinePackageProvider: Download complete for {}", app_.displayName);
  complete(acquiredPackage());
}

Result<> OnlineAcquisition::moveIntoPlace(const Path& location) {
  auto& files = machine().files;
  const auto destination = app_.tempFilePath();
  if (files.fileExists(destination)) {
    if (auto removed = files.removeItem(destination); !removed) return handOn(removed);
  }
  return files.moveItem(location, destination);
}

AcquiredPackage OnlineAcquisition::acquiredPackage() const {
  return {.fileURL = app_.tempFilePath(),
          .checksum = versionInfo_->checksum,
          .skipGatekeeper = false,
          .version = versionInfo_->version};
}

void OnlineAcquisition::didCompleteWithError(const std::shared_ptr<URLSessionTask>& /*task*/,
                                             const std::optional<Error>& error) {
  if (!error) return;
  logError("OnlinePackageProvider: Download error for {}: {}", app_.displayName, error->localizedDescription);
  if (error->downloadResumeData) resumeData_ = error->downloadResumeData;
  if (retriesAfter(*error)) return;
  if (switchToAlternate(error->localizedDescription)) return;
  fail(ProviderError::downloadFailed(error->localizedDescription));
}

bool OnlineAcquisition::retriesAfter(const Error& error) {
  if (!SystemUtils::isNetworkConnectionError(error)) return false;
  if (downloadRetryCount_ >= downloadRetryTimeouts.size() || !startsWaiting()) return false;
  retryLater(downloadRetryTimeouts.at(downloadRetryCount_));
  return true;
}

// False after a cancel: then there is no retry.
bool OnlineAcquisition::startsWaiting() {
  const MutexLock guard{lock_};
  if (isCancelled_) return false;
  isWaitingToRetry_ = true;
  return true;
}

void OnlineAcquisition::retryLater(int delaySeconds) {
  ++downloadRetryCount_;
  logWarn("OnlinePackageProvider: Retrying download in {}s (attempt {}/{})", delaySeconds,
          downloadRetryCount_, downloadRetryTimeouts.size());
  report(fmt::format("Connection interrupted. Retrying in {}s...", delaySeconds));
  machine().dispatch.asyncMainAfter(Duration{delaySeconds}, [weakly = weak_from_this()] {
    const auto self = weakly.lock();
    if (self && self->versionInfo_) self->beginDownload();
  });
}

}  // namespace installer

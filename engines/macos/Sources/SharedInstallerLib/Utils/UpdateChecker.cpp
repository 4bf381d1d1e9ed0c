#include "Utils/UpdateChecker.h"

#include <algorithm>
#include <map>
#include <memory>

#include "Base/Mutex.h"
#include "Platform/Machine.h"
#include "Utils/CDNSource.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/VersionComparison.h"

namespace installer {

bool AppUpdateStatus::updateAvailable(const std::optional<std::string>& version) const {
  if (!isInstalled || !installedVersion || !version) return false;
  return compareVersion(*installedVersion, *version) == ComparisonResult::ascending;
}

std::optional<CopySource> AppUpdateStatus::source() const {
  if (!isInstalled) return std::nullopt;
  return isAppStore ? CopySource::appStore : CopySource::direct;
}

}  // namespace installer

namespace installer::UpdateChecker {

namespace {

// The results of one sweep's tasks.
struct Findings {
  std::map<AppIdentifier, std::string> latestVersions;
  std::map<AppIdentifier, std::int64_t> sizes;
  std::map<AppIdentifier, CDNFetchError> failures;
};

struct SharedFindings {
  Mutex mutex;
  Findings findings GUARDED_BY(mutex);
};

void look(const AppInfo& app, SharedFindings& shared) {
  const auto package = CDNSource::fetchPackage(app, CDNSource::kFetchTimeout);
  const MutexLock lock{shared.mutex};
  Findings& findings = shared.findings;
  if (!package) {
    findings.failures[app.id] = package.error();
    return;
  }
  if (package->meta.version) findings.latestVersions[app.id] = *package->meta.version;
  if (package->meta.size) findings.sizes[app.id] = *package->meta.size;
}

// One task per app, all at once. Returns after the last has ended; the time limit of a fetch bounds each.
Findings lookAtAll(const std::vector<AppInfo>& apps) {
  const auto shared = std::make_shared<SharedFindings>();
  auto& dispatch = machine().dispatch;
  const auto ended = dispatch.makeSemaphore(0);
  for (const auto& app : apps) {
    dispatch.asyncGlobal(QualityOfService::userInitiated, [app, shared, ended] {
      look(app, *shared);
      ended->signal();
    });
  }
  for (std::size_t i = 0; i < apps.size(); ++i) ended->wait();
  const MutexLock lock{shared->mutex};
  return std::move(shared->findings);
}

template <class Value>
std::optional<Value> found(const std::map<AppIdentifier, Value>& values, AppIdentifier id) {
  const auto entry = values.find(id);
  if (entry == values.end()) return std::nullopt;
  return entry->second;
}

AppUpdateStatus statusOf(const AppInstallationStatus& installed, const Findings& findings) {
  const auto& app = installed.app;
  return {.app = app,
          .installedVersion = installed.primaryVersion,
          .installedPath = installed.primaryPath,
          .latestVersion = found(findings.latestVersions, app.id),
          .downloadSizeBytes = found(findings.sizes, app.id),
          .isInstalled = installed.primaryInstallation.isInstalled(),
          .isAppStore = installed.primaryInstallation.isAppStore()};
}

bool everyLookupFoundNothing(const std::vector<AppInfo>& apps, const Findings& findings) {
  return !apps.empty() && findings.failures.size() == apps.size() &&
         std::ranges::all_of(findings.failures,
                             [](const auto& entry) { return entry.second == CDNFetchError::notFound; });
}

}  // namespace

UpdateSweep sweep(const std::vector<AppInfo>& apps, bool network) {
  std::vector<AppInstallationStatus> installed;
  installed.reserve(apps.size());
  for (const auto& app : apps) installed.push_back(ExistingAppDetector::detect(app));

  const auto findings = network ? lookAtAll(apps) : Findings{};

  UpdateSweep result;
  for (const auto& status : installed) result.statuses.push_back(statusOf(status, findings));
  result.allPackagesMissing = network && everyLookupFoundNothing(apps, findings);
  return result;
}

std::vector<AppUpdateStatus> statusAll(const std::vector<AppInfo>& apps, bool network) {
  return sweep(apps, network).statuses;
}

std::optional<std::string> fetchLatestVersion(const AppInfo& app, Duration timeout) {
  const auto package = CDNSource::fetchPackage(app, timeout);
  if (!package) return std::nullopt;
  return package->meta.version;
}

}  // namespace installer::UpdateChecker

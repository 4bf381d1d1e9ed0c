#include "Installer/SilentRunner.h"

#include <algorithm>
#include <cassert>
#include <fmt/format.h>
#include <string>
#include <utility>

#include "Installer/AppUninstaller.h"
#include "Installer/RunRules.h"
#include "Models/AppInfo.h"
#include "Models/PackageProvider.h"
#include "Platform/Machine.h"
#include "Utils/InstallerLifecycle.h"
#include "Utils/Log.h"
#include "Utils/RunExitCode.h"
#include "Utils/SystemUtils.h"

namespace installer {

void HeadlessInstallDelegate::orchestratorDidUpdateProgress(const std::string& statusText,
                                                            const std::string& detailText, double progress) {
  noteActivity();
  auto line = fmt::format("SilentRunner [install {:.0f}%] {}", progress, statusText);
  if (!detailText.empty()) line += " | " + detailText;
  log(line);
}

void writeSummary(InstallerAction action, const std::vector<SummaryEntry>& entries, ExitCode exitCode,
                  const std::optional<std::string>& note) {
  log("--- SILENT RUN SUMMARY action={} exit_code={} ---", rawValue(action), std::to_underlying(exitCode));
  for (const auto& entry : entries) {
    auto line = fmt::format("  app=\"{}\" status={}", entry.appName, rawValue(entry.status));
    if (entry.detail) line += fmt::format(" detail=\"{}\"", *entry.detail);
    log(line);
  }
  if (note) log("  note=\"{}\"", *note);
  log("--- END SUMMARY ---");
}

namespace {

std::string selectionText(const std::vector<AppIdentifier>& identifiers) {
  if (identifiers.empty()) return "all";
  std::vector<std::string_view> values;
  for (const auto identifier : identifiers) values.push_back(rawValue(identifier));
  return fmt::format("{}", fmt::join(values, ","));
}

// Ends a run before any app is changed.
ExitCode stop(InstallerAction action, ExitCode exitCode, const std::string& note) {
  writeSummary(action, {}, exitCode, note);
  return exitCode;
}

ExitCode stopWithoutApps(InstallerAction action) {
  logError("SilentRunner: No valid apps resolved from --apps argument");
  return stop(action, ExitCode::invalidArguments, "No valid app identifiers supplied");
}

AppStatus statusOf(const AppInstallResult& result) {
  if (result.success) return result.alreadyCurrent ? AppStatus::skipped : AppStatus::installed;
  return result.cancelled ? AppStatus::cancelled : AppStatus::failed;
}

AppStatus statusOf(const UninstallResult& result) {
  if (result.success) return result.alreadyAbsent ? AppStatus::alreadyAbsent : AppStatus::uninstalled;
  if (result.cancelled) return AppStatus::cancelled;
  return result.skipped ? AppStatus::skipped : AppStatus::failed;
}

template <class Result>
std::vector<std::string> statusWords(const std::vector<Result>& results) {
  std::vector<std::string> words;
  for (const auto& result : results) words.emplace_back(rawValue(statusOf(result)));
  return words;
}

ExitCode computeInstallExitCode(const std::vector<AppInstallResult>& results, bool strict) {
  return RunExitCode::forRun(statusWords(results), strict, RunRules::anyPermissionDenied(results));
}

ExitCode computeUninstallExitCode(const std::vector<UninstallResult>& results, bool strict) {
  const bool permissionDenied = std::ranges::any_of(results, [](const UninstallResult& result) {
    return !result.success && !result.skipped && result.permissionDenied;
  });
  return RunExitCode::forRun(statusWords(results), strict, permissionDenied);
}

// Less detailed than the exit code on purpose: a cancelled app is "failed", a current one "installed".
SummaryEntry summaryEntry(const AppInstallResult& result) {
  return {.appName = result.app.displayName,
          .status = result.success ? AppStatus::installed : AppStatus::failed,
          .detail = result.errorMessage};
}

SummaryEntry summaryEntry(const UninstallResult& result) {
  return {.appName = result.app.displayName,
          .status = result.cancelled ? AppStatus::failed : statusOf(result),
          .detail = result.skipped ? result.skipReason : result.errorMessage};
}

template <class Result>
std::vector<SummaryEntry> summaryEntries(const std::vector<Result>& results) {
  std::vector<SummaryEntry> entries;
  for (const auto& result : results) entries.push_back(summaryEntry(result));
  return entries;
}

// Makes a cancelled run a partial success even if all earlier apps succeeded. The results are in the order of
// the apps, so the apps without a result are the last ones.
void addNeverReached(std::vector<AppInstallResult>& results, const std::vector<AppInfo>& apps) {
  while (results.size() < apps.size()) {
    results.push_back(AppInstallResult::givenUp(apps[results.size()]));
  }
}

void openInstalledApps(const std::vector<AppInstallResult>& results) {
  for (const auto& result : results) {
    if (!result.success) continue;
    const auto path =
        result.installedPath.value_or(joined(machine().paths.applications, result.app.appBundleName));
    log("SilentRunner: Opening {} at {}", result.app.displayName, path);
    // Failures are ignored: the app is installed even if it can't be opened.
    (void)machine().processes.launch(machine().paths.open, {path});
  }
}

}  // namespace

SilentRunner::SilentRunner(std::shared_ptr<PackageProvider> provider) : provider_{std::move(provider)} {
}

ExitCode SilentRunner::run(const RunOptions& options) {
  assert(machine().dispatch.isMainThread());
  log("SilentRunner: Starting — action={} apps={} strict={} openAfterInstall={}", rawValue(options.action),
      selectionText(options.selectedApps), options.strict, options.openAfterInstall);
  return options.action == InstallerAction::install ? runInstall(options) : runUninstall(options);
}

// The order of the checks is a contract: invalid selection, then expiry, then the network.
ExitCode SilentRunner::runInstall(const RunOptions& options) {
  const auto apps = RunRules::resolveApps(options.selectedApps);
  if (apps.empty()) return stopWithoutApps(InstallerAction::install);
  log("SilentRunner: Installing " + identifierList(apps));
  if (const auto retirement = InstallerLifecycle::expiry()) {
    const auto message = RunRules::expiryMessage(*retirement);
    log("SilentRunner: " + message);
    return stop(InstallerAction::install, ExitCode::fullFailure, message);
  }
  if (!isConnected()) {
    return stop(InstallerAction::install, ExitCode::networkFailure, "No internet connection");
  }

  const auto results = installAll(apps);
  const auto exitCode = computeInstallExitCode(results, options.strict);
  writeSummary(InstallerAction::install, summaryEntries(results), exitCode, std::nullopt);
  if (options.openAfterInstall && !isCancelled_) openInstalledApps(results);
  return exitCode;
}

std::vector<AppInstallResult> SilentRunner::installAll(const std::vector<AppInfo>& apps) {
  const auto delegate = std::make_shared<HeadlessInstallDelegate>();
  activeRun_ = std::make_shared<InstallRun>(provider_, delegate);
  if (activeRun_->run(apps) == InstallRun::End::idle) {
    logError("SilentRunner: Idle timeout (600 s with no progress) — proceeding with partial results");
  }
  activeRun_ = nullptr;

  auto results = delegate->results();
  if (isCancelled_) addNeverReached(results, apps);
  return results;
}

bool SilentRunner::isConnected() const {
  if (provider_->isOfflineMode()) return true;
  log("SilentRunner: Checking internet connectivity…");
  if (!SystemUtils::isInternetReachable(RunRules::kConnectivityTimeout)) {
    logError("SilentRunner: No internet connection — aborting");
    return false;
  }
  log("SilentRunner: Internet connection confirmed");
  return true;
}

// Without a check of the expiry or the network, and without a password prompt.
ExitCode SilentRunner::runUninstall(const RunOptions& options) {
  const auto apps = RunRules::resolveApps(options.selectedApps);
  if (apps.empty()) return stopWithoutApps(InstallerAction::uninstall);
  log("SilentRunner: Uninstalling " + identifierList(apps));
  const auto results = AppUninstaller::uninstallAll(apps, false, [this] { return mayGoOn(); });
  const auto exitCode = computeUninstallExitCode(results, options.strict);
  writeSummary(InstallerAction::uninstall, summaryEntries(results), exitCode, std::nullopt);
  return exitCode;
}

bool SilentRunner::mayGoOn() {
  // Cancels are delivered only here, because a removal blocks this thread.
  machine().dispatch.runMainLoop(RunRules::kRunLoopSlice);
  return !isCancelled_;
}

void SilentRunner::cancel() {
  assert(machine().dispatch.isMainThread());
  isCancelled_ = true;
  if (activeRun_ != nullptr) activeRun_->cancelInstallation();
}

}  // namespace installer

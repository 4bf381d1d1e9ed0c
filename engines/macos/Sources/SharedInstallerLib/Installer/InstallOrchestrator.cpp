// The list of apps: the next app, the report of each result, and cancels.
#include "Installer/InstallOrchestrator.h"

#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>

#include "Platform/Machine.h"
#include "Utils/Log.h"
#include "Utils/SystemUtils.h"

namespace installer {

AppInstallResult AppInstallResult::installed(AppInfo app, std::optional<Path> path) {
  AppInstallResult result{std::move(app), true};
  result.installedPath = std::move(path);
  return result;
}

AppInstallResult AppInstallResult::skipped(AppInfo app, std::optional<Path> path) {
  auto result = installed(std::move(app), std::move(path));
  result.alreadyCurrent = true;
  return result;
}

AppInstallResult AppInstallResult::failed(AppInfo app, std::optional<std::string> message,
                                          std::optional<ErrorCode> code) {
  AppInstallResult result{std::move(app), false};
  result.errorMessage = std::move(message);
  result.errorCode = code;
  return result;
}

AppInstallResult AppInstallResult::givenUp(AppInfo app) {
  auto result = failed(std::move(app), "cancelled", std::nullopt);
  result.cancelled = true;
  return result;
}

namespace {

AppInstallResult acquisitionFailure(const AppInfo& app, const AcquisitionError& error) {
  return AppInstallResult::failed(app, errorDescription(error), code(error));
}

}  // namespace

void InstallOrchestrator::setDelegate(std::weak_ptr<InstallOrchestratorDelegate> delegate) {
  assert(machine().dispatch.isMainThread());
  delegate_ = std::move(delegate);
}

void InstallOrchestrator::startInstallation(std::vector<AppInfo> apps) {
  if (apps.empty()) return;
  const auto count = apps.size();
  state_.start(std::move(apps));
  log("InstallOrchestrator: Starting installation of {} apps (offline={})", count, isOfflineMode());
  processNextApp();
}

// A loop instead of recursion: an app can end within its own step, and recursion would use stack for each
// such app.
void InstallOrchestrator::processNextApp() {
  while (state_.hold()) {
    takeNextStep();
    if (!state_.release()) return;
  }
}

void InstallOrchestrator::takeNextStep() {
  const auto standing = state_.standing();
  if (standing.isCancelled) {
    log("InstallOrchestrator: Cancelled, stopping — delivering {} collected results", standing.resultCount);
    return finish();
  }
  if (!standing.app) {
    log("InstallOrchestrator: All {} apps processed", standing.count);
    return finish();
  }
  if (standing.isSkipRequested) {
    log("InstallOrchestrator: Skipping {} — cancelled by user", standing.app->displayName);
    return markCurrentAppComplete(AppInstallResult::givenUp(*standing.app));
  }
  if (hasTurn(*standing.app)) acquire(*standing.app, standing.index + 1, standing.count);
}

bool InstallOrchestrator::hasTurn(const AppInfo& app) {
  if (turn_) return true;
  if (auto held = turnUntilDeletion_.lock(); held && !AppTurns::isAwaited()) {
    turn_ = std::move(held);
    return true;
  }
  turn_ = AppTurns::tryTake(app);
  if (turn_) return true;
  machine().dispatch.asyncGlobal(QualityOfService::userInitiated, [weak = weak_from_this(), app] {
    if (const auto self = weak.lock()) self->waitForTurn(app);
  });
  return false;
}

// After the wait the list repeats the same step, which checks for cancels.
void InstallOrchestrator::waitForTurn(const AppInfo& app) {
  auto turn = AppTurns::take(app, {.goesOn =
                                       [&] {
                                         machine().dispatch.sleep(AppTurns::kLookInterval);
                                         return !state_.isGivenUp(app.id);
                                       },
                                   .report =
                                       [this](const std::optional<std::string>& message) {
                                         post([message](InstallOrchestratorDelegate& delegate) {
                                           delegate.orchestratorIsWaiting(message);
                                         });
                                       }});
  if (!turn && turn.error() == AppTurns::Denied::timedOut) {
    return markCurrentAppComplete(
        AppInstallResult::failed(app, AppTurns::timeoutMessage(app), ErrorCode::installFailed));
  }
  if (turn) turn_ = *std::move(turn);
  processNextApp();
}

void InstallOrchestrator::finish() {
  post([results = state_.results()](InstallOrchestratorDelegate& delegate) {
    delegate.orchestratorDidFinish(results);
  });
}

void InstallOrchestrator::acquire(const AppInfo& app, std::size_t number, std::size_t count) {
  const auto label = fmt::format("{} ({}/{})", app.displayName, number, count);
  log("InstallOrchestrator: Processing app {}/{}: {}", number, count, app.displayName);
  state_.setStage(InstallStage::download);
  updateApp(app, InstallStage::download, {});

  provider_->acquirePackage(app, label, makeProgressHandler(app), makeCompletion(app, label));
  // Repeats a cancel that came just before the start, when the source had nothing to cancel.
  if (state_.isDownloadGivenUp(number - 1)) provider_->cancelAcquisition();
}

PackageProvider::ProgressHandler InstallOrchestrator::makeProgressHandler(const AppInfo& app) {
  return [weak = weak_from_this(), app](const std::string& statusText, const std::string& detailText,
                                        const Progress& progress) {
    const auto self = weak.lock();
    if (self == nullptr) return;
    self->updateProgress(statusText, detailText, progress.percent);
    self->updateApp(app, InstallStage::download, progress);
  };
}

PackageProvider::Completion InstallOrchestrator::makeCompletion(const AppInfo& app,
                                                                const std::string& label) {
  return [weak = weak_from_this(), app, label](const PackageProvider::Outcome& outcome) {
    const auto self = weak.lock();
    if (self == nullptr) return;
    if (outcome) return self->verifyAndInstall(app, *outcome, label);
    self->markCurrentAppComplete(acquisitionFailure(app, outcome.error()));
  };
}

void InstallOrchestrator::markCurrentAppComplete(const AppInstallResult& result) {
  if (!state_.standing().app) {
    std::fputs("InstallOrchestrator: a source ended one acquisition twice\n", stderr);
    std::abort();  // the state of the list is invalid
  }
  state_.keep(result);
  post([result](InstallOrchestratorDelegate& delegate) { delegate.orchestratorDidCompleteApp(result); });
  if (result.success) {
    log("InstallOrchestrator: {} installed successfully", result.app.displayName);
  } else {
    const auto message = result.errorMessage.value_or("unknown");
    logError("InstallOrchestrator: {} failed: {}", result.app.displayName, message);
    Telemetry::report_to_server("macOS", "install_failed", message, std::string{rawValue(result.app.id)});
  }
  turn_.reset();
  state_.advance();
  processNextApp();
}

void InstallOrchestrator::cancelInstallation() {
  assert(machine().dispatch.isMainThread());
  state_.cancel();
  if (state_.stage() == InstallStage::download) provider_->cancelAcquisition();
  log("InstallOrchestrator: Installation cancelled by user (stage={})", rawValue(state_.stage()));
}

void InstallOrchestrator::cancelApp(AppIdentifier app) {
  assert(machine().dispatch.isMainThread());
  // The provider's cancel isn't for a specific app, so it is called only for the current one; the list is
  // held meanwhile, so that the next app can't begin.
  const bool isAcquiring = state_.requestSkip(app);
  if (isAcquiring) provider_->cancelAcquisition();
  log("InstallOrchestrator: Cancel requested for {} (stage={})", rawValue(app), rawValue(state_.stage()));
  if (isAcquiring && state_.release()) processNextApp();
}

bool InstallOrchestrator::isDeletingDownload() const {
  assert(machine().dispatch.isMainThread());
  return !turnUntilDeletion_.expired();
}

void InstallOrchestrator::updateProgress(const std::string& statusText, const std::string& detailText,
                                         double appLocalProgress) {
  post([=, overall = state_.overallProgress(appLocalProgress)](InstallOrchestratorDelegate& delegate) {
    delegate.orchestratorDidUpdateProgress(statusText, detailText, overall);
  });
}

void InstallOrchestrator::updateApp(const AppInfo& app, InstallStage stage, const Progress& progress) {
  post([stage, progress, id = app.id](InstallOrchestratorDelegate& delegate) {
    delegate.orchestratorDidUpdateApp(std::string{rawValue(id)}, stage, progress);
  });
}

void InstallOrchestrator::post(Report report) {
  machine().dispatch.asyncMain([self = shared_from_this(), report = std::move(report)] {
    if (const auto delegate = self->delegate_.lock()) report(*delegate);
  });
}

}  // namespace installer

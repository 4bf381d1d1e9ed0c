#include "Installer/AppTurn.h"

#include <fmt/format.h>
#include <utility>

#include "Installer/AppUninstaller.h"
#include "Installer/DMGInstaller.h"
#include "Platform/Machine.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"
#include "Utils/LogExport.h"

namespace installer::AppTurns {

namespace {

constexpr std::chrono::seconds kSignInterval{60};

// Absent while another engine has it. Null, as for a turn, when it can't be locked.
std::optional<AppTurn> tryTakePlace() {
  auto lock = machine().files.tryLock(parentFolder(machine().paths.applications));
  if (!lock) return AppTurn{};
  if (*lock == nullptr) return std::nullopt;
  return AppTurn{*std::move(lock)};
}

// For an engine that has the place.
std::optional<AppTurn> tryTakeFromPlace(const AppInfo& app) {
  const Path& folder = machine().paths.applications;
  auto lock = machine().files.tryLock(folder);
  if (!lock) {
    // Without the folder there is no app that another engine could work on, so this isn't logged.
    if (machine().files.directoryExists(folder)) {
      logWarn("AppTurn: {} can't be locked, continuing without a lock: {}", folder,
              lock.error().localizedDescription);
    }
    return AppTurn{};
  }
  if (*lock == nullptr) return std::nullopt;
  ExistingAppDetector::forgetCachedBundle(joined(folder, app.appBundleName));
  // No other engine works now, so all unfinished work is from killed engines.
  AppUninstaller::clearInterruptedWork();
  DMGInstaller::detachInterrupted();
  LogExport::clearInterruptedExports();
  return AppTurn{*std::move(lock)};
}

}  // namespace

std::optional<AppTurn> tryTake(const AppInfo& app) {
  const auto place = tryTakePlace();
  return place ? tryTakeFromPlace(app) : std::nullopt;
}

bool isAwaited() {
  return !tryTakePlace();
}

Expected<AppTurn, Denied> take(const AppInfo& app, const Wait& wait) {
  auto place = tryTakePlace();
  auto turn = place ? tryTakeFromPlace(app) : std::nullopt;
  if (turn) return *std::move(turn);

  const auto message =
      fmt::format("Waiting for another Kelo Desk Installer, which is at work in {}, before {}",
                  machine().paths.applications, app.displayName);
  log("AppTurn: " + message);
  if (wait.report) wait.report(message);
  auto& dispatch = machine().dispatch;
  const auto limit = dispatch.now() + kWaitLimit;
  auto nextSign = dispatch.now() + kSignInterval;
  while (dispatch.now() < limit) {
    if (!wait.goesOn()) return std::unexpected(Denied::givenUp);
    if (!place) place = tryTakePlace();
    if (place && (turn = tryTakeFromPlace(app))) return *std::move(turn);
    if (!wait.report || dispatch.now() < nextSign) continue;
    wait.report(std::nullopt);
    nextSign += kSignInterval;
  }
  logError("AppTurn: " + timeoutMessage(app));
  return std::unexpected(Denied::timedOut);
}

std::string timeoutMessage(const AppInfo& app) {
  return fmt::format("{} was not changed: another Kelo Desk Installer has been at work in {} for {} minutes.",
                     app.displayName, machine().paths.applications,
                     std::chrono::duration_cast<std::chrono::minutes>(kWaitLimit).count());
}

}  // namespace installer::AppTurns

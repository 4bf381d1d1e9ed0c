// The steps for one acquired package: verification, installation, and removal of a downloaded file.
#include <array>
#include <fmt/format.h>
#include <string_view>

#include "Installer/DMGInstaller.h"
#include "Installer/InstallOrchestrator.h"
#include "Platform/Machine.h"
#include "Utils/ChecksumVerifier.h"
#include "Utils/Log.h"

namespace installer {

namespace {

// Removes a downloaded image; an image from the resources stays.
void discard(const AcquiredPackage& package) {
  if (package.skipGatekeeper) return;
  (void)machine().files.removeItem(
      package.fileURL);  // failures are ignored: the file is in a temporary folder
}

// One step of the verification of a package; `name` is part of the messages.
struct Verification {
  std::string_view name;
  bool (*passes)(const AcquiredPackage&);
  ErrorCode code;
};

// In this order. An image from the resources isn't assessed.
constexpr std::array kVerifications{
    Verification{"Checksum",
                 [](const AcquiredPackage& package) {
                   return !package.checksum ||
                          ChecksumVerifier::verifyFileChecksum(package.fileURL, *package.checksum);
                 },
                 ErrorCode::verifyFailed},
    Verification{"Gatekeeper",
                 [](const AcquiredPackage& package) {
                   return package.skipGatekeeper || ChecksumVerifier::verifyGatekeeper(package.fileURL);
                 },
                 ErrorCode::gatekeeperFailed},
    Verification{"Signature",
                 [](const AcquiredPackage& package) {
                   return package.skipGatekeeper || ChecksumVerifier::verifySignature(package.fileURL);
                 },
                 ErrorCode::signatureFailed},
};

}  // namespace

void InstallOrchestrator::verifyAndInstall(const AppInfo& app, const AcquiredPackage& package,
                                           const std::string& label) {
  if (state_.isGivenUp(app.id)) {
    discard(package);
    return markCurrentAppComplete(AppInstallResult::givenUp(app));
  }
  state_.setStage(InstallStage::verify);
  updateProgress(fmt::format("Verifying {}...", label), "", 85);
  updateApp(app, InstallStage::verify, {.percent = 85, .indeterminate = true});
  machine().dispatch.asyncGlobal(
      QualityOfService::userInitiated, [weak = weak_from_this(), app, package, label] {
        const auto self = weak.lock();
        if (self == nullptr) return;
        // Downloads of an app have the same path in all engines, so the turn is kept until the file is
        // deleted.
        const auto turn = package.skipGatekeeper ? AppTurn{} : self->turn_.value_or(AppTurn{});
        self->turnUntilDeletion_ = turn;
        self->markCurrentAppComplete(self->verifyAndInstallOnWorker(app, package, label));
        // At this time the next acquisition may have begun, or the run may have ended.
        discard(package);
      });
}

AppInstallResult InstallOrchestrator::verifyAndInstallOnWorker(const AppInfo& app,
                                                               const AcquiredPackage& package,
                                                               const std::string& label) {
  if (auto failure = verificationFailure(app, package)) return *std::move(failure);
  return install(app, package, label);
}

std::optional<AppInstallResult> InstallOrchestrator::verificationFailure(const AppInfo& app,
                                                                         const AcquiredPackage& package) {
  for (const auto& verification : kVerifications) {
    if (verification.passes(package)) continue;
    logError("InstallOrchestrator: {} failed for {}", verification.name, app.displayName);
    return AppInstallResult::failed(
        app, fmt::format("{} verification failed for {}", verification.name, app.displayName),
        verification.code);
  }
  return std::nullopt;
}

AppInstallResult InstallOrchestrator::install(const AppInfo& app, const AcquiredPackage& package,
                                              const std::string& label) {
  state_.setStage(InstallStage::install);
  // The two figures differ on purpose: the first is for the run's progress, the second for the app's.
  updateProgress(fmt::format("Installing {}...", label), "", 90);
  updateApp(app, InstallStage::install, {.percent = 95, .indeterminate = true});
  const auto result = DMGInstaller::installFromDMG(package.fileURL, app);
  if (!result.success) {
    return AppInstallResult::failed(app, result.errorMessage.value_or("Installation failed"),
                                    result.errorCode.value_or(ErrorCode::installFailed));
  }
  updateProgress(fmt::format("{} installed successfully", app.displayName), "", 100);
  return result.alreadyCurrent ? AppInstallResult::skipped(app, result.installedPath)
                               : AppInstallResult::installed(app, result.installedPath);
}

}  // namespace installer

// A run of the orchestrator on a simulated machine: a package source that the test controls, a delegate that
// records its calls, and images for the real installer.
#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Installer/InstallOrchestrator.h"
#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"

namespace installer::test {

// Delivers packages when the test calls `delivers`; records its calls.
class DirectedProvider : public PackageProvider {
 public:
  Lines calls;  // "acquire Kelo Brenna (1/2)", "cancel"
  bool offline = false;
  std::function<void(const AppInfo&)> onAcquire;  // called in each acquisition; may complete it
  std::function<void()> onCancel;

  void acquirePackage(const AppInfo& app, const std::string& label, ProgressHandler progress,
                      Completion completion) override {
    calls.push_back("acquire " + label);
    progress_ = std::move(progress);
    completion_ = std::move(completion);
    if (onAcquire) onAcquire(app);
  }
  void cancelAcquisition() override {
    calls.emplace_back("cancel");
    if (onCancel) onCancel();
  }
  bool isOfflineMode() const override { return offline; }

  void reports(const std::string& status, const std::string& detail, const Progress& progress) {
    progress_(status, detail, progress);
  }
  // Copies the completion first: the next acquisition may begin inside it.
  void delivers(AcquiredPackage package) { Completion{completion_}(std::move(package)); }
  void fails(AcquisitionError error) { Completion{completion_}(std::unexpected(std::move(error))); }

 private:
  ProgressHandler progress_;
  Completion completion_;
};

class RecordingDelegate : public InstallOrchestratorDelegate {
 public:
  explicit RecordingDelegate(SimulatedMachine& mac) : mac_{mac} {}

  Lines heard;
  std::optional<std::vector<AppInstallResult>> results;
  std::function<void()> onFinish;

  void orchestratorDidUpdateProgress(const std::string& status, const std::string& detail,
                                     double progress) override {
    hear(fmt::format("{:g}% {}{}", progress, status, detail.empty() ? "" : " | " + detail));
  }
  void orchestratorDidUpdateApp(const std::string& app, InstallStage stage,
                                const Progress& progress) override {
    auto line = fmt::format("{} {} {:g}", app, rawValue(stage), progress.percent);
    if (progress.indeterminate) line += " indeterminate";
    if (progress.downloadedBytes) line += fmt::format(" {} bytes", *progress.downloadedBytes);
    if (progress.totalBytes) line += fmt::format(" of {}", *progress.totalBytes);
    hear(std::move(line));
  }
  void orchestratorDidCompleteApp(const AppInstallResult& result) override { hear("ended: " + line(result)); }
  void orchestratorDidFinish(const std::vector<AppInstallResult>& all) override {
    EXPECT_FALSE(results.has_value()) << "a run ends once";
    results = all;
    hear(fmt::format("finished with {}", all.size()));
    if (onFinish) onFinish();
  }

  // "brenna ok /Applications/Brenna.app", "rulo VERIFY_FAILED Checksum ...", "tolvi cancelled".
  static std::string line(const AppInstallResult& result) {
    auto text = std::string{rawValue(result.app.id)};
    text += result.cancelled ? " gave up" : result.success ? " ok" : " failed";
    if (result.alreadyCurrent) text += " already current";
    if (result.errorCode) text += fmt::format(" {}", rawValue(*result.errorCode));
    if (result.errorMessage) text += " '" + *result.errorMessage + "'";
    if (result.installedPath) text += " " + *result.installedPath;
    return text;
  }

 private:
  SimulatedMachine& mac_;

  void hear(std::string what) {
    EXPECT_TRUE(mac_.dispatch.isMainThread()) << what;
    heard.push_back(std::move(what));
  }
};

class InstallOrchestratorStory : public ::testing::Test {
 protected:
  SimulatedMachine mac;
  std::shared_ptr<DirectedProvider> provider = std::make_shared<DirectedProvider>();
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>(mac);
  std::shared_ptr<InstallOrchestrator> orchestrator = std::make_shared<InstallOrchestrator>(provider);

  void SetUp() override { orchestrator->setDelegate(delegate); }

  static AppInfo app(AppIdentifier identifier) { return *KeloAppProvider::shared().app(identifier); }
  static std::vector<AppInfo> apps(std::vector<AppIdentifier> identifiers) {
    std::vector<AppInfo> list;
    for (const auto identifier : identifiers) list.push_back(app(identifier));
    return list;
  }
  void start(std::vector<AppIdentifier> identifiers) {
    orchestrator->startInstallation(apps(std::move(identifiers)));
  }

  // A valid download of that app, as from the CDN's source.
  AcquiredPackage download(AppIdentifier identifier) {
    const auto info = app(identifier);
    const auto bytes =
        mac.images.add(info.tempFilePath(), "/Volumes/" + info.displayName,
                       [this, info](SimulatedFileSystem&, const Path& at) {
                         mac.addApp(joined(at, info.appBundleName),
                                    {.identifier = info.installerBundleIdentifier, .version = "2.0"});
                       });
    return {
        .fileURL = info.tempFilePath(), .checksum = sha256(bytes), .skipGatekeeper = false, .version = "2.0"};
  }
  AcquiredPackage bundled(AppIdentifier identifier) {
    auto package = download(identifier);
    package.checksum.reset();
    package.skipGatekeeper = true;
    return package;
  }
  // Completes each acquisition at once, with the app's package.
  void everyDownloadWorks() {
    provider->onAcquire = [this](const AppInfo& info) { provider->delivers(download(info.id)); };
  }
  void letItEnd() {
    mac.dispatch.runUntil([this] { return delegate->results.has_value(); });
    mac.dispatch.runUntilIdle();
  }

  Lines endings() {
    Lines lines;
    if (!delegate->results) return {"not finished"};
    for (const auto& result : *delegate->results) lines.push_back(RecordingDelegate::line(result));
    return lines;
  }
  Lines log() { return mac.logLines("InstallOrchestrator:"); }
};

}  // namespace installer::test

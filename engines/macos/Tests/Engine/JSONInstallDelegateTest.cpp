#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Engine/EngineControllerFixture.h"
#include "Engine/JSONInstallDelegate.h"

namespace installer {
namespace {

using enum AppIdentifier;
using test::Lines;

class JSONInstallDelegateTest : public test::EngineControllerTest {
 protected:
  JSONInstallDelegate delegate{3, Action::install};

  void reaches(const std::string& app, InstallStage stage, double percent = 0,
               std::optional<std::int64_t> downloaded = {}, std::optional<std::int64_t> total = {}) {
    delegate.orchestratorDidUpdateApp(
        app, stage, {.percent = percent, .downloadedBytes = downloaded, .totalBytes = total});
  }
  AppInstallResult success(AppIdentifier identifier, std::optional<Path> path) {
    return AppInstallResult::installed(app(identifier), std::move(path));
  }
  AppInstallResult failure(AppIdentifier identifier, std::optional<ErrorCode> code) {
    return AppInstallResult::failed(app(identifier), "m", code);
  }
};

TEST_F(JSONInstallDelegateTest, AnnouncesAStageOnceAndEveryReportAsProgress) {
  reaches("brenna", InstallStage::download);
  reaches("brenna", InstallStage::download, 10);
  reaches("brenna", InstallStage::download, 10);
  reaches("brenna", InstallStage::verify, 85);
  EXPECT_EQ(transcript(), (Lines{"stage brenna download 1/3", "progress brenna 0% DOWNLOADING",
                                 "progress brenna 10% DOWNLOADING", "progress brenna 10% DOWNLOADING",
                                 "stage brenna verify 1/3", "progress brenna 85% VERIFYING"}));
}

TEST_F(JSONInstallDelegateTest, NumbersAppsInTheOrderInWhichTheyFirstReachAStage) {
  reaches("rulo", InstallStage::download);
  reaches("brenna", InstallStage::download);
  reaches("rulo", InstallStage::install, 95);
  EXPECT_EQ(transcript(), (Lines{"stage rulo download 1/3", "progress rulo 0% DOWNLOADING",
                                 "stage brenna download 2/3", "progress brenna 0% DOWNLOADING",
                                 "stage rulo install 1/3", "progress rulo 95% INSTALLING"}));
}

TEST_F(JSONInstallDelegateTest, GivesByteCountsOnlyWhenBothAreKnown) {
  struct Row {
    std::optional<std::int64_t> downloaded;
    std::optional<std::int64_t> total;
    std::string args;
  };
  const std::vector<Row> rows{{5, 10, " 5 of 10"}, {0, 1, " 0 of 1"}, {5, 0, ""},  {5, -1, ""},
                              {5, {}, ""},         {{}, 10, ""},      {{}, {}, ""}};
  for (const auto& row : rows) {
    reaches("brenna", InstallStage::download, 50, row.downloaded, row.total);
    EXPECT_EQ(transcript().back(), "progress brenna 50% DOWNLOADING" + row.args);
  }
}

TEST_F(JSONInstallDelegateTest, JoinsStatusAndDetail) {
  delegate.orchestratorDidUpdateProgress("Downloading...", "5 of 10", 3);
  delegate.orchestratorDidUpdateProgress("Downloading...", "", 3);
  EXPECT_EQ(transcript(), (Lines{"log info: Downloading... — 5 of 10", "log info: Downloading..."}));
}

TEST_F(JSONInstallDelegateTest, WordsResultsForTheWire) {
  addInstalled(brenna, "2.0");
  const Path path = "/Applications/Brenna.app";
  const auto current = AppInstallResult::skipped(app(brenna), path);
  auto cancelled = failure(brenna, ErrorCode::downloadFailed);
  cancelled.cancelled = true;
  const auto line = [](const AppInstallResult& result, Action action) {
    const auto event = JSONInstallDelegate::resultEvent(result, action);
    return fmt::format("{} {} {} {} {}", event.app, rawValue(event.status),
                       event.errorCode ? rawValue(*event.errorCode) : "-", event.installedPath.value_or("-"),
                       event.installedVersion.value_or("-"));
  };
  EXPECT_EQ(line(current, Action::install), "brenna skipped - " + path + " 2.0");
  EXPECT_EQ(line(current, Action::update), "brenna skipped - " + path + " 2.0");
  EXPECT_EQ(line(success(brenna, path), Action::update), "brenna updated - " + path + " 2.0");
  EXPECT_EQ(line(success(brenna, path), Action::install), "brenna installed - " + path + " 2.0");
  EXPECT_EQ(line(success(brenna, {}), Action::install), "brenna installed - - 2.0");
  EXPECT_EQ(line(success(rulo, "/Applications/Kelo Rulo.app"), Action::install),
            "rulo installed - /Applications/Kelo Rulo.app -");
  EXPECT_EQ(line(cancelled, Action::install), "brenna cancelled - - -");
  EXPECT_EQ(line(failure(brenna, ErrorCode::verifyFailed), Action::install),
            "brenna failed VERIFY_FAILED - -");
  EXPECT_EQ(line(failure(brenna, {}), Action::install), "brenna failed INSTALL_FAILED - -");
}

TEST_F(JSONInstallDelegateTest, ReadsTheVersionAfreshForEachResult) {
  addInstalled(brenna, "1.0");
  const auto result = success(brenna, "/Applications/Brenna.app");
  delegate.orchestratorDidCompleteApp(result);
  addInstalled(brenna, "2.0");
  delegate.orchestratorDidCompleteApp(result);
  EXPECT_EQ(transcript(), (Lines{"app-result brenna installed /Applications/Brenna.app 1.0",
                                 "app-result brenna installed /Applications/Brenna.app 2.0"}));
}

TEST_F(JSONInstallDelegateTest, TakesEveryReportButTheEndForASignOfLife) {
  const auto start = delegate.lastActivity();
  const auto after = [&](const std::function<void()>& report) {
    const auto before = delegate.lastActivity();
    machine.dispatch.advance(std::chrono::seconds{1});
    report();
    return delegate.lastActivity() - before;
  };
  EXPECT_EQ(start, machine.dispatch.now());
  EXPECT_GT(after([&] { reaches("brenna", InstallStage::download); }).count(), 0);
  EXPECT_GT(after([&] { delegate.orchestratorDidUpdateProgress("s", "", 0); }).count(), 0);
  EXPECT_GT(after([&] { delegate.orchestratorDidCompleteApp(failure(brenna, {})); }).count(), 0);
  EXPECT_EQ(after([&] { delegate.orchestratorDidFinish({}); }).count(), 0);
}

TEST_F(JSONInstallDelegateTest, KeepsTheResultsOfTheEndAndTellsNothingOfThem) {
  EXPECT_FALSE(delegate.isFinished());
  delegate.orchestratorDidFinish({failure(brenna, {}), failure(rulo, {})});
  EXPECT_TRUE(delegate.isFinished());
  EXPECT_EQ(delegate.results().size(), 2U);
  EXPECT_TRUE(transcript().empty());
}

}  // namespace
}  // namespace installer

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>

#include "Engine/EngineEnvelope.h"
#include "Support/SimulatedMachine.h"

namespace installer {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class EngineEnvelopeTest : public ::testing::Test {
 protected:
  test::SimulatedMachine machine;

  static std::string line(const EngineEvent& event) { return EngineEnvelope::encode(event).value(); }
  static Json encoded(const EngineEvent& event) { return Json::parse(line(event)); }
  static Json expected(const char* text) { return Json::parse(text); }
  static EngineEvent logEvent(std::string message) {
    return {EngineEvent::Log{EventLevel::info, std::move(message)}};
  }
  static std::string percentText(double percent) {
    const auto text = line({EngineEvent::Progress{{}, {.percent = percent}, {}}});
    const auto start = text.find("\"percent\":") + 10;
    return text.substr(start, text.find(',', start) - start);
  }
};

// Every event, once with all values and once with all optional values absent.

TEST_F(EngineEnvelopeTest, WritesHello) {
  machine.setConfiguration(R"({"apps": {}, "helpUrl": "https://h/", "feedbackUrl": "https://f/"})");
  EXPECT_EQ(encoded({EngineEvent::Hello{
                PackageSourceMode::online, {Capability::install, Capability::update}, {}, {}}}),
            expected(R"({
    "v": 1, "type": "hello", "engineVersion": "1.0.0", "protocolVersion": 1, "platform": "macos",
    "mode": "online", "capabilities": ["install", "update"],
    "helpUrl": "https://h/", "feedbackUrl": "https://f/", "apps": []})"));
}

TEST_F(EngineEnvelopeTest, WritesHelloOfARetiredInstaller) {
  const auto event = encoded(
      {EngineEvent::Hello{PackageSourceMode::offline,
                          {},
                          {},
                          InstallerRetirementEvent{RetirementReason::expired, "https://d/", "2026-01-31"}}});
  EXPECT_EQ(event["installerRetired"],
            expected(R"({"reason": "expired", "downloadUrl": "https://d/", "expiresOn": "2026-01-31"})"));
  EXPECT_EQ(event["mode"], "offline");
}

TEST_F(EngineEnvelopeTest, WritesACatalogAppWithAllThatCanBeKnown) {
  const CatalogAppEvent app{"brenna",
                            "Kelo Brenna",
                            "app.brenna.desc",
                            "brenna_icon",
                            true,
                            "1.0",
                            "2.0",
                            100,
                            CopySource::direct,
                            "https://w/",
                            285,
                            "/Applications/Brenna.app",
                            ReleaseNotes{"p", "2.0", {{"2.0", "2026-02-03", {"n"}}}}};
  EXPECT_EQ(encoded({EngineEvent::Hello{PackageSourceMode::online, {}, {app}, {}}})["apps"], expected(R"([{
    "id": "brenna", "displayName": "Kelo Brenna", "descriptionCode": "app.brenna.desc",
    "iconName": "brenna_icon", "updateAvailable": true, "installedVersion": "1.0", "latestVersion": "2.0",
    "sizeBytes": 100, "source": "direct", "webUrl": "https://w/", "requiredBytes": 285,
    "installedPath": "/Applications/Brenna.app",
    "releaseNotes": {"product": "p", "version": "2.0",
                     "releases": [{"version": "2.0", "date": "2026-02-03", "notes": ["n"]}]}}])"));
}

TEST_F(EngineEnvelopeTest, WritesNullForFiveUnknownsOfACatalogAppAndLeavesThreeOut) {
  CatalogAppEvent app;
  app.id = "rulo";
  EXPECT_EQ(encoded({EngineEvent::Hello{PackageSourceMode::online, {}, {app}, {}}})["apps"], expected(R"([{
    "id": "rulo", "displayName": "", "descriptionCode": "", "iconName": "", "updateAvailable": false,
    "installedVersion": null, "latestVersion": null, "sizeBytes": null, "source": null, "webUrl": null}])"));
}

TEST_F(EngineEnvelopeTest, WritesAnUpdateCheckResult) {
  const EngineEvent::UpdateCheckEntry full{"tolvi", true, "2.0",
                                           7,       20,   ReleaseNotes{{}, {}, {{"2.0", {}, {}}}}};
  const EngineEvent::UpdateCheckEntry bare{"rulo", false, {}, {}, {}, {}};
  EXPECT_EQ(
      encoded({EngineEvent::UpdateCheckResult{
          {full, bare}, InstallerRetirementEvent{RetirementReason::sourceUnavailable, "https://d/", {}}}}),
      expected(R"({
    "v": 1, "type": "update-check-result",
    "apps": [{"id": "tolvi", "updateAvailable": true, "latestVersion": "2.0", "sizeBytes": 7,
              "requiredBytes": 20, "releaseNotes": {"releases": [{"version": "2.0", "notes": []}]}},
             {"id": "rulo", "updateAvailable": false}],
    "installerRetired": {"reason": "source-unavailable", "downloadUrl": "https://d/"}})"));
  EXPECT_EQ(encoded({EngineEvent::UpdateCheckResult{{}, {}}}),
            expected(R"({"v": 1, "type": "update-check-result", "apps": []})"));
}

TEST_F(EngineEnvelopeTest, WritesAStage) {
  EXPECT_EQ(encoded({EngineEvent::Stage{"brenna", AppStage::verify, 2, 4}}), expected(R"({
    "v": 1, "type": "stage", "app": "brenna", "stage": "verify", "index": 2, "total": 4})"));
  EXPECT_EQ(encoded({EngineEvent::Stage{"brenna", AppStage::verify, {}, {}}}),
            expected(R"({"v": 1, "type": "stage", "app": "brenna", "stage": "verify"})"));
}

TEST_F(EngineEnvelopeTest, WritesProgress) {
  EXPECT_EQ(encoded({EngineEvent::Progress{
                "brenna",
                {.percent = 42.5, .indeterminate = true, .downloadedBytes = 425, .totalBytes = 1000},
                AppStage::download}}),
            expected(R"({"v": 1, "type": "progress", "app": "brenna", "percent": 42.5, "indeterminate": true,
                         "detailCode": "DOWNLOADING",
                         "detailArgs": {"downloadedBytes": 425, "totalBytes": 1000}})"));
  EXPECT_EQ(encoded({EngineEvent::Progress{}}),
            expected(R"({"v": 1, "type": "progress", "percent": 0, "indeterminate": false})"));
}

TEST_F(EngineEnvelopeTest, WritesAWholePercentageWithoutAFraction) {
  const std::vector<std::pair<double, std::string>> rows{
      {0, "0"}, {-0.0, "0"}, {85, "85"}, {100, "100"}, {37.5, "37.5"}, {0.1, "0.1"}, {99.9, "99.9"}};
  for (const auto& [percent, text] : rows) EXPECT_EQ(percentText(percent), text) << percent;
}

TEST_F(EngineEnvelopeTest, CantWriteAPercentageThatIsNoNumber) {
  using Limits = std::numeric_limits<double>;
  for (const double percent : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity()}) {
    EXPECT_FALSE(EngineEnvelope::encode({EngineEvent::Progress{"brenna", {.percent = percent}, {}}}))
        << percent;
  }
  EXPECT_TRUE(EngineEnvelope::encode({EngineEvent::Progress{"brenna", {.percent = Limits::max()}, {}}}));
}

AppResultEvent failedBrenna() {
  AppResultEvent event;
  event.app = "brenna";
  event.status = AppStatus::failed;
  event.errorCode = ErrorCode::verifyFailed;
  return event;
}

AppResultEvent installedTolvi() {
  AppResultEvent event;
  event.app = "tolvi";
  event.status = AppStatus::installed;
  event.installedPath = "/Applications/Kelo Tolvi.app";
  event.installedVersion = "2.0";
  return event;
}

TEST_F(EngineEnvelopeTest, WritesNullWhereAResultOfItsOwnHasNothingToSay) {
  EXPECT_EQ(encoded({EngineEvent::AppResult{failedBrenna()}}),
            expected(R"({"v": 1, "type": "app-result", "app": "brenna", "status": "failed",
                         "errorCode": "VERIFY_FAILED", "installedPath": null, "installedVersion": null})"));
  EXPECT_EQ(encoded({EngineEvent::AppResult{installedTolvi()}}),
            expected(R"({"v": 1, "type": "app-result", "app": "tolvi", "status": "installed",
                         "errorCode": null, "installedPath": "/Applications/Kelo Tolvi.app",
                         "installedVersion": "2.0"})"));
}

TEST_F(EngineEnvelopeTest, LeavesOutWhatAResultInsideDoneHasNothingToSayAbout) {
  EXPECT_EQ(encoded({EngineEvent::Done{
                Action::install, ExitCode::partialSuccess, {{failedBrenna(), installedTolvi()}}}}),
            expected(R"({
    "v": 1, "type": "done", "action": "install", "exitCode": 1, "results": [
      {"v": 1, "type": "app-result", "app": "brenna", "status": "failed", "errorCode": "VERIFY_FAILED"},
      {"v": 1, "type": "app-result", "app": "tolvi", "status": "installed",
       "installedPath": "/Applications/Kelo Tolvi.app", "installedVersion": "2.0"}]})"));
}

TEST_F(EngineEnvelopeTest, TellsARunThatDidNothingFromAQuery) {
  EXPECT_EQ(encoded({EngineEvent::Done{Action::hello, ExitCode::success, {}}}),
            expected(R"({"v": 1, "type": "done", "action": "hello", "exitCode": 0})"));
  EXPECT_EQ(encoded({EngineEvent::Done{Action::install, ExitCode::invalidArguments,
                                       std::vector<AppResultEvent>{}}}),
            expected(R"({"v": 1, "type": "done", "action": "install", "exitCode": 3, "results": []})"));
}

TEST_F(EngineEnvelopeTest, PutsTheRetirementThatStandsIntoDone) {
  machine.setConfiguration(
      R"({"apps": {}, "downloadPageUrl": "https://d/", "expiresOn": {"online": "2026-02-28"}})");
  EXPECT_EQ(encoded({EngineEvent::Done{Action::exportLogs, ExitCode::success, {}}})["installerRetired"],
            expected(R"({"reason": "expired", "downloadUrl": "https://d/", "expiresOn": "2026-02-28"})"));
}

TEST_F(EngineEnvelopeTest, WritesADiskFreeResult) {
  EXPECT_EQ(
      encoded({EngineEvent::DiskFreeResult{"/a", std::int64_t{1} << 62}}),
      expected(R"({"v": 1, "type": "disk-free-result", "path": "/a", "freeBytes": 4611686018427387904})"));
  EXPECT_EQ(encoded({EngineEvent::DiskFreeResult{"/a", {}}}),
            expected(R"({"v": 1, "type": "disk-free-result", "path": "/a", "freeBytes": null})"));
}

TEST_F(EngineEnvelopeTest, WritesAnExportLogsResult) {
  EXPECT_EQ(encoded({EngineEvent::ExportLogsResult{"/a.zip", {}}}),
            expected(R"({"v": 1, "type": "export-logs-result", "path": "/a.zip", "errorCode": null})"));
  EXPECT_EQ(encoded({EngineEvent::ExportLogsResult{{}, ErrorCode::unknown}}),
            expected(R"({"v": 1, "type": "export-logs-result", "path": null, "errorCode": "UNKNOWN"})"));
}

TEST_F(EngineEnvelopeTest, WritesALog) {
  EXPECT_EQ(encoded({EngineEvent::Log{EventLevel::warn, "m"}}),
            expected(R"({"v": 1, "type": "log", "level": "warn", "message": "m"})"));
}

// The text itself.

TEST_F(EngineEnvelopeTest, EscapesSlashesInValues) {
  EXPECT_THAT(line(logEvent("at /a/b.app")), HasSubstr(R"("message":"at \/a\/b.app")"));
  EXPECT_THAT(line({EngineEvent::DiskFreeResult{"/", {}}}), HasSubstr(R"("path":"\/")"));
}

TEST_F(EngineEnvelopeTest, StaysOnOneLineWithoutBlanksBetweenItsParts) {
  const auto text = line(logEvent("two\nlines\r\nand\ta tab"));
  EXPECT_THAT(text, Not(HasSubstr("\n")));
  EXPECT_THAT(text, HasSubstr(R"(two\nlines\r\nand\ta tab)"));
  EXPECT_EQ(line({EngineEvent::Stage{"a", AppStage::verify, 1, 2}}),
            R"({"v":1,"type":"stage","app":"a","stage":"verify","index":1,"total":2})");
}

TEST_F(EngineEnvelopeTest, KeepsUTF8AndReplacesWhatIsNone) {
  EXPECT_THAT(line(logEvent("Größe — 大")), HasSubstr("Größe — 大"));
  EXPECT_EQ(encoded(logEvent("a\xFF z"))["message"], "a\uFFFD z");
  EXPECT_EQ(encoded({EngineEvent::DiskFreeResult{"/a\xC3", {}}})["path"], "/a\uFFFD");
  EXPECT_TRUE(EngineEnvelope::encode(logEvent(std::string("nul \0 inside", 12))));
}

}  // namespace
}  // namespace installer

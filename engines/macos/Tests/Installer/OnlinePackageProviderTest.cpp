#include <algorithm>

#include "Installer/OnlineAcquisition.h"
#include "Installer/OnlineDownload.h"
#include "Installer/OnlinePackageProvider.h"

namespace installer {
namespace {

using namespace std::chrono_literals;
using test::Lines;
using test::OnlineDownload;
using test::Operation;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using RefusalEndsAs = test::SimulatedNetwork::RefusalEndsAs;

Error cocoaError(std::int64_t code, const std::string& words) {
  return {std::string{ErrorDomain::cocoa}, code, words, nullptr};
}

TEST_F(OnlineDownload, HandsOverTheImage) {
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_EQ(machine.files.read(localFile()), image);
  EXPECT_THAT(statuses, ElementsAre("Checking for updates - Kelo Brenna (1/1)...",
                                    "Downloading Kelo Brenna (1/1)...", "Downloading Kelo Brenna (1/1)"));
  EXPECT_THAT(machine.logLines("OnlinePackageProvider"),
              ElementsAre("INFO OnlinePackageProvider: Kelo Brenna v2.1 (unknown bytes) from " + packageURL,
                          "INFO OnlinePackageProvider: Starting download for Kelo Brenna: " + packageURL,
                          "INFO OnlinePackageProvider: Download progress for Kelo Brenna: 100%",
                          "INFO OnlinePackageProvider: Download complete for Kelo Brenna"));
  EXPECT_EQ(machine.network.openSessions(), 1U);  // the session of the metadata
}

TEST_F(OnlineDownload, IsAnOnlineSource) {
  EXPECT_FALSE(provider.isOfflineMode());
}

TEST_F(OnlineDownload, SaysHowLargeThePackageIs) {
  meta().answers(200, R"({"destination": "brenna.dmg", "checksum": "aa", "size": 1000})");
  acquireToTheEnd();
  EXPECT_EQ(machine.logLines("Kelo Brenna v (1000 bytes) from ").size(), 1U);
}

// Reuse.

TEST_F(OnlineDownload, UsesASoundFileOfAnEarlierRun) {
  acquireToTheEnd();
  outcomes.clear();
  statuses.clear();
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_THAT(statuses, ElementsAre("Checking for updates - Kelo Brenna (1/1)...",
                                    "Verifying existing file - Kelo Brenna (1/1)..."));
  EXPECT_EQ(transfers().size(), 1U);
  EXPECT_EQ(machine.network.requests().size(), 3U);
  EXPECT_EQ(
      machine.logLines("INFO OnlinePackageProvider: Existing file valid for Kelo Brenna, skipping download")
          .size(),
      1U);
}

TEST_F(OnlineDownload, ReplacesAFileWithAnotherDigest) {
  machine.files.addFile(localFile(), "something else");
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL));
  EXPECT_EQ(machine.files.read(localFile()), image);
}

TEST_F(OnlineDownload, FailsWhenAFileCannotBeRemoved) {
  machine.files.addFile(localFile(), "something else");
  machine.files.failAlways(Operation::remove, localFile(), cocoaError(513, "not yours"));
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre("FILE_SAVE_FAILED Failed to save downloaded file: not yours"));
}

TEST_F(OnlineDownload, FailsWhenTheFileCannotBeMoved) {
  machine.files.failAlways(Operation::move, localFile(), cocoaError(640, "disk full"));
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre("FILE_SAVE_FAILED Failed to save downloaded file: disk full"));
  EXPECT_FALSE(machine.files.exists(localFile()));
}

// Metadata.

TEST_F(OnlineDownload, IsRetiredWhenTheTreeIsGoneAndThePageAnswers) {
  meta().answers(404);
  machine.network.on("https://www.kelo.example/download/").answers(500);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(::testing::StartsWith("SOURCE_UNAVAILABLE ")));
  EXPECT_EQ(
      machine.logLines("WARN OnlinePackageProvider: no package metadata for Kelo Brenna in this tree").size(),
      1U);
}

TEST_F(OnlineDownload, IsUnreachableWhenThePageDoesNotAnswerEither) {
  meta().answers(404);
  machine.network.on("https://www.kelo.example/download/").fails(URLErrorCode::cannotConnectToHost);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre("NETWORK_UNAVAILABLE Failed to check for updates: could not reach the "
                                    "package metadata for Kelo Brenna"));
}

TEST_F(OnlineDownload, IsUnreachableAfterATransientFailure) {
  meta().answers(503);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre("NETWORK_UNAVAILABLE Failed to check for updates: could not reach the "
                                    "package metadata for Kelo Brenna"));
  EXPECT_EQ(machine.logLines("ERROR OnlinePackageProvider: could not fetch package metadata for Kelo Brenna")
                .size(),
            1U);
  // The download page isn't probed: only "not found" can mean a missing tree.
  EXPECT_EQ(machine.network.requests().size(), 1U);
}

TEST_F(OnlineDownload, IsUntrustedWhenTheMetadataIs) {
  meta().redirects("https://evil.example/meta.json");
  acquireToTheEnd();
  EXPECT_THAT(outcomes,
              ElementsAre("UNTRUSTED_SOURCE Download from 'cdn.kelo.example' was blocked — domain not "
                          "in trusted list"));
  EXPECT_EQ(machine
                .logLines("ERROR OnlinePackageProvider: package metadata for Kelo Brenna was refused as "
                          "untrusted")
                .size(),
            1U);
}

TEST_F(OnlineDownload, RefusesMetadataWithoutDestination) {
  publish({{"destination", ""}});
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre("METADATA_INVALID Invalid package metadata response"));
  EXPECT_EQ(
      machine.logLines("ERROR OnlinePackageProvider: meta.json for Kelo Brenna has no 'destination'").size(),
      1U);
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(OnlineDownload, RefusesMetadataWithoutChecksum) {
  publish({{"checksum", ""}});
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre("VERIFY_FAILED Package metadata uses an unsupported checksum algorithm "
                                    "'sha256' — the download cannot be verified"));
  EXPECT_EQ(machine
                .logLines("INFO OnlinePackageProvider: Kelo Brenna meta.json checksum is unusable (algorithm "
                          "'sha256', checksum absent) — refusing to install unverified bytes")
                .size(),
            1U);
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(OnlineDownload, RefusesAnotherDigest) {
  publish({{"checksumAlgorithm", "MD5"}});
  acquireToTheEnd();
  EXPECT_THAT(outcomes,
              ElementsAre("VERIFY_FAILED Package metadata uses an unsupported checksum algorithm 'MD5' — "
                          "the download cannot be verified"));
  EXPECT_EQ(machine.logLines("(algorithm 'MD5', checksum present)").size(), 1U);
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(OnlineDownload, TakesTheDigestsNameInAnyCase) {
  publish({{"checksumAlgorithm", "SHA256"}});
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
}

TEST_F(OnlineDownload, LeavesTheVersionEmptyWhenThereIsNone) {
  publish({{"version", ""}});
  acquireToTheEnd();
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_NE(outcomes[0].find(" v "), std::string::npos) << outcomes[0];
}

// Errors of the transfer.

TEST_F(OnlineDownload, ResumesAfterADroppedConnection) {
  package().dropsNext(700);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL, "GET " + packageURL + " from 700"));
  EXPECT_EQ(machine.network.bytesServed(packageURL), 1000);
  EXPECT_EQ(machine.files.read(localFile()), image);
  EXPECT_THAT(statuses, Contains("Connection interrupted. Retrying in 5s..."));
  EXPECT_EQ(machine.logLines("WARN OnlinePackageProvider: Retrying download in 5s (attempt 1/3)").size(), 1U);
}

// The session's limit of sixty seconds without a byte applies.
TEST_F(OnlineDownload, ResumesATransferThatStalls) {
  package().stallsNext(700);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL, "GET " + packageURL + " from 700"));
  EXPECT_THAT(transferTimes(), ElementsAre(0s, 65s));
  EXPECT_EQ(machine.logLines("WARN Network error detected: NSURLErrorDomain code -1001: ").size(), 1U);
}

TEST_F(OnlineDownload, GivesUpAServerThatNeverAnswers) {
  package().neverAnswers();
  acquireToTheEnd();
  EXPECT_THAT(transferTimes(), ElementsAre(0s, 65s, 135s, 210s));
  EXPECT_THAT(outcomes, ElementsAre(::testing::StartsWith("DOWNLOAD_FAILED Download failed: ")));
}

// Slowly arriving bytes keep a transfer running for any time.
TEST_F(OnlineDownload, WaitsForASlowDrip) {
  package().inPieces(100, 50s);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_EQ(transfers().size(), 1U);
}

TEST_F(OnlineDownload, RetriesAfterFiveTenAndFifteenSeconds) {
  package().fails(URLErrorCode::cannotConnectToHost, "nobody there");
  acquireToTheEnd();
  EXPECT_THAT(transferTimes(), ElementsAre(0s, 5s, 15s, 30s));
  EXPECT_THAT(outcomes, ElementsAre("DOWNLOAD_FAILED Download failed: nobody there"));
  EXPECT_THAT(machine.logLines("Retrying"),
              ElementsAre("WARN OnlinePackageProvider: Retrying download in 5s (attempt 1/3)",
                          "WARN OnlinePackageProvider: Retrying download in 10s (attempt 2/3)",
                          "WARN OnlinePackageProvider: Retrying download in 15s (attempt 3/3)"));
  EXPECT_EQ(
      machine.logLines("ERROR OnlinePackageProvider: Download error for Kelo Brenna: nobody there").size(),
      4U);
}

TEST_F(OnlineDownload, GivesTheLastErrorsDescription) {
  package()
      .failsNext(URLErrorCode::timedOut, "first")
      .failsNext(URLErrorCode::timedOut, "second")
      .failsNext(URLErrorCode::timedOut, "third")
      .failsNext(URLErrorCode::timedOut, "fourth");
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre("DOWNLOAD_FAILED Download failed: fourth"));
}

TEST_F(OnlineDownload, CountsRetriesWhateverArrivesBetween) {
  package().dropsAlways(100);
  acquireToTheEnd();
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL, "GET " + packageURL + " from 100",
                                       "GET " + packageURL + " from 200", "GET " + packageURL + " from 300"));
  EXPECT_EQ(outcomes.size(), 1U);
}

TEST_F(OnlineDownload, KeepsWhatCanBeResumedThroughAnErrorThatBringsNothingNew) {
  package().dropsNext(700).failsNext(URLErrorCode::cannotConnectToHost);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL, "GET " + packageURL + " from 700",
                                       "GET " + packageURL + " from 700"));
}

TEST_F(OnlineDownload, StartsOverWhenNothingCanBeResumed) {
  package().withoutValidator().dropsNext(700);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL, "GET " + packageURL));
}

TEST_F(OnlineDownload, StartsCleanWithEachRun) {
  package().dropsAlways(100);
  acquireToTheEnd();
  package().answers(200, image);
  outcomes.clear();
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_EQ(transfers().back(), "GET " + packageURL);
}

TEST_F(OnlineDownload, DoesNotRetryOtherErrors) {
  package().fails(URLErrorCode::secureConnectionFailed, "no TLS");
  acquireToTheEnd();
  EXPECT_EQ(transfers().size(), 1U);
  EXPECT_THAT(outcomes, ElementsAre("DOWNLOAD_FAILED Download failed: no TLS"));
}

// A failed name lookup isn't a lost connection.
TEST_F(OnlineDownload, DoesNotRetryANameThatIsNotFound) {
  package().fails(URLErrorCode::cannotFindHost, "no such host");
  acquireToTheEnd();
  EXPECT_EQ(transfers().size(), 1U);
  EXPECT_THAT(outcomes, ElementsAre("DOWNLOAD_FAILED Download failed: no such host"));
}

TEST_F(OnlineDownload, FailsOnAnErrorPage) {
  package().answers(404, "<html>not here</html>");
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre("DOWNLOAD_FAILED Download failed: HTTP 404"));
  EXPECT_FALSE(machine.files.exists(localFile()));
  EXPECT_EQ(
      machine.logLines("ERROR OnlinePackageProvider: download for Kelo Brenna returned HTTP 404").size(), 1U);
}

// The alternate location.

TEST_F(OnlineDownload, GoesToTheAlternateAtOnceAfterAnErrorStatus) {
  publishWithAlternate();
  package().answers(503, "busy");
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL, "GET " + alternateURL));
  EXPECT_THAT(transferTimes(), ElementsAre(0s, 0s));
  EXPECT_THAT(statuses, Contains("Retrying from an alternate location..."));
  EXPECT_EQ(machine
                .logLines("WARN OnlinePackageProvider: primary download failed (HTTP 503); trying the "
                          "alternateDownloadUrl from meta.json: " +
                          alternateURL)
                .size(),
            1U);
}

TEST_F(OnlineDownload, FailsWhenTheAlternateFailsToo) {
  publishWithAlternate();
  package().answers(503);
  alternate().answers(503);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre("DOWNLOAD_FAILED Download failed: HTTP 503"));
  EXPECT_EQ(transfers().size(), 2U);
}

TEST_F(OnlineDownload, GivesTheAlternateTheFullScheduleAndNothingToResume) {
  publishWithAlternate();
  package().dropsAlways(100);
  alternate().dropsAlways(50);
  acquireToTheEnd();
  EXPECT_THAT(transferTimes(), ElementsAre(0s, 5s, 15s, 30s, 30s, 35s, 45s, 60s));
  EXPECT_EQ(transfers().at(4), "GET " + alternateURL);
  EXPECT_EQ(transfers().at(5), "GET " + alternateURL + " from 50");
  EXPECT_EQ(outcomes.size(), 1U);
}

TEST_F(OnlineDownload, RefusesAForeignAlternate) {
  publish({{"alternateDownloadUrl", "https://evilkelo.example/brenna.dmg"}});
  package().answers(503);
  acquireToTheEnd();
  EXPECT_THAT(outcomes,
              ElementsAre("UNTRUSTED_SOURCE Download from 'evilkelo.example' was blocked — domain not in "
                          "trusted list"));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL));
  EXPECT_EQ(
      machine
          .logLines("ERROR OnlinePackageProvider: refusing download URL — 'evilkelo.example' is not https "
                    "on a host in trustedDownloadDomains [\"kelo.example\"]")
          .size(),
      1U);
}

TEST_F(OnlineDownload, RefusesAnAlternateWithoutHost) {
  publish({{"alternateDownloadUrl", "brenna.dmg"}});
  package().answers(503);
  acquireToTheEnd();
  EXPECT_THAT(
      outcomes,
      ElementsAre("UNTRUSTED_SOURCE Download from 'unknown' was blocked — domain not in trusted list"));
}

TEST_F(OnlineDownload, LooksAtTheLocalFileAgainBeforeTheAlternate) {
  publishWithAlternate();
  package().answers(503).takes(3s);
  acquire();
  advance(1s);
  machine.files.addFile(localFile(), image);
  advance(10s);
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL));
}

// Redirects.

TEST_F(OnlineDownload, FollowsATrustedRedirect) {
  package().redirects("https://edge.kelo.example/b.dmg");
  machine.network.on("https://edge.kelo.example/b.dmg").answers(200, image);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
}

class RefusedRedirect : public OnlineDownload, public ::testing::WithParamInterface<RefusalEndsAs> {};

TEST_P(RefusedRedirect, EndsTheRunOnceWhateverComesLate) {
  machine.network.setRefusalEndsAs(GetParam());
  publishWithAlternate();
  package().redirects("http://evil.example/b.dmg");
  acquireToTheEnd();
  EXPECT_THAT(outcomes,
              ElementsAre("UNTRUSTED_SOURCE Download from 'evil.example' was blocked — domain not in "
                          "trusted list"));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL));
  EXPECT_FALSE(machine.files.exists(localFile()));
  EXPECT_EQ(
      machine
          .logLines("ERROR OnlinePackageProvider: refusing a redirect to 'evil.example' — not https on a "
                    "host in trustedDownloadDomains")
          .size(),
      1U);
  EXPECT_EQ(machine.logLines("INFO OnlinePackageProvider: ignoring a duplicate completion").size(), 1U);
}

TEST_P(RefusedRedirect, NamesAPlaceThatIsNoStrictURLUnknown) {
  machine.network.setRefusalEndsAs(GetParam());
  publishWithAlternate();
  package().redirects("https://cdn.kelo.example:99999/b.dmg");
  acquireToTheEnd();
  EXPECT_THAT(
      outcomes,
      ElementsAre("UNTRUSTED_SOURCE Download from 'unknown' was blocked — domain not in trusted list"));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL));
}

INSTANTIATE_TEST_SUITE_P(BothOrders, RefusedRedirect,
                         ::testing::Values(RefusalEndsAs::cancellation, RefusalEndsAs::plainAnswer));

// The next acquisition can start inside the completion of the previous one.
class NextAfterRefusal : public OnlineDownload {
 protected:
  void completed(PackageProvider::Outcome outcome) override {
    const auto text = describe(outcome);
    if (++completions == 1)
      acquire();
    else
      outcomes.push_back(text);
  }
  int completions = 0;
};

TEST_F(NextAfterRefusal, IsNotEndedByWhatArrivesLate) {
  package().redirectsNext("https://evil.example/b.dmg");
  acquireToTheEnd();
  EXPECT_EQ(completions, 2);
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
}

// Progress.

TEST_F(OnlineDownload, FeedsTheHandlerOnceASecondAndAtTheEnd) {
  package().inPieces(50, 250ms);
  acquireToTheEnd();
  std::vector<double> percents;
  for (const auto& feed : feeds) {
    if (feed.progress.downloadedBytes) percents.push_back(feed.progress.percent);
  }
  EXPECT_THAT(percents, ElementsAre(4.0, 20.0, 36.0, 52.0, 68.0, 80.0));
  EXPECT_EQ(feeds.back().detailText, "1,000 bytes of 1,000 bytes (100%)");
  EXPECT_EQ(feeds.back().progress.downloadedBytes, 1000);
  EXPECT_EQ(feeds.back().progress.totalBytes, 1000);
}

TEST_F(OnlineDownload, LogsEachTenPerCentOnce) {
  package().inPieces(37, 10ms);
  acquireToTheEnd();
  const auto lines = machine.logLines("Download progress for Kelo Brenna");
  EXPECT_EQ(lines.size(), 11U);
  EXPECT_EQ(lines.front(), "INFO OnlinePackageProvider: Download progress for Kelo Brenna: 3%");
  EXPECT_EQ(lines.back(), "INFO OnlinePackageProvider: Download progress for Kelo Brenna: 100%");
}

TEST_F(OnlineDownload, ShowsNoPercentWhileTheTotalIsUnknown) {
  package().withoutLength().inPieces(300, 2s);
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  for (const auto& feed : feeds) {
    EXPECT_EQ(feed.progress.percent, 0.0);
    EXPECT_EQ(feed.progress.totalBytes, std::nullopt);
  }
  EXPECT_EQ(feeds.at(2).detailText, "300 bytes of unknown (0%)");
  EXPECT_EQ(machine.logLines("Download progress").size(), 1U);
}

TEST_F(OnlineDownload, StaysWithinZeroAndAHundredWhateverTheCountsAre) {
  std::vector<double> percents;
  const auto acquisition = std::make_shared<OnlineAcquisition>(
      brenna(), "label",
      [&](const std::string&, const std::string&, const Progress& progress) {
        percents.push_back(progress.percent);
      },
      [](const PackageProvider::Outcome&) {});
  const std::vector<std::pair<std::int64_t, std::int64_t>> counts{
      {0, 0},  {5, 0},   {5, -1},        {-1, 10},       {20, 10},
      {0, -1}, {-5, -5}, {INT64_MAX, 1}, {1, INT64_MAX}, {INT64_MAX, INT64_MAX}};
  for (const auto& [written, expected] : counts) {
    acquisition->didWriteData(nullptr, written, expected);
    advance(2s);
  }
  EXPECT_EQ(percents.size(), counts.size());
  EXPECT_THAT(percents, Each(::testing::AllOf(::testing::Ge(0.0), ::testing::Le(80.0))));
}

TEST_F(OnlineDownload, FailsARunThatFinishesWithoutKnowingWhat) {
  Lines ends;
  const auto acquisition = std::make_shared<OnlineAcquisition>(
      brenna(), "label", nullptr,
      [&](const PackageProvider::Outcome& outcome) { ends.push_back(describe(outcome)); });
  acquisition->didFinishDownloadingTo(nullptr, "/private/tmp/tester/x");
  acquisition->didFinishDownloadingTo(nullptr, "/private/tmp/tester/x");
  EXPECT_THAT(ends, ElementsAre("METADATA_INVALID Invalid package metadata response"));
  EXPECT_EQ(machine
                .logLines("ERROR OnlinePackageProvider: download finished with no active app/versionInfo — "
                          "failing the run")
                .size(),
            2U);
}

}  // namespace
}  // namespace installer

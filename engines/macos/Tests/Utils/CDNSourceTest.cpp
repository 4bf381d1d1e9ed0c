#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Models/AppInfo.h"
#include "Models/ReleaseNotes.h"
#include "Support/SimulatedMachine.h"
#include "Utils/CDNSource.h"
#include "Utils/KeloAppProvider.h"

namespace installer {
namespace {

using namespace std::chrono_literals;
using test::Lines;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using RefusalEndsAs = test::SimulatedNetwork::RefusalEndsAs;

constexpr auto kConfiguration = R"({
  "apps": {},
  "trustedDownloadDomains": ["kelo.example"],
  "cdn": {"domains": {"us": "https://cdn.kelo.example/suite/"}, "releaseNotesEnabled": true}
})";

std::string folder(const std::string& app, const std::string& arch) {
  return "https://cdn.kelo.example/suite/desksuite/apps/default/" + app + "/mac/" + arch + "/dmg/latest/";
}

class CDN : public ::testing::Test {
 protected:
  explicit CDN(const char* text = kConfiguration) { machine.setConfiguration(text); }

  static AppInfo app(AppIdentifier id) { return *KeloAppProvider::shared().app(id); }

  Expected<CDNPackage, CDNFetchError> fetch(AppIdentifier id) {
    Expected<CDNPackage, CDNFetchError> package = std::unexpected(CDNFetchError::transient);
    machine.dispatch.runOnWorker(
        [&] { package = CDNSource::fetchPackage(app(id), CDNSource::kFetchTimeout); });
    return package;
  }

  // The result of a lookup: "found", "notFound", "transient" or "untrusted".
  std::string outcome(AppIdentifier id = AppIdentifier::brenna) {
    const auto package = fetch(id);
    if (package) return "found";
    switch (package.error()) {
      case CDNFetchError::notFound: return "notFound";
      case CDNFetchError::transient: return "transient";
      case CDNFetchError::untrusted: return "untrusted";
    }
    return "?";
  }

  std::optional<ReleaseNotes> fetchNotes(AppIdentifier id) {
    std::optional<ReleaseNotes> notes;
    machine.dispatch.runOnWorker(
        [&] { notes = CDNSource::fetchReleaseNotes(app(id), CDNSource::kFetchTimeout); });
    return notes;
  }

  test::ServerResource& meta(const std::string& arch, const std::string& app = "brenna") {
    return machine.network.on(folder(app, arch) + "meta.json");
  }

  test::SimulatedMachine machine;
};

TEST_F(CDN, ReadsThePackageInTheMachinesFolder) {
  meta("arm64").answers(200, R"({"version": "2.1", "destination": "Brenna 2.dmg"})");
  const auto package = fetch(AppIdentifier::brenna);
  ASSERT_TRUE(package);
  EXPECT_EQ(package->meta.version, "2.1");
  EXPECT_EQ(package->folderURL.absoluteString() + "/", folder("brenna", "arm64"));
  EXPECT_EQ(package->downloadURL()->absoluteString(), folder("brenna", "arm64") + "Brenna%202.dmg");
  EXPECT_EQ(package->alternateDownloadURL(), std::nullopt);
  EXPECT_THAT(
      machine.logLines("CDNSource"),
      ElementsAre("INFO CDNSource: meta URL for Kelo Brenna: " + folder("brenna", "arm64") + "meta.json"));
}

TEST_F(CDN, NeverReadsMetadataFromACache) {
  meta("arm64").answers(200, "{}");
  EXPECT_TRUE(fetch(AppIdentifier::brenna));
  ASSERT_EQ(machine.network.requests().size(), 1U);
  const auto& request = machine.network.requests().front();
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.cachePolicy, CachePolicy::reloadIgnoringLocalCacheData);
  EXPECT_EQ(request.timeoutInterval, 15s);
}

TEST_F(CDN, LooksInTheFolderOfAnIntelMachine) {
  machine.systemInfo.machine = "x86_64";
  meta("x64").answers(200, "{}");
  EXPECT_EQ(outcome(), "found");
}

TEST_F(CDN, TakesAnEmptyObjectForAPackageWithoutDownload) {
  meta("arm64").answers(200, "{}");
  const auto package = fetch(AppIdentifier::brenna);
  ASSERT_TRUE(package);
  EXPECT_EQ(package->downloadURL(), std::nullopt);
}

TEST_F(CDN, FindsAUniversalAppUnderTheMachinesSegmentAndSaysSo) {
  meta("universal", "tolvi").answers(404);
  meta("arm64", "tolvi").answers(200, R"({"destination": "t.dmg"})");
  const auto package = fetch(AppIdentifier::tolvi);
  ASSERT_TRUE(package);
  EXPECT_EQ(package->downloadURL()->absoluteString(), folder("tolvi", "arm64") + "t.dmg");
  EXPECT_THAT(
      machine.logLines("WARN"),
      ElementsAre("WARN CDNSource: Kelo Tolvi was NOT under the declared 'universal' arch segment but IS "
                  "under 'arm64'. The build's pullset properties and this app's cdnArch disagree — fix "
                  "cdnArch in AppInfo and protocol/catalog.json to 'arm64'."));
}

TEST_F(CDN, FindsAPerArchAppUnderUniversal) {
  meta("arm64").answers(410);
  meta("universal").answers(200, "{}");
  EXPECT_EQ(outcome(), "found");
  EXPECT_EQ(machine.logLines("to 'universal'.").size(), 1U);
}

TEST_F(CDN, DoesNotLookElsewhereAfterATransientFailure) {
  meta("arm64").answers(503);
  meta("universal").answers(200, "{}");
  EXPECT_EQ(outcome(), "transient");
  EXPECT_EQ(machine.network.requests().size(), 1U);
}

TEST_F(CDN, IsNotFoundWhenNeitherSegmentHasIt) {
  meta("arm64").answers(404);
  meta("universal").answers(404);
  EXPECT_EQ(outcome(), "notFound");
  EXPECT_EQ(machine.network.requests().size(), 2U);
}

TEST_F(CDN, ReportsTheFirstSegmentsFailure) {
  meta("arm64").answers(404);
  meta("universal").neverAnswers();
  EXPECT_EQ(outcome(), "notFound");
}

TEST_F(CDN, SortsStatuses) {
  const std::vector<std::pair<int, std::string>> rows{
      {200, "found"},     {204, "found"},     {299, "found"},     {300, "transient"}, {304, "transient"},
      {400, "transient"}, {401, "transient"}, {403, "notFound"},  {404, "notFound"},  {410, "notFound"},
      {429, "transient"}, {500, "transient"}, {503, "transient"},
  };
  for (const auto& [status, expected] : rows) {
    meta("arm64").answers(status, "{}");
    EXPECT_EQ(outcome(), expected) << status;
  }
  EXPECT_EQ(
      machine.logLines("INFO CDNSource: HTTP 429 for Kelo Brenna at " + folder("brenna", "arm64")).size(),
      1U);
}

TEST_F(CDN, SortsErrors) {
  const std::vector<std::pair<std::int64_t, std::string>> rows{
      {URLErrorCode::cannotFindHost, "notFound"},
      {URLErrorCode::cannotConnectToHost, "transient"},
      {URLErrorCode::timedOut, "transient"},
      {URLErrorCode::networkConnectionLost, "transient"},
      {URLErrorCode::notConnectedToInternet, "transient"},
      {URLErrorCode::secureConnectionFailed, "transient"},
      {URLErrorCode::cancelled, "transient"},
  };
  for (const auto& [code, expected] : rows) {
    meta("arm64").fails(code, "words");
    EXPECT_EQ(outcome(), expected) << code;
  }
  EXPECT_EQ(machine.logLines("WARN CDNSource: fetch failed for Kelo Brenna (meta.json): words").size(),
            rows.size());
}

TEST_F(CDN, CallsAnUnreadableFileAFailedAttempt) {
  meta("universal").answers(200, "{}");
  for (const std::string body : {"", "<html>", "[]", "[{}]", "7"}) {
    meta("arm64").answers(200, body);
    EXPECT_EQ(outcome(), "transient") << body;
  }
  EXPECT_EQ(machine
                .logLines("INFO CDNSource: unparseable meta.json for Kelo Brenna at " +
                          folder("brenna", "arm64") + "meta.json")
                .size(),
            5U);
}

TEST_F(CDN, LogsHowAnUnreadableFileBegins) {
  meta("arm64").answers(200, "<html>\nplease log in" + std::string(200, '.'));
  EXPECT_EQ(outcome(), "transient");
  EXPECT_EQ(
      machine.logLines("begin with"),
      (Lines{"INFO CDNSource: The text isn't valid JSON around byte 1. The 220 bytes begin with: <html> "
             "please log in" +
             std::string(80, '.')}));
  meta("arm64").answers(200, "[1]");
  EXPECT_EQ(outcome(), "transient");
  EXPECT_EQ(machine.logLines("begin with").back(),
            "INFO CDNSource: The JSON text isn't an object. The 3 bytes begin with: [1]");
}

TEST_F(CDN, GivesUpAtTheTimeLimit) {
  meta("arm64").answers(200, std::string(100, ' ') + "{}").inPieces(1, 14s);
  EXPECT_EQ(outcome(), "transient");
  EXPECT_EQ(machine.dispatch.elapsed(), 15s);
  EXPECT_EQ(machine.logLines("WARN CDNSource: fetch timed out for Kelo Brenna at ").size(), 1U);
  machine.dispatch.advance(60s);
  EXPECT_EQ(machine.network.bytesServed(folder("brenna", "arm64") + "meta.json"), 2);
}

// The result is the same whether the request's timer or the caller's deadline comes first.
TEST_F(CDN, IsTransientWhenTheServerStaysSilent) {
  meta("arm64").neverAnswers();
  EXPECT_EQ(outcome(), "transient");
  EXPECT_EQ(machine.dispatch.elapsed(), 15s);
}

// A cancellation without a refusal is an ordinary failed attempt.
TEST_F(CDN, IsTransientWhenATaskIsCancelledThatWasNotRefused) {
  meta("arm64").fails(URLErrorCode::cancelled, "cancelled");
  EXPECT_EQ(outcome(), "transient");
  EXPECT_EQ(machine.logLines("WARN CDNSource: fetch failed for Kelo Brenna (meta.json): cancelled").size(),
            1U);
}

TEST_F(CDN, IsUntrustedWhenARefusedRedirectEndsAsCancellation) {
  machine.network.setRefusalEndsAs(RefusalEndsAs::cancellation);
  meta("arm64").redirects("https://evil.example/meta.json");
  EXPECT_EQ(outcome(), "untrusted");
  EXPECT_THAT(machine.logLines("ERROR CDNSource"),
              ElementsAre("ERROR CDNSource: Kelo Brenna metadata fetch was refused — untrusted redirect"));
  EXPECT_EQ(machine.network.requests().size(), 1U);
}

TEST_F(CDN, IsUntrustedWhenARefusedRedirectEndsAsPlainAnswer) {
  machine.network.setRefusalEndsAs(RefusalEndsAs::plainAnswer);
  meta("arm64").redirects("http://cdn.kelo.example/meta.json");
  EXPECT_EQ(outcome(), "untrusted");
  EXPECT_THAT(machine.logLines("ERROR CDNSource"),
              ElementsAre("ERROR CDNSource: Kelo Brenna metadata fetch was refused — untrusted redirect"));
}

TEST_F(CDN, RefusesARedirectToWhatIsNoStrictURLAsUnknown) {
  meta("arm64").redirects("https://a@b@cdn.kelo.example/meta.json");
  EXPECT_EQ(outcome(), "untrusted");
  EXPECT_EQ(
      machine.logLines("ERROR URLTrust: refusing a redirect to 'unknown' — not https on a host in").size(),
      1U);
}

TEST_F(CDN, FollowsATrustedRedirect) {
  meta("arm64").redirects("https://static.kelo.example/m.json");
  machine.network.on("https://static.kelo.example/m.json").answers(200, R"({"version": "3"})");
  EXPECT_EQ(outcome(), "found");
}

// A refusal is recorded for its own task only.
TEST_F(CDN, IsFoundAgainAfterARefusal) {
  meta("arm64").redirectsNext("https://evil.example/").answers(200, "{}");
  EXPECT_EQ(outcome(), "untrusted");
  EXPECT_EQ(outcome(), "found");
}

TEST_F(CDN, ReadsReleaseNotesNewestFirst) {
  machine.network.on(folder("brenna", "arm64") + "release-notes.json").answers(200, R"({
    "product": "Brenna", "version": "2.0", "releases": [
      {"version": "1.2", "notes": ["first"]}, {"version": "1.10", "notes": []}, {"version": "1.9", "notes": []},
      {"version": "2.0", "notes": []}, {"version": "1.2.1", "notes": ["second"]}]})");
  const auto notes = fetchNotes(AppIdentifier::brenna);
  ASSERT_TRUE(notes);
  EXPECT_EQ(notes->product, "Brenna");
  EXPECT_EQ(notes->version, "2.0");
  std::vector<std::string> versions;
  for (const auto& release : notes->releases) versions.push_back(release.version);
  EXPECT_THAT(versions, ElementsAre("2.0", "1.10", "1.9", "1.2", "1.2.1"));
}

TEST_F(CDN, ReadsReleaseNotesLongerThanAnyHistoryInTheSameOrder) {
  constexpr int count = 2'000;
  std::string releases;
  for (int i = 0; i < count; ++i) {
    releases += fmt::format(R"({}{{"version": "{}", "notes": ["{}"]}})", i == 0 ? "" : ",", i / 2, i);
  }
  machine.network.on(folder("brenna", "arm64") + "release-notes.json")
      .answers(200, R"({"releases": [)" + releases + "]}");
  const auto notes = fetchNotes(AppIdentifier::brenna);
  ASSERT_TRUE(notes);
  ASSERT_EQ(notes->releases.size(), std::size_t{count});
  for (int i = 0; i < count; ++i) {
    const int version = count / 2 - 1 - i / 2;
    const auto& release = notes->releases.at(static_cast<std::size_t>(i));
    ASSERT_EQ(release.version, std::to_string(version));
    ASSERT_EQ(release.notes, std::vector<std::string>{std::to_string(2 * version + i % 2)});
  }
}

TEST_F(CDN, DoesNotLookForReleaseNotesElsewhere) {
  machine.network.on(folder("brenna", "arm64") + "release-notes.json").answers(404);
  EXPECT_EQ(fetchNotes(AppIdentifier::brenna), std::nullopt);
  EXPECT_EQ(machine.network.requests().size(), 1U);
}

TEST_F(CDN, HasNoReleaseNotesWhenTheyCannotBeRead) {
  machine.network.on(folder("brenna", "arm64") + "release-notes.json").answers(200, R"({"releases": [{}]})");
  EXPECT_EQ(fetchNotes(AppIdentifier::brenna), std::nullopt);
  EXPECT_THAT(machine.logLines("CDNSource"), IsEmpty());
}

// A session whose answers come from another URL without a redirect.
class DisplacedSessions : public URLSessions, public URLSession {
 public:
  std::shared_ptr<URLSession> shared() override { return make(nullptr); }
  std::shared_ptr<URLSession> make(std::shared_ptr<URLSessionDelegate> /*delegate*/) override {
    return {std::shared_ptr<URLSession>{}, this};
  }
  std::shared_ptr<URLSessionTask> dataTask(const URLRequest& /*request*/,
                                           DataTaskCompletion completion) override {
    class Task : public URLSessionTask {
     public:
      explicit Task(DataTaskCompletion completion) : completion_{std::move(completion)} {}
      int taskIdentifier() const override { return 1; }
      void resume() override {
        installer::machine().dispatch.asyncGlobal(QualityOfService::standard, [completion = completion_] {
          completion("{}", HTTPURLResponse{200, *URL::parse("https://elsewhere.example/meta.json")},
                     std::nullopt);
        });
      }
      void cancel() override {}
      std::optional<HTTPURLResponse> response() const override { return std::nullopt; }

     private:
      DataTaskCompletion completion_;
    };
    return std::make_shared<Task>(std::move(completion));
  }
  std::shared_ptr<URLSessionTask> downloadTask(const URL& /*url*/) override { return nullptr; }
  std::shared_ptr<URLSessionTask> downloadTaskWithResumeData(const std::string& /*data*/) override {
    return nullptr;
  }
  void finishTasksAndInvalidate() override {}
  void invalidateAndCancel() override {}
};

TEST_F(CDN, IsUntrustedWhenTheFinalHostWasNeverJudged) {
  DisplacedSessions sessions;
  auto& usual = installer::machine();
  Machine displaced{.paths = usual.paths,
                    .files = usual.files,
                    .streams = usual.streams,
                    .processes = usual.processes,
                    .sessions = sessions,
                    .dispatch = usual.dispatch,
                    .bundles = usual.bundles,
                    .propertyList = usual.propertyList,
                    .workspace = usual.workspace,
                    .runningApplications = usual.runningApplications,
                    .administratorScripts = usual.administratorScripts,
                    .systemInfo = usual.systemInfo,
                    .digest = usual.digest,
                    .signals = usual.signals};
  installMachine(&displaced);
  EXPECT_EQ(outcome(), "untrusted");
  EXPECT_EQ(machine
                .logLines("ERROR CDNSource: Kelo Brenna metadata came from an untrusted host — "
                          "'elsewhere.example' is not https")
                .size(),
            1U);
  installMachine(&usual);
}

class CDNWithoutNotes : public CDN {
 protected:
  CDNWithoutNotes()
      : CDN{R"({"apps": {}, "trustedDownloadDomains": ["kelo.example"],
                "cdn": {"domains": {"us": "https://cdn.kelo.example/suite"}}})"} {}
};

TEST_F(CDNWithoutNotes, AsksForNone) {
  machine.network.on(folder("brenna", "arm64") + "release-notes.json").answers(200, R"({"releases": []})");
  EXPECT_EQ(fetchNotes(AppIdentifier::brenna), std::nullopt);
  EXPECT_THAT(machine.network.requests(), IsEmpty());
}

class CDNWithoutBase : public CDN {
 protected:
  CDNWithoutBase() : CDN{R"({"apps": {}, "cdn": {"dataCenter": "cn"}})"} {}
};

TEST_F(CDNWithoutBase, IsTransientAndAsksNothing) {
  EXPECT_EQ(outcome(), "transient");
  EXPECT_THAT(
      machine.logLines("ERROR"),
      ElementsAre("ERROR CDNSource: cdn.domains['cn'] is not a valid URL: '' — check installer_config.json"));
  EXPECT_THAT(machine.network.requests(), IsEmpty());
}

class CDNOnAForeignHost : public CDN {
 protected:
  CDNOnAForeignHost()
      : CDN{R"({"apps": {}, "trustedDownloadDomains": ["kelo.example"],
                "cdn": {"domains": {"us": "https://evilkelo.example"}}})"} {}
};

TEST_F(CDNOnAForeignHost, IsUntrustedAndAsksNothing) {
  EXPECT_EQ(outcome(), "untrusted");
  EXPECT_THAT(
      machine.logLines("ERROR"),
      ElementsAre("ERROR CDNSource: refusing to fetch Kelo Brenna metadata — 'evilkelo.example' is not https "
                  "on a host in trustedDownloadDomains [\"kelo.example\"]"));
  EXPECT_THAT(machine.network.requests(), IsEmpty());
}

}  // namespace
}  // namespace installer

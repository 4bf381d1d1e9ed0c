#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/InstallerLifecycle.h"

namespace installer {
namespace {

using test::Lines;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kPage = "https://www.kelo.example/get";
const std::string kNotRetired =
    "WARN InstallerLifecycle: a package lookup returned 'not found', but www.kelo.example is also "
    "unreachable "
    "— this is the machine's connection, not a retired CDN";

class Lifecycle : public ::testing::Test {
 protected:
  test::SimulatedMachine mac;

  void configure(const std::string& expiresOn, const std::string& downloadPage = kPage) {
    mac.setConfiguration(fmt::format(R"({{"apps": {{}}, "expiresOn": {}, "downloadPageUrl": "{}"}})",
                                     expiresOn, downloadPage));
  }
  void makeOfflineBuild() { mac.files.addFile(joined(mac.resources, "packages/brenna_installer.dmg")); }
  Lines lines() { return mac.logLines("InstallerLifecycle"); }
};

class LifecycleDate : public Lifecycle,
                      public ::testing::WithParamInterface<std::tuple<const char*, const char*, bool>> {};

TEST_P(LifecycleDate, IsTheLastGoodDayInUTC) {
  const auto& [date, now, expired] = GetParam();
  configure(fmt::format(R"({{"online": "{}"}})", date));
  mac.dispatch.setNow(now);
  EXPECT_EQ(InstallerLifecycle::expiry().has_value(), expired) << date << " at " << now;
}

INSTANTIATE_TEST_SUITE_P(Days, LifecycleDate,
                         ::testing::Values(std::tuple{"2026-03-01", "2026-02-28T12:00:00Z", false},
                                           std::tuple{"2026-03-01", "2026-03-01T00:00:00Z", false},
                                           std::tuple{"2026-03-01", "2026-03-01T23:59:59Z", false},
                                           std::tuple{"2026-03-01", "2026-03-02T00:00:00Z", true},
                                           std::tuple{"2026-03-01", "2026-03-02T12:00:00Z", true},
                                           std::tuple{"2024-02-29", "2024-03-01T00:00:00Z", true},
                                           std::tuple{"2025-12-31", "2026-01-01T00:00:00Z", true},
                                           std::tuple{"2026-3-1", "2026-03-01T23:59:59Z", false},
                                           std::tuple{"2026-3-1", "2026-03-02T00:00:00Z", true},
                                           std::tuple{"2026-03-1", "2026-03-02T00:00:00Z", true},
                                           std::tuple{"2026-3-01", "2026-03-01T00:00:00Z", false},
                                           std::tuple{"20-01-01", "2026-01-01T00:00:00Z", true},
                                           std::tuple{"30-01-01", "2026-01-01T00:00:00Z", true},
                                           std::tuple{"9999-12-31", "2026-01-01T00:00:00Z", false},
                                           std::tuple{"0001-01-01", "2026-01-01T00:00:00Z", true}));

class LifecycleBadDate : public Lifecycle, public ::testing::WithParamInterface<const char*> {};

TEST_P(LifecycleBadDate, NeverExpiresAndCostsAWarning) {
  configure(fmt::format(R"({{"online": "{}"}})", GetParam()));
  EXPECT_EQ(InstallerLifecycle::expiry(), std::nullopt);
  EXPECT_EQ(lines(),
            Lines{fmt::format("WARN InstallerLifecycle: expiresOn '{}' is not yyyy-MM-dd — ignoring it",
                              GetParam())});
}

INSTANTIATE_TEST_SUITE_P(Dates, LifecycleBadDate,
                         ::testing::Values("2020/01/01", "2020-13-01", "2020-02-30", "2020-00-10", "2020-1-0",
                                           "0000-01-01", "20200-01-01", "2020-001-01", "2020-01-001",
                                           "2020-01", "2020", "-", "--", "2020-01-01-01", "2020-01/01",
                                           "+020-01-01", "2020-0x1-01", "2019-2-29", " 2020-01-01",
                                           "2020-01-01 ", "2020-01-01T00:00:00Z", "01-01-2020", "yesterday",
                                           "-020-01-01", "2020--1-01"));

TEST_F(Lifecycle, TellsOfItsExpiryWithTheDateAsWritten) {
  configure(R"({"online": "2020-01-31"})");
  EXPECT_EQ(InstallerLifecycle::expiry(),
            (InstallerRetirement{RetirementReason::expired, kPage, "2020-01-31"}));
  EXPECT_EQ(lines(), Lines{"INFO InstallerLifecycle: this installer expired on 2020-01-31"});
  EXPECT_THAT(mac.network.requests(), IsEmpty());
}

TEST_F(Lifecycle, WithoutADateNeverExpires) {
  configure("{}");
  EXPECT_EQ(InstallerLifecycle::expiry(), std::nullopt);
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(Lifecycle, OfAnOnlineBuildObeysItsOwnDateOnly) {
  configure(R"({"offline": "2020-01-31"})");
  EXPECT_FALSE(InstallerLifecycle::isOfflineBuild());
  EXPECT_EQ(InstallerLifecycle::expiry(), std::nullopt);
}

TEST_F(Lifecycle, OfAnOfflineBuildObeysItsOwnDateOnly) {
  makeOfflineBuild();
  configure(R"({"online": "2020-01-31"})");
  EXPECT_TRUE(InstallerLifecycle::isOfflineBuild());
  EXPECT_EQ(InstallerLifecycle::expiry(), std::nullopt);
}

TEST_F(Lifecycle, OfAnOfflineBuildExpiresOnTheOfflineDate) {
  makeOfflineBuild();
  configure(R"({"offline": "2020-01-31"})");
  EXPECT_EQ(InstallerLifecycle::expiry().value().expiresOn, "2020-01-31");
}

TEST_F(Lifecycle, LooksForPackagesOncePerProcess) {
  EXPECT_FALSE(InstallerLifecycle::isOfflineBuild());
  makeOfflineBuild();
  EXPECT_FALSE(InstallerLifecycle::isOfflineBuild());
}

TEST_F(Lifecycle, RetiresTheSourceWhenThePageAnswersAtAll) {
  configure("{}");
  mac.network.on(kPage).answers(404);
  const InstallerRetirement gone{RetirementReason::sourceUnavailable, kPage, std::nullopt};
  EXPECT_EQ(InstallerLifecycle::reachedSourceVerdict(), std::nullopt);
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), gone);
  EXPECT_EQ(InstallerLifecycle::reachedSourceVerdict(), gone);
  EXPECT_EQ(InstallerLifecycle::currentRetirement(), gone);
  EXPECT_EQ(lines(), Lines{"ERROR InstallerLifecycle: a package lookup returned 'not found' while "
                           "www.kelo.example is reachable — the CDN tree this installer was built against is "
                           "gone"});
}

TEST_F(Lifecycle, AsksThePageWithAShortUncachedHEAD) {
  configure("{}");
  mac.network.on(kPage).answers(500);
  EXPECT_NE(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
  ASSERT_EQ(mac.network.requests().size(), 1U);
  const auto& request = mac.network.requests().front();
  EXPECT_EQ(request.method, "HEAD");
  EXPECT_EQ(request.cachePolicy, CachePolicy::reloadIgnoringLocalCacheData);
  EXPECT_EQ(request.timeoutInterval, Duration{8});
}

TEST_F(Lifecycle, TakesADeadNetworkForTheMachinesOwn) {
  configure("{}");
  mac.network.on(kPage).fails(URLErrorCode::notConnectedToInternet, "Offline.");
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
  EXPECT_EQ(lines(),
            (Lines{"WARN InstallerLifecycle: control probe of " + kPage + " failed: Offline.", kNotRetired}));
}

TEST_F(Lifecycle, TakesAnAnswerThatBrokeOffForNoProof) {
  configure("{}");
  mac.network.on(kPage).answers(200, "body").dropsAlways(2);
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
}

TEST_F(Lifecycle, GivesUpAProbeAfterEightSeconds) {
  configure("{}");
  mac.network.on(kPage).answers(200, std::string(100, 'x')).inPieces(1, Duration{1});
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
  EXPECT_EQ(mac.dispatch.elapsed(), Duration{8});
  EXPECT_EQ(lines(),
            (Lines{"WARN InstallerLifecycle: control probe of " + kPage + " timed out", kNotRetired}));
  mac.dispatch.advance(Duration{200});
  EXPECT_EQ(InstallerLifecycle::reachedSourceVerdict(), std::nullopt);
  EXPECT_LT(mac.network.bytesServed(kPage), 100) << "the request was given up, too";
}

TEST_F(Lifecycle, DoesNotRetireAtAPageThatNeverAnswers) {
  configure("{}");
  mac.network.on(kPage).neverAnswers();
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
  EXPECT_EQ(lines().back(), kNotRetired);
}

TEST_F(Lifecycle, ProbesOncePerProcess) {
  configure("{}");
  mac.network.on(kPage).answersNext(200).failsNext(URLErrorCode::timedOut);
  ASSERT_TRUE(InstallerLifecycle::confirmSourceRetired());
  EXPECT_TRUE(InstallerLifecycle::confirmSourceRetired());
  EXPECT_EQ(mac.network.requests().size(), 1U);
}

TEST_F(Lifecycle, StandsByItsVerdictThatNothingIsRetired) {
  configure("{}");
  mac.network.on(kPage).failsNext(URLErrorCode::timedOut).answers(200);
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
  EXPECT_EQ(mac.network.requests().size(), 1U);
}

TEST_F(Lifecycle, LetsTwoThreadsProbeAtOnceAndTheLaterResultStand) {
  configure("{}");
  mac.network.on(kPage).answers(200).takes(Duration{1});
  std::vector<std::optional<InstallerRetirement>> answers;
  for (int thread = 0; thread < 2; ++thread) {
    mac.dispatch.asyncGlobal(QualityOfService::standard,
                             [&answers] { answers.push_back(InstallerLifecycle::confirmSourceRetired()); });
  }
  mac.dispatch.runUntil([&answers] { return answers.size() == 2; });
  EXPECT_EQ(mac.network.requests().size(), 2U);
  EXPECT_EQ(answers[0], answers[1]);
  EXPECT_EQ(InstallerLifecycle::reachedSourceVerdict(), answers[1]);
}

TEST_F(Lifecycle, NeverProbesAPageThatIsNoURL) {
  configure("{}", "https://kelo example/get");
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
  EXPECT_THAT(mac.network.requests(), IsEmpty());
  EXPECT_EQ(lines(),
            Lines{"WARN InstallerLifecycle: downloadPageUrl 'https://kelo example/get' is not a valid "
                  "URL — cannot confirm whether the CDN is retired, so treating this as a network "
                  "problem"});
}

TEST_F(Lifecycle, NeverProbesAPageWithoutTLSAndStandsByThat) {
  configure("{}", "http://www.kelo.example/get");
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
  EXPECT_THAT(mac.network.requests(), IsEmpty());
  EXPECT_EQ(lines(),
            Lines{"WARN InstallerLifecycle: downloadPageUrl 'http://www.kelo.example/get' is not https "
                  "— refusing to probe it, so this cannot be confirmed as a retired CDN. Fix the key "
                  "in installer_config.json"});
}

TEST_F(Lifecycle, NeverProbesAPageWithoutAScheme) {
  configure("{}", "www.kelo.example/get");
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
  EXPECT_THAT(mac.network.requests(), IsEmpty());
  EXPECT_THAT(lines(), ElementsAre(::testing::HasSubstr("'www.kelo.example/get' is not https")));
}

TEST_F(Lifecycle, TakesTheSchemeInAnyCase) {
  configure("{}", "HTTPS://www.kelo.example/get");
  mac.network.on("HTTPS://www.kelo.example/get").answers(200);
  EXPECT_NE(InstallerLifecycle::confirmSourceRetired(), std::nullopt);
}

TEST_F(Lifecycle, LetsTheDateWinOverTheVerdict) {
  configure(R"({"online": "2020-01-31"})");
  mac.network.on(kPage).answers(200);
  EXPECT_EQ(InstallerLifecycle::confirmSourceRetired().value().reason, RetirementReason::sourceUnavailable);
  EXPECT_EQ(InstallerLifecycle::currentRetirement().value().reason, RetirementReason::expired);
}

}  // namespace
}  // namespace installer

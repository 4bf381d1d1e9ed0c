#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/SystemUtils.h"

namespace installer {
namespace {

using test::Lines;
using ::testing::IsEmpty;

const std::string kSite = "https://www.kelo.example";

class SystemFacts : public ::testing::Test {
 protected:
  test::SimulatedMachine mac;
};

TEST_F(SystemFacts, TellArm64ByContainment) {
  const struct {
    const char* machine;
    bool arm64;
  } rows[] = {{"arm64", true}, {"arm64e", true}, {"x86_64", false}, {"aarch64", false}, {"", false}};
  for (const auto& row : rows) {
    mac.systemInfo.machine = row.machine;
    EXPECT_EQ(SystemUtils::isArm64Architecture(), row.arm64) << row.machine;
  }
}

TEST_F(SystemFacts, TakeAnyAnswerForReachable) {
  for (const int status : {200, 301, 404, 500, 503}) {
    mac.network.on(kSite).answers(status);
    EXPECT_TRUE(SystemUtils::isInternetReachable(Duration{5})) << status;
  }
}

TEST_F(SystemFacts, AskWithAnUncachedHEAD) {
  mac.network.on(kSite).answers(200);
  EXPECT_TRUE(SystemUtils::isInternetReachable(Duration{5}));
  const auto& request = mac.network.requests().front();
  EXPECT_EQ(request.url, kSite);
  EXPECT_EQ(request.method, "HEAD");
  EXPECT_EQ(request.cachePolicy, CachePolicy::reloadIgnoringLocalAndRemoteCacheData);
  EXPECT_EQ(request.timeoutInterval, Duration{5});
}

TEST_F(SystemFacts, TakeAFailureForUnreachableWithoutAWarning) {
  mac.network.on(kSite).fails(URLErrorCode::cannotConnectToHost);
  EXPECT_FALSE(SystemUtils::isInternetReachable(Duration{5}));
  EXPECT_EQ(mac.logLines(), Lines{"INFO SystemUtils: connectivity probe failed: The operation couldn’t be "
                                  "completed. (NSURLErrorDomain error -1004.)"});
}

TEST_F(SystemFacts, TakeAnAnswerBelow500ForReachableEvenIfItBrokeOff) {
  for (const auto& [status, reachable] : {std::pair{200, true}, {404, true}, {499, true}, {500, false}}) {
    mac.network.on(kSite).answers(status, "body").dropsAlways(2);
    EXPECT_EQ(SystemUtils::isInternetReachable(Duration{5}), reachable) << status;
  }
}

TEST_F(SystemFacts, LetTheRequestsOwnTimeoutFireFirst) {
  mac.network.on(kSite).neverAnswers();
  EXPECT_FALSE(SystemUtils::isInternetReachable(Duration{5}));
  EXPECT_EQ(mac.dispatch.elapsed(), Duration{5});
  EXPECT_THAT(mac.logLines("WARN"), IsEmpty());
}

TEST_F(SystemFacts, GiveUpASecondAfterTheTimeout) {
  mac.network.on(kSite).answers(200, std::string(100, 'x')).inPieces(1, Duration{1});
  EXPECT_FALSE(SystemUtils::isInternetReachable(Duration{5}));
  EXPECT_EQ(mac.dispatch.elapsed(), Duration{6});
  EXPECT_EQ(mac.logLines(), Lines{"WARN SystemUtils: connectivity probe timed out after 5.0s"});
}

TEST_F(SystemFacts, TellConnectionFailuresFromOthers) {
  const struct {
    const char* domain;
    std::int64_t code;
    bool connection;
  } rows[] = {
      {"NSURLErrorDomain", -1001, true},    {"NSURLErrorDomain", -1004, true},
      {"NSURLErrorDomain", -1005, true},    {"NSURLErrorDomain", -1009, true},
      {"NSURLErrorDomain", -1018, true},    {"NSURLErrorDomain", -1019, true},
      {"NSURLErrorDomain", -1020, true},    {"NSURLErrorDomain", -1200, false},
      {"NSURLErrorDomain", -1003, false},   {"NSURLErrorDomain", -1011, false},
      {"NSURLErrorDomain", -999, false},    {"NSPOSIXErrorDomain", -1009, false},
      {"NSCocoaErrorDomain", -1001, false},
  };
  std::size_t warnings = 0;
  for (const auto& row : rows) {
    const Error error{row.domain, row.code, "Words.", nullptr};
    EXPECT_EQ(SystemUtils::isNetworkConnectionError(error), row.connection) << row.domain << row.code;
    if (row.connection) ++warnings;
  }
  EXPECT_EQ(mac.logLines().size(), warnings);
  EXPECT_EQ(mac.logLines("-1009"), Lines{"WARN Network error detected: NSURLErrorDomain code -1009: Words."});
}

TEST_F(SystemFacts, AreReportedToNobody) {
  Telemetry::report_to_server("mac", "error", "words", "brenna");
  EXPECT_EQ(mac.logLines(), Lines{"INFO Telemetry disabled (no user consent flow yet) — skipping report"});
  EXPECT_THAT(mac.network.requests(), IsEmpty());
}

}  // namespace
}  // namespace installer

// The effect of a cancel at each point.
#include "Installer/OnlineDownload.h"

namespace installer {
namespace {

using namespace std::chrono_literals;
using test::OnlineDownload;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto kCancelled = "DOWNLOAD_FAILED Download failed: cancelled";

class CancelledDownload : public OnlineDownload {
 protected:
  explicit CancelledDownload(std::uint64_t seed = 0) : OnlineDownload{seed} { publishWithAlternate(); }

  void cancelAfter(Duration delay) {
    acquire();
    advance(delay);
    provider.cancelAcquisition();
  }
};

TEST_F(CancelledDownload, DoesNothingWithoutARun) {
  provider.cancelAcquisition();
  advance(1min);
  EXPECT_THAT(outcomes, IsEmpty());
}

TEST_F(CancelledDownload, EndsATransferAndLeavesTheAlternateAlone) {
  package().inPieces(10, 1s);
  cancelAfter(3s);
  EXPECT_THAT(outcomes, IsEmpty()) << "ended from inside the cancel";
  advance(1min);
  EXPECT_THAT(outcomes, ElementsAre(kCancelled));
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL));
  EXPECT_EQ(machine.logLines("INFO OnlinePackageProvider: Acquisition cancelled").size(), 1U);
  EXPECT_FALSE(machine.files.exists(localFile()));
}

TEST_F(CancelledDownload, StartsNoTransferAfterTheMetadata) {
  meta().takes(4s);
  cancelAfter(1s);
  advance(1min);
  EXPECT_THAT(outcomes, ElementsAre(kCancelled));
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(CancelledDownload, StillTellsWhatIsWrongWithTheMetadata) {
  publish({{"checksum", ""}});
  meta().takes(4s);
  cancelAfter(1s);
  advance(1min);
  EXPECT_THAT(outcomes, ElementsAre(::testing::StartsWith("VERIFY_FAILED ")));
}

TEST_F(CancelledDownload, DoesNotWaitForTheRetry) {
  package().fails(URLErrorCode::cannotConnectToHost);
  cancelAfter(2s);
  EXPECT_THAT(outcomes, IsEmpty()) << "ended from inside the cancel";
  advance(0s);
  EXPECT_THAT(outcomes, ElementsAre(kCancelled));
  advance(1min);
  EXPECT_EQ(outcomes.size(), 1U);
  EXPECT_THAT(transfers(), ElementsAre("GET " + packageURL));
  EXPECT_EQ(
      machine.logLines("INFO OnlinePackageProvider: ignoring a download start after the run already finished")
          .size(),
      1U);
}

TEST_F(CancelledDownload, DoesNotRetryAnErrorThatComesLate) {
  package().failsNext(URLErrorCode::cannotConnectToHost).takes(2s);
  cancelAfter(1s);
  advance(1min);
  EXPECT_EQ(outcomes.size(), 1U);
  EXPECT_EQ(transfers().size(), 1U);
}

TEST_F(CancelledDownload, StillHandsOverAFileThatWasThere) {
  machine.files.addFile(localFile(), image);
  meta().takes(4s);
  cancelAfter(1s);
  advance(1min);
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(CancelledDownload, DoesNotReplaceABadFile) {
  machine.files.addFile(localFile(), "bad");
  meta().takes(4s);
  cancelAfter(1s);
  advance(1min);
  EXPECT_THAT(outcomes, ElementsAre(kCancelled));
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(CancelledDownload, ChangesNothingAfterTheEnd) {
  acquireToTheEnd();
  provider.cancelAcquisition();
  advance(1min);
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
}

TEST_F(CancelledDownload, CanBeCancelledTwice) {
  package().inPieces(10, 1s);
  cancelAfter(3s);
  provider.cancelAcquisition();
  advance(1min);
  EXPECT_THAT(outcomes, ElementsAre(kCancelled));
}

TEST_F(CancelledDownload, StartsCleanAfterwards) {
  package().inPieces(100, 1s);
  cancelAfter(3s);
  advance(1s);
  outcomes.clear();
  acquireToTheEnd();
  EXPECT_THAT(outcomes, ElementsAre(acquired()));
  EXPECT_EQ(transfers().back(), "GET " + packageURL);
}

// Cancels at any point, in many orders: the run completes once, and nothing starts afterwards.
class AnyInterleaving : public CancelledDownload, public ::testing::WithParamInterface<std::uint64_t> {
 protected:
  AnyInterleaving() : CancelledDownload{GetParam()} {
    meta().takes(300ms);
    package().inPieces(100, 100ms).dropsNext(250).failsNext(URLErrorCode::timedOut);
    if (GetParam() % 3 == 1) package().answers(503);
    if (GetParam() % 3 == 2) package().redirects("https://evil.example/x.dmg");
    alternate().inPieces(200, 100ms).dropsNext(500);
    if (GetParam() % 5 == 0) machine.files.addFile(localFile(), GetParam() % 2 == 0 ? image : "bad");
    machine.network.setRefusalEndsAs(GetParam() % 2 == 0
                                         ? test::SimulatedNetwork::RefusalEndsAs::cancellation
                                         : test::SimulatedNetwork::RefusalEndsAs::plainAnswer);
  }
};

TEST_P(AnyInterleaving, CompletesOnceAndStartsNothingAfterACancel) {
  acquire();
  std::optional<std::size_t> transfersAtCancel;
  // From a worker, so that the order of the cancel and the other ready blocks varies.
  machine.dispatch.asyncGlobal(QualityOfService::standard, [&] {
    machine.dispatch.sleep(std::chrono::milliseconds{GetParam() * 97 % 24'000});
    provider.cancelAcquisition();
    transfersAtCancel = transfers().size();
  });
  advance(10min);
  ASSERT_TRUE(transfersAtCancel);
  EXPECT_EQ(outcomes.size(), 1U) << ::testing::PrintToString(outcomes);
  EXPECT_EQ(transfers().size(), *transfersAtCancel);
}

INSTANTIATE_TEST_SUITE_P(Seeds, AnyInterleaving, ::testing::Range<std::uint64_t>(1, 401));

}  // namespace
}  // namespace installer

#include <gmock/gmock.h>

#include "Engine/EngineControllerFixture.h"

namespace installer {
namespace {

using namespace std::chrono_literals;
using enum AppIdentifier;
using test::Lines;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class EngineCancel : public test::EngineControllerTest {};

TEST_F(EngineCancel, EndsARunWhoseTransferFailsUponACancel) {
  provider->on(brenna)
      .takes(60s)
      .delivers(image(brenna, "2.0"))
      .whenCancelled(std::unexpected(ProviderError::downloadFailed("cancelled")));
  machine.dispatch.schedule(10s, [this] { controller->cancelAll(); });
  EXPECT_EQ(install({brenna, tolvi, rulo}), 2);
  EXPECT_EQ(transcript(),
            (Lines{"stage brenna download 1/3", "progress brenna 0% DOWNLOADING",
                   "app-result brenna failed DOWNLOAD_FAILED", "app-result tolvi cancelled",
                   "app-result rulo cancelled",
                   "done install 2: brenna failed DOWNLOAD_FAILED, tolvi cancelled, rulo cancelled"}));
  EXPECT_THAT(provider->calls(), ElementsAre("acquire Kelo Brenna (1/3)", "cancel"));
}

TEST_F(EngineCancel, CancelsTheAppWhosePackageArrivesAfterACancel) {
  provider->on(brenna).takes(60s).delivers(image(brenna, "2.0"));
  machine.dispatch.schedule(10s, [this] { controller->cancelAll(); });
  EXPECT_EQ(install({brenna, tolvi}), 1);
  EXPECT_EQ(outcome(), (Lines{"app-result brenna cancelled", "app-result tolvi cancelled",
                              "done install 1: brenna cancelled, tolvi cancelled"}));
  EXPECT_FALSE(machine.files.exists(app(brenna).tempFilePath()));
}

TEST_F(EngineCancel, EndsTheAppAtWorkWholeWhenCancelledDuringVerification) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  machine.programs.on(machine.paths.spctl).takes(30s);
  machine.dispatch.schedule(10s, [this] { controller->cancelAll(); });
  EXPECT_EQ(install({brenna, tolvi}), 1);
  EXPECT_EQ(outcome(),
            (Lines{"app-result brenna installed /Applications/Brenna.app 2.0", "app-result tolvi cancelled",
                   "done install 1: brenna installed /Applications/Brenna.app 2.0, "
                   "tolvi cancelled"}));
  EXPECT_THAT(machine.images.attached(), IsEmpty());
}

TEST_F(EngineCancel, CancelsOneAppAlone) {
  provider->on(brenna).takes(60s).delivers(image(brenna, "2.0"));
  provider->on(rulo).delivers(image(rulo, "4.0"));
  machine.dispatch.schedule(10s, [this] { controller->cancelApp("Tolvi"); });
  EXPECT_EQ(install({brenna, tolvi, rulo}), 1);
  // A cancelled app gets no number, and the next app gets the next one.
  const auto lines = transcript();
  EXPECT_THAT(lines, Contains("stage rulo download 2/3"));
  EXPECT_THAT(lines, Not(Contains(StartsWith("stage tolvi"))));
  EXPECT_EQ(outcome(),
            (Lines{"app-result brenna installed /Applications/Brenna.app 2.0", "app-result tolvi cancelled",
                   "app-result rulo installed /Applications/Kelo Rulo.app 4.0",
                   "done install 1: brenna installed /Applications/Brenna.app 2.0, "
                   "tolvi cancelled, rulo installed /Applications/Kelo Rulo.app 4.0"}));
  EXPECT_THAT(provider->calls(), ElementsAre("acquire Kelo Brenna (1/3)", "acquire Kelo Rulo (3/3)"));
}

TEST_F(EngineCancel, IgnoresACancelOfANameThatIsNoApp) {
  provider->on(brenna).takes(60s).delivers(image(brenna, "2.0"));
  machine.dispatch.schedule(10s, [this] {
    controller->cancelApp("mozi");
    controller->cancelApp("");
    controller->cancelApp(" brenna");
  });
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_THAT(provider->calls(), ElementsAre("acquire Kelo Brenna (1/1)"));
}

TEST_F(EngineCancel, IsNotChangedByACancelAfterTheLastApp) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  const auto before = transcript();
  controller->cancelAll();
  controller->cancelApp("brenna");
  machine.dispatch.runUntilIdle();
  EXPECT_EQ(transcript(), before);
  EXPECT_THAT(provider->calls(), ElementsAre("acquire Kelo Brenna (1/1)"));
  EXPECT_THAT(machine.logLines("ancel"), IsEmpty()) << "there is no run to be cancelled any more";
}

TEST_F(EngineCancel, TakesCancelsFromAnyThread) {
  provider->on(brenna).takes(60s).delivers(image(brenna, "2.0"));
  machine.dispatch.detachThread([this] {
    machine.dispatch.sleep(10s);
    controller->cancelAll();
  });
  EXPECT_EQ(install({brenna}), 1);
  EXPECT_EQ(outcome().back(), "done install 1: brenna cancelled");
}

TEST_F(EngineCancel, MayBeGoneWhenItsCancelLands) {
  controller->cancelAll();
  controller->cancelApp("brenna");
  controller = nullptr;
  machine.dispatch.runUntilIdle();
}

}  // namespace
}  // namespace installer

#include <functional>
#include <gtest/gtest.h>

#include "Installer/InstallRunState.h"

namespace installer::test {
namespace {

using enum AppIdentifier;

std::vector<AppInfo> apps(std::vector<AppIdentifier> identifiers) {
  std::vector<AppInfo> list;
  for (const auto identifier : identifiers) {
    AppInfo app;
    app.id = identifier;
    list.push_back(app);
  }
  return list;
}

TEST(InstallRunState, SharesTheOverallBarEquallyAmongTheApps) {
  struct Row {
    int finished;
    double local;
    double overall;
  };
  for (const auto& row :
       {Row{0, 0, 0}, Row{0, 100, 25}, Row{1, 50, 37.5}, Row{2, 85, 71.25}, Row{3, 100, 100}}) {
    InstallRunState state;
    state.start(apps({brenna, tolvi, rulo, galdivane}));
    for (int i = 0; i < row.finished; ++i) state.advance();
    EXPECT_DOUBLE_EQ(state.overallProgress(row.local), row.overall) << row.finished << " " << row.local;
  }
}

TEST(InstallRunState, TiesACancelToTheCurrentAppInItsDownload) {
  struct Row {
    AppIdentifier cancelled;
    InstallStage stage;
    bool touchesTheTransfer;
  };
  for (const auto& row : {Row{brenna, InstallStage::download, true}, Row{brenna, InstallStage::verify, false},
                          Row{brenna, InstallStage::install, false}, Row{rulo, InstallStage::download, false},
                          Row{tolvi, InstallStage::download, false}}) {
    InstallRunState state;
    state.start(apps({brenna, rulo}));
    state.setStage(row.stage);
    EXPECT_EQ(state.requestSkip(row.cancelled), row.touchesTheTransfer);
    EXPECT_TRUE(state.isGivenUp(row.cancelled));
    EXPECT_EQ(state.standing().isSkipRequested, row.cancelled == brenna);
  }
}

TEST(InstallRunState, LeavesAStepOfAHeldListToTheLastRelease) {
  InstallRunState state;
  state.start(apps({brenna, rulo}));
  ASSERT_TRUE(state.hold());
  EXPECT_FALSE(state.release()) << "no step is due";
  ASSERT_TRUE(state.hold());
  ASSERT_TRUE(state.requestSkip(brenna)) << "holds the list too";
  EXPECT_FALSE(state.hold());
  EXPECT_FALSE(state.requestSkip(rulo)) << "holds nothing";
  EXPECT_FALSE(state.release());
  EXPECT_TRUE(state.release());
  EXPECT_TRUE(state.hold());
}

TEST(InstallRunState, KnowsADownloadThatWasGivenUp) {
  struct Row {
    const char* name;
    std::function<void(InstallRunState&)> change;
    bool isGivenUp;
  };
  for (const auto& row :
       std::vector<Row>{{"nothing", [](InstallRunState&) {}, false},
                        {"the run", [](InstallRunState& state) { state.cancel(); }, true},
                        {"this app", [](InstallRunState& state) { state.requestSkip(brenna); }, true},
                        {"another app", [](InstallRunState& state) { state.requestSkip(rulo); }, false},
                        {"an app at work",
                         [](InstallRunState& state) {
                           state.cancel();
                           state.setStage(InstallStage::verify);
                         },
                         false},
                        {"the app before",
                         [](InstallRunState& state) {
                           state.cancel();
                           state.advance();
                         },
                         false}}) {
    InstallRunState state;
    state.start(apps({brenna, rulo}));
    row.change(state);
    EXPECT_EQ(state.isDownloadGivenUp(0), row.isGivenUp) << row.name;
    EXPECT_FALSE(state.isDownloadGivenUp(7)) << row.name;
  }
}

TEST(InstallRunState, HasNoCurrentAppBeyondTheEnd) {
  InstallRunState state;
  EXPECT_FALSE(state.standing().app.has_value());
  state.start(apps({brenna}));
  EXPECT_TRUE(state.standing().app.has_value());
  state.advance();
  EXPECT_FALSE(state.standing().app.has_value());
  EXPECT_FALSE(state.requestSkip(brenna));
}

TEST(InstallRunState, StartsAfresh) {
  InstallRunState state;
  state.start(apps({brenna}));
  state.cancel();
  state.requestSkip(rulo);
  state.setStage(InstallStage::install);
  state.keep(AppInstallResult::givenUp({}));
  state.advance();
  state.start(apps({rulo}));
  const auto standing = state.standing();
  EXPECT_EQ(standing.app->id, rulo);
  EXPECT_EQ(standing.resultCount, 0U);
  EXPECT_FALSE(standing.isCancelled);
  EXPECT_FALSE(standing.isSkipRequested);
  EXPECT_EQ(state.stage(), InstallStage::download);
}

}  // namespace
}  // namespace installer::test

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/CDNFetch.h"

namespace installer {
namespace {

using ::testing::ElementsAre;

// Records the calls, and whether the refusal was recorded before them.
class RecordingTask : public URLSessionTask {
 public:
  int taskIdentifier() const override { return 7; }
  void resume() override {}
  void cancel() override { onCancel(); }
  std::optional<HTTPURLResponse> response() const override { return std::nullopt; }

  std::function<void()> onCancel = [] {};
};

class TrustedRedirects : public ::testing::Test {
 protected:
  TrustedRedirects() {
    machine.setConfiguration(R"({"apps": {}, "trustedDownloadDomains": ["kelo.example"]})");
  }

  void redirectTo(const std::string& url) {
    delegate.willPerformHTTPRedirection(
        task, {302, *URL::parse("https://kelo.example/a")}, URLRequest{.url = *URL::parse(url)},
        [this](std::optional<URLRequest> request) {
          steps.push_back(request ? "follow " + request->url.absoluteString() : "refuse");
          if (onDecision) onDecision();
        });
  }

  test::SimulatedMachine machine;
  TrustedRedirectDelegate delegate;
  std::shared_ptr<RecordingTask> task = std::make_shared<RecordingTask>();
  std::vector<std::string> steps;
  std::function<void()> onDecision;
};

TEST_F(TrustedRedirects, FollowsToATrustedPlace) {
  redirectTo("https://cdn.kelo.example/b");
  EXPECT_THAT(steps, ElementsAre("follow https://cdn.kelo.example/b"));
  EXPECT_FALSE(delegate.didRefuseRedirect(7));
}

TEST_F(TrustedRedirects, RefusesAForeignPlaceThenCancels) {
  task->onCancel = [this] { steps.emplace_back("cancel"); };
  redirectTo("https://evil.example/b");
  EXPECT_THAT(steps, ElementsAre("refuse", "cancel"));
  EXPECT_THAT(machine.logLines("redirect"),
              ElementsAre("ERROR URLTrust: refusing a redirect to 'evil.example' — not https on a host in "
                          "trustedDownloadDomains [\"kelo.example\"]"));
}

TEST_F(TrustedRedirects, RefusesToLeaveHTTPS) {
  redirectTo("http://kelo.example/b");
  EXPECT_THAT(steps, ElementsAre("refuse"));
}

TEST_F(TrustedRedirects, NamesAPlaceWithoutHostUnknown) {
  redirectTo("https:///b");
  EXPECT_EQ(machine.logLines("redirect to 'unknown'").size(), 1U);
}

// The two ends race, so the refusal must be recorded before both.
TEST_F(TrustedRedirects, KnowsOfTheRefusalBeforeItCanBeSeen) {
  onDecision = [this] { EXPECT_TRUE(delegate.didRefuseRedirect(7)); };
  redirectTo("https://evil.example/b");
}

TEST_F(TrustedRedirects, KnowsOfTheRefusalWhenTheTaskIsCancelled) {
  task->onCancel = [this] { EXPECT_TRUE(delegate.didRefuseRedirect(7)); };
  redirectTo("https://evil.example/b");
}

TEST_F(TrustedRedirects, TellsOfARefusalOnce) {
  redirectTo("https://evil.example/b");
  EXPECT_FALSE(delegate.didRefuseRedirect(8));
  EXPECT_TRUE(delegate.didRefuseRedirect(7));
  EXPECT_FALSE(delegate.didRefuseRedirect(7));
}

}  // namespace
}  // namespace installer

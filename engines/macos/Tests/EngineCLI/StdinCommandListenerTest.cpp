#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "Engine/EngineControllerFixture.h"
#include "StdinCommandListener.h"

namespace installer {
namespace {

using namespace std::chrono_literals;
using enum AppIdentifier;
using test::Lines;
using ::testing::ElementsAre;

class StdinListener : public test::EngineControllerTest {
 protected:
  // The listener's log lines for one input line.
  Lines loggedFor(std::string_view line) {
    const auto before = machine.logLines("stdin").size();
    obeyStdinLine(line, *controller);
    auto lines = machine.logLines("stdin");
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    return lines;
  }
};

TEST_F(StdinListener, UnderstandsCancelsAndIgnoresTheRest) {
  const std::string malformed = "INFO engine-cli: ignoring malformed stdin line";
  const std::string whole = "INFO engine-cli: stdin cancel (whole run)";
  const std::vector<std::pair<std::string, std::string>> rows{
      {"", malformed},
      {"   ", malformed},
      {"cancel", malformed},
      {"[]", malformed},
      {R"([{"type": "cancel"}])", malformed},
      {"null", malformed},
      {R"("cancel")", malformed},
      {"5", malformed},
      {"{}", malformed},
      {R"({"type": 5})", malformed},
      {R"({"type": null})", malformed},
      {R"({"Type": "cancel"})", malformed},
      {R"({"type": "cancel")", malformed},
      {R"({"type": "cancel"} x)", malformed},
      {"{\"type\": \"cancel\", \"app\": \"\xFF\"}", malformed},
      {R"({"type": "cancel", "app": "\ud800"})", malformed},
      {R"({"type": "cancel", "app": 1e400})", malformed},
      {std::string{"{\"type\": \"cancel\"}\0", 19}, malformed},
      {std::string{"{\"type\": \"cancel\"}\0rest", 23}, malformed},
      {std::string(1 << 20, '['), malformed},
      {R"({"type": ")" + std::string(1 << 20, 'x'), malformed},
      {R"({"type": "pause"})", "INFO engine-cli: ignoring unknown stdin command 'pause'"},
      {R"({"type": "Cancel"})", "INFO engine-cli: ignoring unknown stdin command 'Cancel'"},
      {R"({"type": ""})", "INFO engine-cli: ignoring unknown stdin command ''"},
      {R"({"type": "cancel"})", whole},
      {R"(  {"type":"cancel","extra":[1,2]}  )", whole},
      {"{\"type\": \"cancel\"}\r", whole},
      {R"({"type": "cancel", "app": ""})", whole},
      {R"({"type": "cancel", "app": 5})", whole},
      {R"({"type": "cancel", "app": null})", whole},
      {R"({"type": "cancel", "app": ["brenna"]})", whole},
      {R"({"type": "cancel", "app": "brenna"})", "INFO engine-cli: stdin cancel for app 'brenna'"},
      {R"({"type": "cancel", "app": "mozi"})", "INFO engine-cli: stdin cancel for app 'mozi'"},
  };
  for (const auto& [line, logged] : rows)
    EXPECT_THAT(loggedFor(line), ElementsAre(logged)) << line.substr(0, 60);
  EXPECT_TRUE(machine.streams.events().empty());
}

TEST_F(StdinListener, ReadsOnPastLinesThatItDoesNotUnderstand) {
  startStdinCommandListener(controller);
  for (const char* line : {"[]", "", R"({"type": "pause"})", R"({"type": "cancel"})"})
    machine.streams.feedLine(line);
  machine.dispatch.runUntilIdle();
  EXPECT_EQ(machine.logLines("stdin").size(), 4U);
}

TEST_F(StdinListener, ObeysNoLineBeyondTheLimitHoweverItBegins) {
  startStdinCommandListener(controller);
  const std::string cancel = R"({"type": "cancel"})";
  const std::string blanks(StandardStreams::kMaximumLineLength - cancel.size(), ' ');
  machine.streams.feedLine(cancel + blanks + "x");
  machine.streams.feedLine(cancel + blanks);
  machine.dispatch.runUntilIdle();
  EXPECT_THAT(machine.logLines("stdin"), ElementsAre("INFO engine-cli: ignoring malformed stdin line",
                                                     "INFO engine-cli: stdin cancel (whole run)"));
}

TEST_F(StdinListener, LetsItsThreadEndWithTheInput) {
  startStdinCommandListener(controller);
  const auto holders = controller.use_count();
  EXPECT_GT(holders, 1);
  machine.streams.closeInput();
  machine.dispatch.runUntilIdle();
  EXPECT_LT(controller.use_count(), holders);
}

TEST_F(StdinListener, CancelsTheWholeRunForAnAppThatIsNoText) {
  provider->on(brenna).takes(60s).delivers(image(brenna, "2.0"));
  startStdinCommandListener(controller);
  machine.streams.feedLineAt(10s, R"({"type": "cancel", "app": 5})");
  EXPECT_EQ(controller->runInstall({brenna, tolvi}, Action::install, false), ExitCode::partialSuccess);
  EXPECT_EQ(transcript().back(), "done install 1: brenna cancelled, tolvi cancelled");
}

TEST_F(StdinListener, CancelsOneApp) {
  provider->on(brenna).takes(60s).delivers(image(brenna, "2.0"));
  provider->on(tolvi).delivers(image(tolvi, "3.0"));
  startStdinCommandListener(controller);
  machine.streams.feedLineAt(10s, R"({"type": "cancel", "app": "Brenna"})");
  EXPECT_EQ(controller->runInstall({brenna, tolvi}, Action::install, false), ExitCode::partialSuccess);
  EXPECT_EQ(transcript().back(),
            "done install 1: brenna cancelled, tolvi installed /Applications/Kelo Tolvi.app 3.0");
}

TEST_F(StdinListener, CancelsNothingForANameThatIsNoApp) {
  provider->on(brenna).takes(60s).delivers(image(brenna, "2.0"));
  startStdinCommandListener(controller);
  machine.streams.feedLineAt(10s, R"({"type": "cancel", "app": "mozi"})");
  EXPECT_EQ(controller->runInstall({brenna}, Action::install, false), ExitCode::success);
}

}  // namespace
}  // namespace installer

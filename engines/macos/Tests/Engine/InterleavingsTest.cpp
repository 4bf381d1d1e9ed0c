// The rules of a run, for many orders of its threads and times of a cancel.
#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

#include "Engine/EngineController.h"
#include "Support/EventTranscript.h"
#include "Support/ScriptedPackageProvider.h"
#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"

namespace installer {
namespace {

using enum AppIdentifier;
using test::ScriptedPackageProvider;

class RandomRun {
 public:
  explicit RandomRun(unsigned seed) : random_{seed}, machine{seed} {
    for (const auto identifier : {brenna, tolvi, rulo}) script(identifier);
    for (unsigned i = below(3); i > 0; --i) cancelSometime();
    exitCode =
        std::to_underlying(controller->runInstall({brenna, tolvi, rulo}, Action::install, below(2) == 1));
    events = machine.streams.events();
  }

 private:
  std::mt19937 random_;

 public:
  test::SimulatedMachine machine;
  std::shared_ptr<ScriptedPackageProvider> provider =
      std::make_shared<ScriptedPackageProvider>(machine.dispatch, ScriptedPackageProvider::Mode::offline);
  std::shared_ptr<EngineController> controller = EngineController::make(provider);
  std::int32_t exitCode = -1;
  std::vector<Json> events;

  std::string transcript() const {
    std::string text;
    for (const auto& line : test::transcript(events)) text += line + "\n";
    return text;
  }

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_()) % limit; }
  Duration upTo(unsigned seconds) { return Duration{below(seconds * 20) / 20.0}; }

  void script(AppIdentifier identifier) {
    const auto& info = *KeloAppProvider::shared().app(identifier);
    auto& script = provider->on(identifier);
    script.takes(upTo(20)).reports("Downloading...", "", {.percent = 50}).takes(upTo(20));
    if (below(3) == 0) script.whenCancelled(std::unexpected(ProviderError::downloadFailed("cancelled")));
    if (below(4) == 0) {
      script.fails(ProviderError::invalidResponse());
      return;
    }
    machine.images.add(info.tempFilePath(), "/Volumes/" + info.displayName,
                       [this, info](test::SimulatedFileSystem&, const Path& mountPoint) {
                         machine.addApp(joined(mountPoint, info.appBundleName),
                                        {.identifier = info.installerBundleIdentifier, .version = "2.0"});
                       });
    script.delivers({.fileURL = info.tempFilePath(), .checksum = {}, .skipGatekeeper = true, .version = {}});
  }

  void cancelSometime() {
    const auto which = below(4);
    machine.dispatch.schedule(upTo(60), [this, which] {
      if (which == 3) return controller->cancelAll();
      controller->cancelApp(std::string{rawValue(AppIdentifiers::allCases.at(which))});
    });
  }
};

TEST(Interleavings, EndInOneDoneWithOneResultAnApp) {
  for (unsigned seed = 1; seed <= 150; ++seed) {
    const RandomRun run{seed};
    const auto context = "seed " + std::to_string(seed) + "\n" + run.transcript();
    ASSERT_FALSE(run.events.empty()) << context;
    const auto& done = run.events.back();
    ASSERT_EQ(done["type"], "done") << context;
    EXPECT_EQ(done["exitCode"], run.exitCode) << context;

    // Each app is once in the results, and each result is also one event.
    std::vector<std::string> inResults;
    for (const auto& result : done["results"]) {
      inResults.push_back(result["app"].get<std::string>() + " " + result["status"].get<std::string>());
    }
    std::vector<std::string> alone;
    for (const auto& event : run.events) {
      if (event["type"] != "app-result") continue;
      alone.push_back(event["app"].get<std::string>() + " " + event["status"].get<std::string>());
    }
    EXPECT_EQ(alone, inResults) << context;
    EXPECT_EQ(inResults.size(), 3U) << context;
    EXPECT_TRUE(run.machine.images.attached().empty()) << context;
    for (const auto& name : {"Brenna.app", "Kelo Tolvi.app", "Kelo Rulo.app"}) {
      const Path path = "/Applications/" + std::string{name};
      const bool reported = run.transcript().find("installed " + path) != std::string::npos;
      EXPECT_EQ(run.machine.files.exists(path), reported) << path << "\n" << context;
    }
  }
}

}  // namespace
}  // namespace installer

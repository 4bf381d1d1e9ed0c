// Runs with random servers, programs, copies, cancels and orders of the threads. In each of them the events,
// the exit status and the disk must agree.
#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>

#include "Engine/EngineController.h"
#include "EngineCLI/CommandLineFixture.h"
#include "PackageSource.h"
#include "StdinCommandListener.h"
#include "Support/Sample.h"
#include "Support/ScriptedPackageProvider.h"

namespace installer {
namespace {

using enum AppIdentifier;
using test::Lines;
using namespace std::chrono_literals;

class Interleavings : public test::CommandLineTest {
 protected:
  void runSeeds(unsigned sampleSize, const std::function<void(unsigned seed)>& one);
  void runOne(unsigned seed);
  void runLateSource(unsigned seed);
  void runTwo(unsigned seed);

 private:
  static constexpr std::array apps{brenna, tolvi, rulo};
  static constexpr unsigned kSeeds = 10'000;
  using Bundle = std::map<std::string, std::string>;

  std::mt19937 random_;
  std::vector<std::string> arguments_;
  std::set<std::string> cancelled_;  // the apps with a requested cancel
  std::map<AppIdentifier, Bundle> old_;
  Lines wrong_;

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_()) % limit; }
  bool oneIn(unsigned count) { return below(count) == 0; }
  Duration upTo(unsigned seconds) { return Duration{below(seconds * 20) / 20.0}; }
  void expect(bool holds, const std::string& otherwise) {
    if (!holds) wrong_.push_back(otherwise);
  }
  Bundle bundle(AppIdentifier identifier) const {
    return machine.files.snapshot(joined(machine.paths.applications, app(identifier).appBundleName));
  }

  void prepare();
  void prepareApp(AppIdentifier identifier, bool online);
  void prepareServer(AppIdentifier identifier);
  void preparePrograms();
  void holdTurn();
  void cancelSometime();
  void judge(std::int32_t exitStatus);
  void judgeResult(const Json& result, bool isIdle);
  void judgeRest(bool isIdle);
  bool endedIdle() const;

  // One of two engines.
  struct Engine {
    Action action = Action::install;  // identifies its events
    std::shared_ptr<EngineController> controller = nullptr;
    std::int32_t exitStatus = -1;
    bool isCancelled = false;
  };
  bool mayFail_ = false;
  void prepareTwo();
  void startEngine(Engine& engine);
  void judgeTwo(const std::array<Engine, 2>& engines);
  void judgeApp(AppIdentifier identifier);

  void startSeed(unsigned seed);
  void complain(unsigned seed) const;
};

void Interleavings::prepare() {
  const bool online = !oneIn(3);
  if (online) configureCDN();
  for (const auto identifier : apps) prepareApp(identifier, online);
  preparePrograms();
  const auto* const action = oneIn(5) ? "uninstall" : oneIn(3) ? "update" : "install";
  arguments_ = {"run", "--action", action, "--apps", "brenna,tolvi,rulo"};
  if (!online) arguments_.emplace_back("--offline");
  if (oneIn(2)) arguments_.insert(arguments_.end(), {"--strict", "true"});
  if (oneIn(4)) holdTurn();
  for (unsigned count = below(4); count > 0; --count) cancelSometime();
}

void Interleavings::prepareApp(AppIdentifier identifier, bool online) {
  const auto versions = std::array{"1.0", "2.0", "3.0"};
  if (oneIn(2)) addInstalled(identifier, versions.at(below(3)));
  old_[identifier] = bundle(identifier);
  if (oneIn(4)) {
    machine.runningApps.launch(app(identifier).installerBundleIdentifier, "App",
                               static_cast<int>(identifier) + 1,
                               {oneIn(2) ? std::optional{upTo(8)} : std::nullopt, oneIn(3)});
  }
  if (!online) return addBesideInstaller(identifier, "2.0");
  offer(identifier, identifier == brenna ? "arm64" : "universal", "2.0");
  prepareServer(identifier);
}

void Interleavings::prepareServer(AppIdentifier identifier) {
  for (const auto* file : {"meta.json", "p.dmg"}) {
    auto& resource =
        machine.network.on(offeredAt(identifier, identifier == brenna ? "arm64" : "universal") + file);
    resource.takes(upTo(oneIn(5) ? 90 : 5)).inPieces(below(900) + 100, upTo(15));
    for (unsigned count = below(4); count > 0; --count) {
      if (oneIn(3)) resource.stallsNext(below(1000));
      if (oneIn(2)) resource.dropsNext(below(1000));
      if (oneIn(9)) resource.neverAnswersNext();
      if (oneIn(9)) resource.answersNext(500, "broken");
      if (oneIn(9)) resource.redirectsNext("https://elsewhere.test/p.dmg");
    }
    if (oneIn(6)) resource.withoutValidator();
  }
}

void Interleavings::preparePrograms() {
  const auto& paths = machine.paths;
  for (const auto& program : {paths.hdiutil, paths.codesign, paths.spctl, paths.xattr}) {
    auto& script = machine.programs.on(program).takes(upTo(oneIn(40) ? 900 : 8));
    if (oneIn(30)) script.exitsNext(1);
  }
  if (oneIn(5)) machine.files.setWritable(paths.applications, false);
  machine.administrator.takes(upTo(20));
  if (oneIn(3)) machine.administrator.dismissesNext();
}

// A third engine has the turn for some time, in some runs for longer than the others wait.
void Interleavings::holdTurn() {
  std::shared_ptr<FileLock> turn = *machine.files.tryLock(machine.paths.applications);
  machine.dispatch.schedule(upTo(oneIn(20) ? 3600 : 60), [turn]() mutable { turn.reset(); });
}

void Interleavings::cancelSometime() {
  const auto when = upTo(oneIn(2) ? 100 : 15);
  const auto which = below(5);
  for (const auto identifier : apps) {
    // During a removal, each cancel is for the whole run.
    const bool isMeant = which >= apps.size() || apps.at(which) == identifier || arguments_[2] == "uninstall";
    if (isMeant) cancelled_.emplace(rawValue(identifier));
  }
  if (which < apps.size()) {
    return machine.streams.feedLineAt(
        when, fmt::format(R"({{"type": "cancel", "app": "{}"}})", rawValue(apps.at(which))));
  }
  if (which == 3) return machine.signals.requestTerminationAt(when);
  machine.streams.feedLineAt(when, R"({"type": "cancel"})");
}

std::string resultText(const Json& result) {
  std::string text;
  // Without the version, which is read again for `done`; another engine can have removed the app meanwhile.
  for (const auto* key : {"app", "status", "errorCode", "installedPath"}) {
    text += result.value(key, Json{}).dump() + " ";
  }
  return text;
}

bool Interleavings::endedIdle() const {
  return std::ranges::any_of(
      transcript(), [](const auto& line) { return line.starts_with("log error: Engine idle timeout"); });
}

void Interleavings::judge(std::int32_t exitStatus) {
  const auto events = machine.streams.events();
  const auto done = machine.streams.events("done");
  expect(done.size() == 1 && events.back() == done[0], "not one done at the end");
  if (done.empty()) return;
  expect(done[0]["exitCode"] == exitStatus, fmt::format("exit status {}", exitStatus));
  const bool isIdle = endedIdle();
  std::multiset<std::string> inDone;
  for (const auto& result : done[0]["results"]) {
    inDone.insert(resultText(result));
    judgeResult(result, isIdle);
  }
  std::multiset<std::string> alone;
  for (const auto& event : machine.streams.events("app-result")) alone.insert(resultText(event));
  expect(inDone.size() == apps.size(), fmt::format("{} results", inDone.size()));
  // After an idle end, an app that already had its result gets another one.
  expect(isIdle ? std::ranges::includes(alone, inDone) : alone == inDone, "other app-results than in done");
  judgeRest(isIdle);
}

void Interleavings::judgeResult(const Json& result, bool isIdle) {
  const auto name = result["app"].get<std::string>();
  const auto status = result["status"].get<std::string>();
  const auto identifier = *AppIdentifiers::fromRawValue(name);
  const auto now = bundle(identifier);
  const bool isOld = now == old_[identifier];
  const bool isNew = !now.empty() && now.at("Contents/Info.plist").find(">2.0<") != std::string::npos;
  const auto claim = fmt::format("{} is {}", name, status);
  expect(status != "cancelled" || isIdle || cancelled_.contains(name), claim + " without a cancel");
  if (isIdle) return;  // the current app continues until the process ends
  if (status == "installed" || status == "updated") expect(isNew, claim + " but not on the disk");
  if (status == "skipped" || status == "cancelled") expect(isOld, claim + " but changed on the disk");
  if (status == "uninstalled" || status == "already_absent") expect(now.empty(), claim + " but on the disk");
  if (status == "failed") expect(isOld || isNew || now.empty(), claim + " with half a bundle");
}

// Checks the leftovers after all started work has ended. After an idle run, the work ends with the process.
void Interleavings::judgeRest(bool isIdle) {
  const auto count = machine.streams.events().size();
  machine.dispatch.advance(3h);
  expect(machine.streams.events().size() == count, "events after done");
  if (isIdle) return;
  expect(machine.images.attached().empty(), "an image stays attached");
  expect(machine.network.openSessions() <= 1, "a session stays open beside that of the metadata");
  const auto downloads = machine.files.tree(machine.paths.temporaryDirectory);
  expect(downloads.empty(), fmt::format("{} stays", fmt::join(downloads, ", ")));
  for (const auto& name : machine.files.tree(machine.paths.applications)) {
    expect(!name.starts_with('.'), name + " stays");
  }
}

void Interleavings::startSeed(unsigned seed) {
  startAfresh(machine, seed);
  machine.network.on(std::string{Deployment::connectivityProbeURL}).answers(200);
  random_.seed(seed);
  cancelled_.clear();
  wrong_.clear();
}

void Interleavings::complain(unsigned seed) const {
  if (wrong_.empty()) return;
  ADD_FAILURE() << fmt::format("KELO_SEED={}: {}\n{}\n", seed, fmt::join(wrong_, "; "),
                               fmt::join(transcript(), "\n"))
                << machine.files.read(machine.logFile());
}

void Interleavings::runOne(unsigned seed) {
  startSeed(seed);
  prepare();
  judge(run(arguments_));
  complain(seed);
}

// A source that delivers its packages whatever is cancelled meanwhile.
void Interleavings::runLateSource(unsigned seed) {
  startSeed(seed);
  arguments_ = {"run", "--action", "install"};
  const auto source = std::make_shared<test::ScriptedPackageProvider>(machine.dispatch);
  for (const auto identifier : apps) {
    old_[identifier] = {};
    const auto path = app(identifier).tempFilePath();
    machine.files.addFile(path, image(identifier, "2.0"));
    source->on(identifier)
        .takes(upTo(20))
        .reports("Downloading...")
        .takes(upTo(20))
        .delivers({.fileURL = path, .checksum = {}, .skipGatekeeper = false, .version = {}});
  }
  preparePrograms();
  for (unsigned count = below(4); count > 0; --count) cancelSometime();
  const auto controller = EngineController::make(source);
  startStdinCommandListener(controller);
  machine.signals.onTerminationRequest([controller] { controller->cancelAll(); });
  const auto exitCode = controller->runInstall({apps.begin(), apps.end()}, Action::install, false);
  for (const auto identifier : apps) {
    const auto acquired = [name = app(identifier).displayName](const std::string& call) {
      return call.starts_with("acquire " + name);
    };
    // A package that wasn't asked for wasn't downloaded.
    if (std::ranges::none_of(source->calls(), acquired)) machine.files.erase(app(identifier).tempFilePath());
  }
  judge(std::to_underlying(exitCode));
  complain(seed);
}

// Two engines on one machine, the second inside the run loop of the first. They share the process-wide
// values, so this doesn't find a stale value in one of them.

void Interleavings::prepareTwo() {
  const bool online = oneIn(2);
  mayFail_ = oneIn(2);
  if (online) configureCDN();
  for (const auto identifier : apps) {
    if (oneIn(2)) addInstalled(identifier, oneIn(2) ? "1.0" : "2.0");
    old_[identifier] = bundle(identifier);
    if (!online) addBesideInstaller(identifier, "2.0");
    if (online) offer(identifier, identifier == brenna ? "arm64" : "universal", "2.0");
    if (online && mayFail_) prepareServer(identifier);
  }
  for (const auto& program : {machine.paths.hdiutil, machine.paths.codesign}) {
    machine.programs.on(program).takes(upTo(mayFail_ && oneIn(40) ? 900 : 20));
  }
  if (mayFail_ && oneIn(3)) holdTurn();
  if (oneIn(3)) machine.files.setWritable(machine.paths.applications, false);
  machine.administrator.takes(upTo(20));
}

void Interleavings::startEngine(Engine& engine) {
  engine.controller = EngineController::make(makeProvider(false));
  const auto run = [&engine] {
    const auto& controller = engine.controller;
    const std::vector<AppIdentifier> all{apps.begin(), apps.end()};
    const bool removes = engine.action == Action::uninstall;
    const auto status =
        removes ? controller->runUninstall(all, false) : controller->runInstall(all, engine.action, false);
    engine.exitStatus = std::to_underlying(status);
  };
  machine.dispatch.asyncMainAfter(upTo(60), run);
  for (unsigned count = below(3); count > 0; --count) {
    engine.isCancelled = true;
    machine.dispatch.schedule(upTo(90), [&engine] { engine.controller->cancelAll(); });
  }
}

void Interleavings::judgeTwo(const std::array<Engine, 2>& engines) {
  const bool isIdle = endedIdle();
  std::multiset<std::string> inDone;
  for (const auto& engine : engines) {
    for (const auto& done : machine.streams.events("done")) {
      if (done["action"] != rawValue(engine.action)) continue;
      expect(done["exitCode"] == engine.exitStatus, "another exit status than in done");
      for (const auto& result : done["results"]) {
        inDone.insert(resultText(result));
        const auto status = result["status"].get<std::string>();
        expect(status != "failed" || mayFail_ || engine.isCancelled, result.dump());
        expect(status != "cancelled" || isIdle || engine.isCancelled, result.dump());
      }
    }
  }
  std::multiset<std::string> alone;
  for (const auto& event : machine.streams.events("app-result")) alone.insert(resultText(event));
  expect(machine.streams.events("done").size() == 2 && inDone.size() == 6, "not two whole runs");
  expect(isIdle ? std::ranges::includes(alone, inDone) : alone == inDone, "other app-results than in done");
  // After an idle end, an app's work continues here, but not on a real machine, where the process ends.
  for (const auto identifier : apps) {
    if (!isIdle) judgeApp(identifier);
  }
  judgeRest(isIdle);
}

// Checks that the number of each result matches the states at the start and at the end.
void Interleavings::judgeApp(AppIdentifier identifier) {
  int balance = old_[identifier].empty() ? 0 : 1;
  for (const auto& event : machine.streams.events("app-result")) {
    if (event["app"] != rawValue(identifier)) continue;
    const auto status = event["status"].get<std::string>();
    if (status == "uninstalled") --balance;
    if ((status == "installed" || status == "updated") && balance == 0) ++balance;
    expect(status != "already_absent" || balance == 0, "absent although it was there");
  }
  expect(balance == (bundle(identifier).empty() ? 0 : 1),
         fmt::format("{} isn't as reported", rawValue(identifier)));
}

void Interleavings::runTwo(unsigned seed) {
  startSeed(seed);
  prepareTwo();
  const auto actions = std::array{Action::install, Action::update, Action::uninstall};
  std::array<Engine, 2> engines{Engine{.action = actions.at(below(3))}, Engine{}};
  while (engines[1].action == engines[0].action) engines[1].action = actions.at(below(3));
  for (auto& engine : engines) startEngine(engine);
  machine.dispatch.runUntil(
      [&] { return std::ranges::all_of(engines, [](const auto& engine) { return engine.exitStatus >= 0; }); },
      24h);
  judgeTwo(engines);
  complain(seed);
}

// Runs `one` with ten thousand seeds, with a sample of them, or with the requested seed.
void Interleavings::runSeeds(unsigned sampleSize, const std::function<void(unsigned seed)>& one) {
  const test::Sample sample;
  const auto seed = static_cast<unsigned>(sample.seed());
  if (sample.isRepeated()) return one(seed);
  const auto first = sample.isAll() ? 1 : seed % kSeeds + 1;
  for (unsigned i = 0; i < (sample.isAll() ? kSeeds : sampleSize); ++i) one(first + i);
}

TEST_F(Interleavings, EndInOneDoneThatIsTrue) {
  runSeeds(200, [this](unsigned seed) { runOne(seed); });
}

TEST_F(Interleavings, OfCancelsAndASourceThatDeliversNevertheless) {
  runSeeds(200, [this](unsigned seed) { runLateSource(seed); });
}

TEST_F(Interleavings, OfTwoEnginesEndInTwoDonesThatAreTrue) {
  runSeeds(40, [this](unsigned seed) { runTwo(seed); });
}

}  // namespace
}  // namespace installer

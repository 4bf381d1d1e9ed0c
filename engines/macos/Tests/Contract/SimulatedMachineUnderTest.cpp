#include <nlohmann/json.hpp>

#include "Contract/MachineUnderTest.h"
#include "Support/SimulatedMachine.h"

namespace installer::test {

namespace {

constexpr auto kServerURL = "https://server.example.test";

class SimulatedMachineUnderTest : public MachineUnderTest {
 public:
  SimulatedMachineUnderTest() { simulated_.files.addDirectory(folder()); }

  Machine& machine() override { return installer::machine(); }
  Path folder() override { return "/private/tmp/contract"; }

  void makeLink(const Path& path, const std::string& target) override {
    simulated_.files.addSymlink(path, target);
  }
  void setWritable(const Path& path, bool writable) override { simulated_.files.setWritable(path, writable); }
  void setReadable(const Path& path, bool readable) override { simulated_.files.setReadable(path, readable); }
  void setExecutable(const Path& path) override { simulated_.files.setExecutable(path, true); }
  void setImmutable(const Path& path, bool immutable) override {
    simulated_.files.setImmutable(path, immutable);
  }
  void makeSticky(const Path& path) override {
    simulated_.files.setSticky(path);
    simulated_.files.setOwnedByAnother(path);
    const auto names = simulated_.files.contentsOfDirectory(path).value();
    for (const auto& name : names) {
      simulated_.files.setOwnedByAnother(joined(path, name));
    }
  }
  void leaveKilledCopy(const Path& path) override { simulated_.files.addLeftover(path); }
  Lines asOrdinaryUser(const std::function<Lines()>& work) override { return work(); }

  Path makeProgram(const std::string& name, const std::string& output, const std::string& errorOutput,
                   int status) override {
    const auto path = joined(folder(), name);
    simulated_.programs.on(path).exits(status, output, errorOutput);
    return path;
  }
  Path makeEchoProgram(const std::string& name) override {
    const auto path = joined(folder(), name);
    simulated_.programs.on(path).does([](const Arguments& arguments) {
      ProgramExit exit;
      for (const auto& argument : arguments) exit.output += argument + "\n";
      return exit;
    });
    return path;
  }

  Written withStandardInput(const std::string& input, const std::function<void()>& work) override {
    for (const auto& line : linesOf(input)) simulated_.streams.feedLine(line);
    simulated_.streams.closeInput();
    work();
    return {simulated_.streams.output(), simulated_.streams.error()};
  }

  std::int32_t startApplication(const Path& bundle, WhenAsked behaviour) override {
    const auto read = simulated_.bundles.read(bundle);
    simulated_.runningApps.launch(
        read->bundleIdentifier().value_or(""), read->infoString("CFBundleName"), ++lastProcess_,
        behaviour == WhenAsked::quits ? QuitBehaviour::quits() : QuitBehaviour::ignoresQuit());
    return lastProcess_;
  }

  Facts facts() override {
    auto& info = simulated_.systemInfo;
    info.machine = "x86_64";
    info.user = 777;
    info.group = 778;
    info.process = 779;
    return {"x86_64", 777, 778, 779};
  }

  void dismissPrompts() override { simulated_.administrator.dismissesAlways(); }
  void requestTermination() override { simulated_.signals.requestTermination(); }

  ServerResource& serverResource(const std::string& path) override {
    return simulated_.network.on(urlOf(path));
  }
  std::string urlOf(const std::string& path) override { return kServerURL + path; }
  Lines requestsToServer() override {
    auto lines = simulated_.network.requestLines();
    for (auto& line : lines) line.erase(line.find(kServerURL), std::string_view{kServerURL}.size());
    return lines;
  }

 private:
  SimulatedMachine simulated_;
  std::int32_t lastProcess_ = 100;
};

}  // namespace

std::unique_ptr<MachineUnderTest> makeSimulatedMachineUnderTest() {
  return std::make_unique<SimulatedMachineUnderTest>();
}

}  // namespace installer::test

// Whole command lines on a simulated machine, with the executable's package sources.
#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "EngineCLI.h"
#include "Models/Deployment.h"
#include "Support/EventTranscript.h"
#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"

namespace installer::test {

class CommandLineTest : public ::testing::Test {
 protected:
  CommandLineTest() { machine.network.on(std::string{Deployment::connectivityProbeURL}).answers(200); }

  SimulatedMachine machine;

  static std::int32_t run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "engine-cli");
    return runEngineCLI(arguments);
  }

  static const AppInfo& app(AppIdentifier identifier) { return *KeloAppProvider::shared().app(identifier); }

  // A new image of the app, and its bytes.
  std::string image(AppIdentifier identifier, const std::string& version) {
    const auto& info = app(identifier);
    return machine.images.make(
        "/Volumes/" + info.displayName, [this, info, version](SimulatedFileSystem&, const Path& mountPoint) {
          machine.addApp(joined(mountPoint, info.appBundleName),
                         {.identifier = info.installerBundleIdentifier, .version = version});
        });
  }
  void addBesideInstaller(AppIdentifier identifier, const std::string& version) {
    machine.files.addFile(machine.resources + "/packages/" + app(identifier).tempFileName,
                          image(identifier, version));
  }
  void configureCDN() {
    machine.setConfiguration(R"({"apps": {}, "trustedDownloadDomains": ["cdn.test"],
                                 "cdn": {"domains": {"us": "https://cdn.test"}}})");
  }
  static std::string offeredAt(AppIdentifier identifier, const std::string& arch) {
    return fmt::format("https://cdn.test/desksuite/apps/default/{}/mac/{}/dmg/latest/", rawValue(identifier),
                       arch);
  }
  // Publishes a package whose download takes a few seconds.
  void offer(AppIdentifier identifier, const std::string& arch, const std::string& version) {
    const auto bytes = image(identifier, version);
    const auto folder = offeredAt(identifier, arch);
    const Json meta{{"version", version}, {"destination", "p.dmg"}, {"checksum", sha256(bytes)}};
    machine.network.on(folder + "meta.json").answers(200, meta.dump());
    machine.network.on(folder + "p.dmg").answers(200, bytes).inPieces(600, Duration{2.0});
  }
  void addInstalled(AppIdentifier identifier, const std::string& version) {
    const auto& info = app(identifier);
    machine.addRegisteredApp(joined(machine.paths.applications, info.appBundleName),
                             {.identifier = info.installerBundleIdentifier, .version = version});
  }

  Lines transcript() const { return test::transcript(machine.streams.events()); }
  std::string standardError() const { return machine.streams.error(); }
};

}  // namespace installer::test

// A controller on a simulated machine with a scripted package source, and the verbs of its tests.
#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Engine/EngineController.h"
#include "Models/Deployment.h"
#include "Support/EventTranscript.h"
#include "Support/ScriptedPackageProvider.h"
#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"

namespace installer::test {

class EngineControllerTest : public ::testing::Test {
 protected:
  using Mode = ScriptedPackageProvider::Mode;

  // "{app} {ending}" for each app of the catalog, in its order.
  static Lines eachApp(std::string_view ending) {
    Lines lines;
    for (const auto app : AppIdentifiers::allCases) {
      lines.push_back(fmt::format("{} {}", rawValue(app), ending));
    }
    return lines;
  }

  explicit EngineControllerTest(Mode mode = Mode::online)
      : provider{std::make_shared<ScriptedPackageProvider>(machine.dispatch, mode)},
        controller{EngineController::make(provider)} {
    machine.network.on(std::string{Deployment::connectivityProbeURL}).answers(200);
  }

  SimulatedMachine machine;
  std::shared_ptr<ScriptedPackageProvider> provider;
  std::shared_ptr<EngineController> controller;

  static const AppInfo& app(AppIdentifier identifier) { return *KeloAppProvider::shared().app(identifier); }

  // A downloaded image with this version of the app.
  AcquiredPackage image(AppIdentifier identifier, const std::string& version) {
    const auto& info = app(identifier);
    machine.images.add(info.tempFilePath(), "/Volumes/" + info.displayName,
                       [this, info, version](SimulatedFileSystem&, const Path& mountPoint) {
                         machine.addApp(joined(mountPoint, info.appBundleName),
                                        {.identifier = info.installerBundleIdentifier, .version = version});
                       });
    return {.fileURL = info.tempFilePath(), .checksum = {}, .skipGatekeeper = false, .version = version};
  }
  void addInstalled(AppIdentifier identifier, const std::string& version) {
    const auto& info = app(identifier);
    machine.addRegisteredApp(joined(machine.paths.applications, info.appBundleName),
                             {.identifier = info.installerBundleIdentifier, .version = version});
  }
  void addAppStoreCopy(AppIdentifier identifier, const std::string& version) {
    const auto& info = app(identifier);
    machine.addRegisteredApp(
        joined(machine.paths.applications, info.appBundleName),
        {.identifier = info.installerBundleIdentifier, .version = version, .appStoreReceipt = true});
  }

  std::int32_t install(const std::vector<AppIdentifier>& apps, bool strict = false) {
    return std::to_underlying(controller->runInstall(apps, Action::install, strict));
  }

  // The first event of its type.
  Json event(std::string_view type) const { return machine.streams.events(type).at(0); }
  Lines transcript() const { return test::transcript(machine.streams.events()); }
  // The transcript without the events during a run.
  Lines outcome() const {
    auto lines = transcript();
    std::erase_if(lines, [](const std::string& line) {
      return line.starts_with("stage") || line.starts_with("progress") || line.starts_with("log info");
    });
    return lines;
  }
};

}  // namespace installer::test

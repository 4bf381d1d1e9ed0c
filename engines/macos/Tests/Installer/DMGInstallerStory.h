// A disk image of Brenna and the machine that it is installed on, for the tests of the disk-image installer.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Installer/DMGInstaller.h"
#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"

namespace installer::test {

class DMGInstallerStory : public ::testing::Test {
 protected:
  static constexpr const char* kBrennaIdentifier = "com.kelo.brenna.mac";
  static constexpr const char* kFederalIdentifier = "com.kelo.brenna.mac.fed";

  SimulatedMachine mac;
  const Path image = "/private/tmp/tester/brenna_installer.dmg";
  const Path mount = "/Volumes/Kelo Brenna";
  const Path source = "/Volumes/Kelo Brenna/Brenna.app";
  const Path destination = "/Applications/Brenna.app";
  InstallResult result = InstallResult::failure("not run");

  static AppBundle brenna(std::optional<std::string> version, const std::string& bytes = "new binary") {
    return {.identifier = kBrennaIdentifier, .version = std::move(version), .executableBytes = bytes};
  }
  static AppBundle fromAppStore(AppBundle bundle) {
    bundle.appStoreReceipt = true;
    return bundle;
  }

  struct Entry {
    std::string name;
    AppBundle bundle;
  };
  void theImageHolds(std::vector<Entry> entries) {
    mac.images.add(image, mount, [this, entries](SimulatedFileSystem&, const Path& at) {
      for (const auto& entry : entries) mac.addApp(joined(at, entry.name), entry.bundle);
    });
  }
  void theImageHoldsBrenna(const std::string& version = "2.0") {
    theImageHolds({{"Brenna.app", brenna(version)}});
  }

  const AppInfo& app() { return *KeloAppProvider::shared().app(AppIdentifier::brenna); }

  // Installs like the orchestrator: on a worker, while the main queue is served.
  const InstallResult& install() {
    mac.dispatch.runOnWorker([this] { result = DMGInstaller::installFromDMG(image, app()); });
    return result;
  }

  // The log lines of the installer.
  Lines story() {
    auto lines = mac.logLines();
    std::erase_if(lines, [](const std::string& line) {
      for (const char* other :
           {"InstallerConfig:", "KeloAppProvider:", "ExistingAppDetector:", "Signature requirement output"}) {
        if (line.find(other) != std::string::npos) return true;
      }
      return line.empty();
    });
    return lines;
  }
  Lines appsFolder() {
    Lines names;
    for (const auto& entry : mac.files.tree("/Applications")) {
      if (entry.find('/') == entry.size() - 1) names.push_back(entry);
    }
    return names;
  }

  void expectInstalledAt(const Path& path) {
    EXPECT_TRUE(result.success);
    EXPECT_FALSE(result.alreadyCurrent);
    EXPECT_EQ(result.installedPath, path);
    EXPECT_EQ(result.errorMessage, std::nullopt);
    EXPECT_EQ(result.errorCode, std::nullopt);
    EXPECT_EQ(mac.files.read(path + "/Contents/MacOS/app"), "new binary");
    expectDetachedOnce();
  }
  void expectFailure(const std::string& message, std::optional<ErrorCode> code = std::nullopt) {
    EXPECT_FALSE(result.success);
    EXPECT_FALSE(result.alreadyCurrent);
    EXPECT_EQ(result.errorMessage, message);
    EXPECT_EQ(result.errorCode, code);
    EXPECT_EQ(result.installedPath, std::nullopt);
  }
  void expectDetachedOnce() {
    EXPECT_EQ(mac.images.history(), (Lines{"attach " + mount, "detach " + mount}));
    EXPECT_TRUE(mac.files.exists(image)) << "the package's file isn't the installer's to delete";
  }
  static Error cocoa(std::int64_t code, const std::string& text = "It can’t be done.") {
    return {std::string{ErrorDomain::cocoa}, code, text, nullptr};
  }
  static Error noWritePermission() { return cocoa(CocoaError::fileWriteNoPermission, "You may not."); }
};

}  // namespace installer::test

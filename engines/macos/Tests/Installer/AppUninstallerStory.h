// Brenna and the machine that it is removed from, for the tests of the uninstaller.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Installer/AppUninstaller.h"
#include "Support/SimulatedMachine.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/KeloAppProvider.h"

namespace installer::test {

enum class Password { mayBeAskedFor, isNeverAskedFor };

class AppUninstallerStory : public ::testing::Test {
 protected:
  static constexpr const char* kBrennaIdentifier = "com.kelo.brenna.mac";
  static constexpr const char* kFederalIdentifier = "com.kelo.brenna.mac.fed";

  SimulatedMachine mac;
  const Path path = "/Applications/Brenna.app";
  const Path staged = "/Applications/.Brenna.app.kelo-uninstall";
  std::map<std::string, std::string> before;  // the installed app
  UninstallResult result = UninstallResult::failure({}, "not run");

  static AppBundle brenna() { return {.identifier = kBrennaIdentifier, .version = "1.0"}; }
  const AppInfo& app() { return *KeloAppProvider::shared().app(AppIdentifier::brenna); }

  void brennaIsInstalled() {
    mac.addRegisteredApp(path, brenna());
    mac.files.addFile(path + "/Contents/Resources/en.lproj/text.strings", "text");
    mac.files.addFile(path + "/Contents/Frameworks/.hidden", "hidden");
    before = mac.files.snapshot(path);
  }

  const UninstallResult& uninstall(Password password) {
    result = AppUninstaller::uninstall(app(), password == Password::mayBeAskedFor);
    return result;
  }

  // The log lines of the uninstaller and of the privileged runner.
  Lines story() {
    auto lines = mac.logLines("AppUninstaller: ");
    std::erase(lines, "INFO AppUninstaller: Starting uninstall for Kelo Brenna");
    return lines;
  }
  Lines appsFolder() {
    Lines names;
    for (const auto& entry : mac.files.tree("/Applications")) {
      if (entry.find('/') == entry.size() - 1) names.push_back(entry);
    }
    return names;
  }

  void expectRemoved() {
    EXPECT_TRUE(result.success);
    EXPECT_FALSE(result.alreadyAbsent);
    expectNoComplaint();
    EXPECT_TRUE(appsFolder().empty());
  }
  void expectAlreadyAbsent() {
    EXPECT_TRUE(result.success);
    EXPECT_TRUE(result.alreadyAbsent);
    expectNoComplaint();
  }
  void expectNoComplaint() {
    EXPECT_FALSE(result.skipped);
    EXPECT_EQ(result.skipReason, std::nullopt);
    EXPECT_EQ(result.errorMessage, std::nullopt);
    EXPECT_FALSE(result.permissionDenied);
    EXPECT_FALSE(result.authCancelled);
    EXPECT_EQ(result.app, app());
  }
  enum class Flag { none, permissionDenied, authCancelled };
  void expectFailure(const std::string& message, Flag flag) {
    EXPECT_FALSE(result.success);
    EXPECT_FALSE(result.alreadyAbsent);
    EXPECT_FALSE(result.skipped);
    EXPECT_EQ(result.errorMessage, message);
    EXPECT_EQ(result.permissionDenied, flag == Flag::permissionDenied);
    EXPECT_EQ(result.authCancelled, flag == Flag::authCancelled);
  }
  void expectUntouched() {
    EXPECT_EQ(mac.files.snapshot(path), before);
    EXPECT_EQ(appsFolder(), Lines{"Brenna.app/"});
  }

  static Error cocoa(std::int64_t code, const std::string& text = "It can’t be done.") {
    return {std::string{ErrorDomain::cocoa}, code, text, nullptr};
  }
  static Error posix(std::int64_t code) {
    return {std::string{ErrorDomain::posix}, code, "Operation not permitted", nullptr};
  }

  const std::string appManagement =
      "Cannot remove Kelo Brenna: permission denied. On macOS 13+, grant App Management permission in System "
      "Settings "
      "→ Privacy & Security → App Management.";
  const std::string leftInstalled =
      "Cannot remove Kelo Brenna: admin authorization was cancelled. Kelo Brenna has been left installed.";
  const std::string removalFailed = "Cannot remove Kelo Brenna: the privileged removal failed.";
  const std::string stranded =
      "Kelo Brenna was removed from /Applications, but some of its files could not be deleted and remain at "
      "/Applications/.Brenna.app.kelo-uninstall.";
};

}  // namespace installer::test

// The values of `linux_host.json`, and a host with them.
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Base/POSIX/LinuxHostSettings.h"
#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxHost.h"
#include "Platform/Linux/LinuxServices.h"
#include "Platform/Machine.h"

namespace installer::test {
namespace {

LinuxHostSettings parsed(const std::string& text) {
  auto settings = LinuxHostSettings::parse(text, "/installer/Resources");
  EXPECT_TRUE(settings) << settings.error().localizedDescription;
  return settings.value_or(LinuxHostSettings{});
}

TEST(LinuxSettings, EverythingHasADefault) {
  const auto settings = parsed("{}");
  EXPECT_TRUE(settings.root.ends_with("/.local/share/Kelo-Desk-Installer")) << settings.root;
  EXPECT_EQ(settings.programs, "/installer/Resources/programs");
  EXPECT_EQ(settings.extraCertificateAuthority, std::nullopt);
  EXPECT_TRUE(settings.hostAddresses.empty());
  EXPECT_EQ(settings.administrator.command, (std::vector<std::string>{"/usr/bin/pkexec"}));
  EXPECT_FALSE(settings.administrator.asksRootToo);
  EXPECT_EQ(settings.requestTimeout, Duration{60});
}

TEST(LinuxSettings, ADownloadMayBeSilentForLessThanUsual) {
  EXPECT_EQ(parsed(R"({"requestTimeout":2.5})").requestTimeout, Duration{2.5});
}

TEST(LinuxSettings, PathsAreRelativeToTheFile) {
  const auto settings =
      parsed(R"({"root":"machine/","programs":"/opt/lab","extraCertificateAuthority":"ca.pem"})");
  EXPECT_EQ(settings.root, "/installer/Resources/machine");
  EXPECT_EQ(settings.applications(), "/installer/Resources/machine/Applications");
  EXPECT_EQ(settings.programs, "/opt/lab");
  EXPECT_EQ(settings.extraCertificateAuthority, "/installer/Resources/ca.pem");
}

TEST(LinuxSettings, HostsAreGivenAddresses) {
  EXPECT_EQ(parsed(R"({"hostAddresses":{"cdn.example":"127.0.0.1:8443","a:443":"::1"}})").hostAddresses,
            (std::map<std::string, std::string>{{"cdn.example", "127.0.0.1:8443"}, {"a:443", "::1"}}));
}

TEST(LinuxSettings, ThereAreThreeWaysToAskForConsent) {
  EXPECT_EQ(parsed(R"({"administrator":{"prompt":"pkexec"}})").administrator.command.at(0),
            "/usr/bin/pkexec");
  const auto sudo = parsed(R"({"administrator":{"prompt":"sudo","askpass":"ask"}})").administrator;
  EXPECT_EQ(sudo.command, (std::vector<std::string>{"/usr/bin/sudo", "-A"}));
  EXPECT_EQ(sudo.askpass, "/installer/Resources/ask");
  EXPECT_FALSE(sudo.asksRootToo);
  const auto own = parsed(R"({"administrator":{"command":["prompt","--yes"]}})").administrator;
  EXPECT_EQ(own.command, (std::vector<std::string>{"/installer/Resources/prompt", "--yes"}));
  EXPECT_TRUE(own.asksRootToo);
}

TEST(LinuxSettings, WhatCannotBeTakenAsItStandsIsRefusedAndTheKeyNamed) {
  struct Row {
    const char* text;
    const char* complaint;
  };
  const Row rows[] = {
      {"", "it isn't JSON"},
      {"{", "it isn't JSON"},
      {"[]", "it isn't a JSON object"},
      {R"({"root":7})", "root: it must be a text that isn't empty"},
      {R"({"root":""})", "root: it must be a text that isn't empty"},
      {R"({"root":null})", "root: it must be a text that isn't empty"},
      {R"({"root":"/a\u0000b"})", "root: it isn't a path"},
      {R"({"Root":"/a"})", "Root: the key is unknown"},
      {R"({"hostAdresses":{}})", "hostAdresses: the key is unknown"},
      {R"({"hostAddresses":[]})", "hostAddresses: it must be an object of texts"},
      {R"({"hostAddresses":{"a":1}})", "hostAddresses: it must be an object of texts"},
      {R"({"requestTimeout":"60"})", "requestTimeout: it must be a number of seconds, from 0.001 to 86400"},
      {R"({"requestTimeout":0})", "requestTimeout: it must be a number of seconds, from 0.001 to 86400"},
      {R"({"requestTimeout":1e300})", "requestTimeout: it must be a number of seconds, from 0.001 to 86400"},
      {R"({"administrator":"sudo"})", "administrator: it isn't an object"},
      {R"({"administrator":{}})", "administrator.prompt: it must be \"pkexec\" or \"sudo\""},
      {R"({"administrator":{"prompt":"su"}})", "administrator.prompt: it must be \"pkexec\" or \"sudo\""},
      {R"({"administrator":{"prompt":"sudo"}})", "administrator.askpass: sudo needs one"},
      {R"({"administrator":{"prompt":"pkexec","askpass":"/a"}})",
       "administrator.askpass: pkexec doesn't use one"},
      {R"({"administrator":{"command":[]}})",
       "administrator.command: it must be a list of texts that isn't empty"},
      {R"({"administrator":{"command":["a",1]}})",
       "administrator.command: it must be a list of texts that isn't empty"},
      {R"({"administrator":{"command":["a"],"prompt":"sudo"}})",
       "administrator.command: it excludes the other keys"},
  };
  for (const auto& row : rows) {
    const auto settings = LinuxHostSettings::parse(row.text, "/r");
    ASSERT_FALSE(settings) << row.text;
    EXPECT_TRUE(settings.error().is(ErrorDomain::cocoa, CocoaError::fileReadCorrupt)) << row.text;
    EXPECT_EQ(settings.error().localizedDescription, std::string{"linux_host.json: "} + row.complaint);
  }
}

TEST(LinuxSettings, AMissingFileIsNoErrorAndAnUnreadableOneIs) {
  const LinuxTestFolder folder;
  const auto missing = LinuxHostSettings::read(folder.path());
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->programs, folder / "programs");
  folder.makeFolder("linux_host.json");
  EXPECT_FALSE(LinuxHostSettings::read(folder.path()));
}

TEST(LinuxResources, AreFoundFromTheExecutable) {
  struct Row {
    Path executable;
    Path resources;
  };
  const Row rows[] = {
      {"/x/Kelo-Desk-Installer.app/Contents/MacOS/engine-cli",
       "/x/Kelo-Desk-Installer.app/Contents/Resources"},
      {"/x/build/engine-cli", "/x/build"},
      {"/x/Contents/MacOS/engine-cli", "/x/Contents/MacOS"},
      {"/x/A.app/Contents/Helpers/engine-cli", "/x/A.app/Contents/Helpers"},
      {"/engine-cli", "/"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(resourcesOfExecutable(row.executable), row.resources) << row.executable;
}

TEST(LinuxSystem, SpeaksOfTheMachineAsTheEngineExpects) {
  LinuxSystemInfo info;
  EXPECT_NE(info.machineField(), "aarch64");
  EXPECT_NE(info.operatingSystemVersionString().find("Linux "), std::string::npos)
      << info.operatingSystemVersionString();
}

TEST(LinuxHostMachine, MakesItsFoldersAndSettlesTheSignals) {
  const LinuxTestFolder folder;
  LinuxHostSettings settings = LinuxHostSettings::defaults(folder.path());
  settings.root = folder / "machine";
  ::signal(SIGPIPE, SIG_DFL);
  ::signal(SIGCHLD, SIG_IGN);
  LinuxHost host{settings, folder.path()};
  EXPECT_EQ(sortedNames(settings.root), (std::vector<std::string>{"Applications", "Volumes", "tmp"}));
  struct sigaction brokenPipe{};
  ::sigaction(SIGPIPE, nullptr, &brokenPipe);
  EXPECT_NE(brokenPipe.sa_handler, SIG_DFL);
  EXPECT_NE(brokenPipe.sa_handler, SIG_IGN) << "programs that the engine starts would inherit that";
  const auto ran = host.machine().processes.run("/bin/sh", {"-c", "exit 3"}, CapturedOutput::none);
  ASSERT_TRUE(ran);
  EXPECT_EQ(ran->status, 3) << "a child's status is ours whatever our parent ignored";
  EXPECT_EQ(host.machine().paths.applications, folder / "machine/Applications");
  EXPECT_EQ(host.machine().paths.home, folder / "machine");
  EXPECT_EQ(host.machine().paths.hdiutil, folder / "programs/hdiutil");
  EXPECT_EQ(host.machine().bundles.mainResources(), folder.path());
}

TEST(LinuxHostMachine, KnowsItsRootWithoutLinksAndDots) {
  const LinuxTestFolder folder;
  folder.makeFolder("real/Resources");
  std::filesystem::create_symlink("real", folder / "link");
  auto settings = LinuxHostSettings::parse(R"({"root":"../machine"})", folder / "link/Resources");
  ASSERT_TRUE(settings);
  LinuxHost host{*settings, std::nullopt};
  const Path root = std::filesystem::canonical(folder.path()).string() + "/real/machine";
  EXPECT_EQ(host.machine().paths.home, root);
  EXPECT_EQ(host.machine().paths.applications, root + "/Applications");
}

}  // namespace
}  // namespace installer::test

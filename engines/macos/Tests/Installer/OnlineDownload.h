// A simulated machine with a CDN that has brenna, and an online provider.
#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Installer/OnlinePackageProvider.h"
#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"

namespace installer::test {

class OnlineDownload : public ::testing::Test {
 protected:
  explicit OnlineDownload(std::uint64_t seed = 0) : machine{seed} {
    machine.setConfiguration(R"({"apps": {}, "trustedDownloadDomains": ["kelo.example"],
      "downloadPageUrl": "https://www.kelo.example/download/",
      "cdn": {"domains": {"us": "https://cdn.kelo.example"}}})");
    package().answers(200, image);
    publish({});
  }

  static inline const std::string folder =
      "https://cdn.kelo.example/desksuite/apps/default/brenna/mac/arm64/dmg/latest/";
  static inline const std::string packageURL = folder + "brenna.dmg";
  static inline const std::string alternateURL = "https://mirror.kelo.example/brenna.dmg";
  const std::string image = std::string(1000, 'i');

  static const AppInfo& brenna() { return *KeloAppProvider::shared().app(AppIdentifier::brenna); }
  Path localFile() const { return joined(machine.paths.temporaryDirectory, "brenna_installer.dmg"); }

  ServerResource& meta() { return machine.network.on(folder + "meta.json"); }
  ServerResource& package() { return machine.network.on(packageURL); }
  ServerResource& alternate() { return machine.network.on(alternateURL); }

  // Publishes the metadata of `image` with changed keys; an empty text removes a key.
  void publish(const std::map<std::string, std::string>& changes) {
    std::map<std::string, std::string> keys{
        {"version", "2.1"}, {"destination", "brenna.dmg"}, {"checksum", sha256(image)}};
    for (const auto& [key, value] : changes) keys[key] = value;
    std::string text;
    for (const auto& [key, value] : keys) {
      if (!value.empty()) text += (text.empty() ? "" : ", ") + ('"' + key + "\": \"" + value + '"');
    }
    meta().answers(200, "{" + text + "}");
  }
  void publishWithAlternate() {
    publish({{"alternateDownloadUrl", alternateURL}});
    alternate().answers(200, image);
  }

  void acquire() {
    provider.acquirePackage(
        brenna(), "Kelo Brenna (1/1)",
        [this](const std::string& statusText, const std::string& detailText, const Progress& progress) {
          EXPECT_GE(progress.percent, 0.0);
          EXPECT_LE(progress.percent, 100.0);
          EXPECT_TRUE(outcomes.empty()) << "status '" << statusText << "' after the end";
          statuses.push_back(statusText);
          feeds.push_back({detailText, progress, machine.dispatch.elapsed()});
        },
        [this](PackageProvider::Outcome outcome) { completed(std::move(outcome)); });
  }
  void acquireToTheEnd() {
    acquire();
    machine.dispatch.advance(std::chrono::minutes{10});
  }
  void advance(Duration duration) { machine.dispatch.advance(duration); }

  virtual void completed(PackageProvider::Outcome outcome) { outcomes.push_back(describe(outcome)); }

  static std::string describe(const PackageProvider::Outcome& outcome) {
    if (outcome) {
      return "acquired " + outcome->fileURL + " v" + outcome->version.value_or("-") + " " +
             outcome->checksum.value_or("-").substr(0, 8) + (outcome->skipGatekeeper ? " unchecked" : "");
    }
    const auto stableCode = code(outcome.error());
    return fmt::format("{} {}", stableCode ? rawValue(*stableCode) : "?", errorDescription(outcome.error()));
  }
  std::string acquired() const { return "acquired " + localFile() + " v2.1 " + sha256(image).substr(0, 8); }

  // The requests for the package, at any address.
  Lines transfers() const {
    Lines lines;
    for (const auto& line : machine.network.requestLines()) {
      if (line.find(".dmg") != std::string::npos) lines.push_back(line);
    }
    return lines;
  }
  std::vector<Duration> transferTimes() const {
    std::vector<Duration> times;
    for (const auto& request : machine.network.requests()) {
      if (request.url.ends_with(".dmg")) times.push_back(request.time);
    }
    return times;
  }

  struct Feed {
    std::string detailText;
    Progress progress;
    Duration time;
  };

  SimulatedMachine machine;
  OnlinePackageProvider provider;
  Lines statuses;
  std::vector<Feed> feeds;
  Lines outcomes;
};

}  // namespace installer::test

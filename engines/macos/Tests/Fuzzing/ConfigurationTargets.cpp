// The installer's configuration: for any file, each key has its value or its default.
#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string>

#include "JSONLaws.h"
#include "Support/SimulatedMachine.h"
#include "Targets.h"
#include "Utils/InstallerConfig.h"

namespace installer::test {

namespace {

Json encoded(const CDNConfig& cdn) {
  return {{"dataCenter", rawValue(cdn.dataCenter)},
          {"domains", cdn.domains},
          {"distributionRoot", cdn.distributionRoot},
          {"appsRoot", cdn.appsRoot},
          {"release", cdn.release},
          {"releaseNotesEnabled", cdn.releaseNotesEnabled}};
}

// The configuration as JSON that reads as the same configuration.
Json encoded(const ParsedConfig& config) {
  auto apps = Json::object();
  for (const auto& [id, app] : config.apps) {
    apps[id] = {{"primaryBundleIdentifier", app.primaryBundleIdentifier},
                {"otherBundleIdentifiers", app.otherBundleIdentifiers},
                {"included", app.included}};
  }
  auto expiresOn = Json::object();
  if (config.expiresOnOnline) expiresOn["online"] = *config.expiresOnOnline;
  if (config.expiresOnOffline) expiresOn["offline"] = *config.expiresOnOffline;
  return {{"apps", apps},
          {"installScope", config.installScope},
          {"showTermsStep", config.showTermsStep},
          {"flavour", config.flavour},
          {"downloadPageUrl", config.downloadPageURL},
          {"helpUrl", config.helpURL},
          {"feedbackUrl", config.feedbackURL},
          {"appWebUrls", config.appWebURLs},
          {"expiresOn", expiresOn},
          {"trustedDownloadDomains", config.trustedDownloadDomains},
          {"expectedSigningTeamId", config.expectedSigningTeamId},
          {"cdn", encoded(config.cdn)}};
}

Json loaded(SimulatedMachine& machine, std::string_view text) {
  machine.setConfiguration(text);
  return encoded(ParsedConfig::load());
}

bool isEmptyText(const Json& text) {
  return text.is_string() && text.get<std::string>().empty();
}

void requireShape(const Json& config) {
  for (const char* key : {"downloadPageUrl", "helpUrl", "feedbackUrl"}) {
    require(!isEmptyText(config[key]), "no page's address is empty");
  }
  for (const char* key : {"appWebUrls", "expiresOn"}) {
    require(std::ranges::none_of(config[key], isEmptyText), "an empty entry is left out");
  }
}

// Each well-formed value of `json` must be in `config`.
void requireThatGoodValuesCount(const Json& json, const Json& config) {
  for (const char* key : {"installScope", "flavour", "expectedSigningTeamId"}) {
    if (json.contains(key) && json[key].is_string())
      require(config[key] == json[key], "a text counts as it stands");
  }
  const auto apps = std::ranges::count_if(json["apps"], [](const Json& app) {
    return app.is_object() && app.contains("primaryBundleIdentifier") &&
           app["primaryBundleIdentifier"].is_string();
  });
  require(std::ssize(config["apps"]) == apps, "every app with an identifier counts, and no other");
}

void requireThatABadValueCostsItself(SimulatedMachine& machine, std::string_view text, const Json& json) {
  const auto config = loaded(machine, text);
  const auto fallback = encoded(ParsedConfig{});
  for (const auto& [key, value] : fallback.items()) {
    auto expected = config;
    expected[key] = value;
    if (key == "apps") expected = fallback;
    require(loaded(machine, withMember(text, key, badValue(text))) == expected,
            "a bad value costs its key alone");
  }
  if (!json.contains("cdn") || !json["cdn"].is_object()) return;
  const auto cdn = json["cdn"].dump();
  for (const auto& [key, value] : fallback["cdn"].items()) {
    auto expected = config;
    expected["cdn"][key] = value;
    require(loaded(machine, withMember(text, "cdn", withMember(cdn, key, badValue(text)))) == expected,
            "a bad value in the block costs its key alone");
  }
}

}  // namespace

void fuzzConfiguration(std::string_view text) {
  SimulatedMachine machine;
  const auto json = readJSON(text);
  const auto config = loaded(machine, text);
  requireShape(config);
  require(loaded(machine, config.dump()) == config, "what is written again reads the same");
  if (!json.contains("apps") || !json["apps"].is_object()) {
    return require(config == encoded(ParsedConfig{}), "a file without apps counts for nothing");
  }
  requireThatGoodValuesCount(json, config);
  requireThatABadValueCostsItself(machine, text, json);
}

}  // namespace installer::test

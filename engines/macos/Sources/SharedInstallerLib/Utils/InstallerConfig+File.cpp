// Reads `installer_config.json`.
#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"
#include "Base/Text.h"
#include "Models/Deployment.h"
#include "Platform/FileSystem.h"
#include "Platform/Machine.h"
#include "Utils/InstallerConfig.h"
#include "Utils/Log.h"

namespace installer {

namespace {

using JSONReader::nonEmptyString;

std::optional<Path> findFile() {
  const auto resources = machine().bundles.mainResources();
  if (!resources) return std::nullopt;
  auto path = joined(*resources, "installer_config.json");
  if (!machine().files.fileExists(path)) return std::nullopt;
  return path;
}

Result<Json> readFile(const Path& path) {
  const auto bytes = readBoundedFile(machine().files, path, JSONReader::kMaximumBytes);
  if (!bytes) return handOn(bytes);
  return JSONReader::parse(*bytes);
}

std::optional<AppBundleConfig> readApp(const Json& entry) {
  const auto primary = JSONReader::string(entry, "primaryBundleIdentifier");
  if (!primary) return std::nullopt;
  return AppBundleConfig{
      *primary, JSONReader::strings(entry, "otherBundleIdentifiers").value_or(std::vector<std::string>{}),
      JSONReader::boolean(entry, "included").value_or(true)};
}

std::map<std::string, AppBundleConfig> readApps(const Json& apps) {
  std::map<std::string, AppBundleConfig> valid;
  for (const auto& [key, entry] : apps.items()) {
    if (auto app = readApp(entry)) {
      valid.emplace(key, *std::move(app));
      continue;
    }
    logWarn("InstallerConfig: Skipping invalid entry for '{}'", key);
  }
  return valid;
}

std::map<std::string, std::string> readAppWebURLs(const Json& file) {
  auto addresses = JSONReader::stringMap(file, "appWebUrls").value_or(std::map<std::string, std::string>{});
  std::erase_if(addresses, [](const auto& entry) { return entry.second.empty(); });
  return addresses;
}

void readExpiry(const Json& file, ParsedConfig& parsed) {
  const auto dates = JSONReader::stringMap(file, "expiresOn");
  if (!dates) return;
  const auto date = [&dates](const std::string& key) -> std::optional<std::string> {
    const auto entry = dates->find(key);
    if (entry == dates->end() || entry->second.empty()) return std::nullopt;
    return entry->second;
  };
  parsed.expiresOnOnline = date("online");
  parsed.expiresOnOffline = date("offline");
}

CDNDataCenter readDataCenter(const Json& block) {
  const auto fallback = CDNConfig{}.dataCenter;
  const auto written = JSONReader::string(block, "dataCenter");
  if (!written) return fallback;
  const auto name = lowercased(*written);
  if (const auto known = CDNDataCenters::fromRawValue(name)) return *known;
  log("InstallerConfig: unknown cdn.dataCenter '{}' — falling back to '{}'. Fix installer_config.json.", name,
      rawValue(fallback));
  return fallback;
}

CDNConfig readCDN(const Json& file) {
  CDNConfig cdn;
  const auto* const block = JSONReader::member(file, "cdn");
  if (block == nullptr || !block->is_object()) {
    logWarn("InstallerConfig: no 'cdn' block in installer_config.json — online downloads will fail");
    return cdn;
  }
  cdn.dataCenter = readDataCenter(*block);
  if (auto domains = JSONReader::stringMap(*block, "domains")) cdn.domains = *std::move(domains);
  if (auto root = JSONReader::string(*block, "distributionRoot")) cdn.distributionRoot = *root;
  if (auto root = JSONReader::string(*block, "appsRoot")) cdn.appsRoot = *root;
  if (auto release = JSONReader::string(*block, "release")) cdn.release = *release;
  cdn.releaseNotesEnabled =
      JSONReader::boolean(*block, "releaseNotesEnabled").value_or(cdn.releaseNotesEnabled);
  return cdn;
}

ParsedConfig readAll(const Json& file) {
  ParsedConfig parsed;
  parsed.apps = readApps(file.at("apps"));
  if (auto scope = JSONReader::string(file, "installScope")) parsed.installScope = *scope;
  parsed.showTermsStep = JSONReader::boolean(file, "showTermsStep").value_or(parsed.showTermsStep);
  if (auto flavour = JSONReader::string(file, "flavour")) parsed.flavour = *flavour;
  if (auto page = nonEmptyString(file, "downloadPageUrl")) parsed.downloadPageURL = *page;
  if (auto page = nonEmptyString(file, "helpUrl")) parsed.helpURL = *page;
  if (auto page = nonEmptyString(file, "feedbackUrl")) parsed.feedbackURL = *page;
  parsed.appWebURLs = readAppWebURLs(file);
  readExpiry(file, parsed);
  if (auto domains = JSONReader::strings(file, "trustedDownloadDomains")) {
    parsed.trustedDownloadDomains = *std::move(domains);
  }
  if (auto team = JSONReader::string(file, "expectedSigningTeamId")) parsed.expectedSigningTeamId = *team;
  parsed.cdn = readCDN(file);
  return parsed;
}

void logLoaded(const ParsedConfig& parsed) {
  const auto orElse = [](const std::string& text, const char* whenEmpty) {
    return text.empty() ? std::string{whenEmpty} : text;
  };
  log("InstallerConfig: Loaded config for {} apps", parsed.apps.size());
  for (const auto& [id, app] : parsed.apps) {
    log("  {}: primary={}, others={}", id, app.primaryBundleIdentifier, listText(app.otherBundleIdentifiers));
  }
  log("InstallerConfig: installScope={}, showTermsStep={}, flavour={}", parsed.installScope,
      parsed.showTermsStep, parsed.flavour);
  log("InstallerConfig: downloadPageUrl={}, helpUrl={}, feedbackUrl={}, expiresOn online={} offline={}",
      parsed.downloadPageURL, parsed.helpURL, parsed.feedbackURL, parsed.expiresOnOnline.value_or("(never)"),
      parsed.expiresOnOffline.value_or("(never)"));
  log("InstallerConfig: expectedSigningTeamId={}",
      orElse(parsed.expectedSigningTeamId,
             "(EMPTY — installed-app signature requirement checks are DISABLED)"));
  log("InstallerConfig: cdn dataCenter={}, base={}, roots={}/{}, release={}, releaseNotesEnabled={}",
      rawValue(parsed.cdn.dataCenter), orElse(parsed.cdn.baseURL(), "(unset!)"), parsed.cdn.distributionRoot,
      parsed.cdn.appsRoot, parsed.cdn.release, parsed.cdn.releaseNotesEnabled);
}

}  // namespace

ParsedConfig::ParsedConfig()
    : downloadPageURL{Deployment::downloadPageURL},
      helpURL{Deployment::downloadPageURL},
      feedbackURL{Deployment::feedbackURL},
      trustedDownloadDomains{Deployment::trustedDownloadDomains.begin(),
                             Deployment::trustedDownloadDomains.end()},
      expectedSigningTeamId{Deployment::signingTeamId} {
}

ParsedConfig ParsedConfig::load() {
  const auto path = findFile();
  if (!path) {
    logWarn("InstallerConfig: installer_config.json not found in bundle — using defaults");
    return {};
  }
  const auto file = readFile(*path);
  if (!file) {
    logError("InstallerConfig: Failed to read installer_config.json: " + file.error().localizedDescription);
    return {};
  }
  const auto* const apps = JSONReader::member(*file, "apps");
  if (apps == nullptr || !apps->is_object()) {
    logError("InstallerConfig: Invalid JSON structure in installer_config.json");
    return {};
  }
  const auto parsed = readAll(*file);
  logLoaded(parsed);
  return parsed;
}

}  // namespace installer

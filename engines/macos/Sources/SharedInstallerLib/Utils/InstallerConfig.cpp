#include "Utils/InstallerConfig.h"

#include "Base/ProcessWide.h"

namespace installer {

std::string_view rawValue(CDNDataCenter dataCenter) {
  switch (dataCenter) {
    case CDNDataCenter::us: return "us";
    case CDNDataCenter::cn: return "cn";
    case CDNDataCenter::local: return "local";
  }
  return {};
}

std::optional<CDNDataCenter> CDNDataCenters::fromRawValue(std::string_view text) {
  for (const auto each : {CDNDataCenter::us, CDNDataCenter::cn, CDNDataCenter::local}) {
    if (rawValue(each) == text) return each;
  }
  return std::nullopt;
}

namespace {

const ParsedConfig& parsed() {
  static ProcessWide<ParsedConfig> instance{
      [] { return std::make_unique<ParsedConfig>(ParsedConfig::load()); }};
  return instance.get();
}

}  // namespace

std::string CDNConfig::baseURL() const {
  const auto entry = domains.find(std::string{rawValue(dataCenter)});
  if (entry == domains.end()) return {};
  auto base = entry->second;
  if (base.ends_with('/')) base.pop_back();
  return base;
}

namespace InstallerConfig {

const AppBundleConfig* config(AppIdentifier identifier) {
  const auto& apps = parsed().apps;
  const auto entry = apps.find(std::string{rawValue(identifier)});
  return entry == apps.end() ? nullptr : &entry->second;
}

bool isIncluded(AppIdentifier identifier) {
  const auto* const entry = config(identifier);
  return entry == nullptr || entry->included;
}

std::optional<std::string> webURL(const std::string& identifier) {
  const auto& addresses = parsed().appWebURLs;
  const auto entry = addresses.find(identifier);
  if (entry == addresses.end()) return std::nullopt;
  return entry->second;
}

std::optional<std::string> expiresOn(bool offline) {
  return offline ? parsed().expiresOnOffline : parsed().expiresOnOnline;
}

const std::string& installScope() {
  return parsed().installScope;
}

bool showTermsStep() {
  return parsed().showTermsStep;
}

const std::string& flavour() {
  return parsed().flavour;
}

const std::string& downloadPageURL() {
  return parsed().downloadPageURL;
}

const std::string& helpURL() {
  return parsed().helpURL;
}

const std::string& feedbackURL() {
  return parsed().feedbackURL;
}

const std::vector<std::string>& trustedDownloadDomains() {
  return parsed().trustedDownloadDomains;
}

const std::string& expectedSigningTeamId() {
  return parsed().expectedSigningTeamId;
}

CDNDataCenter cdnDataCenter() {
  return parsed().cdn.dataCenter;
}

const std::string& cdnDistributionRoot() {
  return parsed().cdn.distributionRoot;
}

const std::string& cdnAppsRoot() {
  return parsed().cdn.appsRoot;
}

const std::string& cdnRelease() {
  return parsed().cdn.release;
}

bool releaseNotesEnabled() {
  return parsed().cdn.releaseNotesEnabled;
}

std::string cdnBaseURL() {
  return parsed().cdn.baseURL();
}

}  // namespace InstallerConfig

}  // namespace installer

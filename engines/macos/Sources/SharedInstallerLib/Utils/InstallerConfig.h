// The configuration of this build, `installer_config.json` in the resources. Read once per process, at first
// use; never written. No function fails: a missing or bad value has a default. Any thread.
// References stay valid until the process exits.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Models/AppInfo.h"

namespace installer {

// Selects one of the configured base addresses for packages.
enum class CDNDataCenter { us, cn, local };

// The key in the configuration: "us", "cn" or "local".
std::string_view rawValue(CDNDataCenter dataCenter);

namespace CDNDataCenters {

// Exact and case-sensitive.
std::optional<CDNDataCenter> fromRawValue(std::string_view text);

}  // namespace CDNDataCenters

// One entry of `apps`.
struct AppBundleConfig {
  std::string primaryBundleIdentifier;
  std::vector<std::string> otherBundleIdentifiers;  // replaces the catalog's whole list, also when empty
  bool included = true;
};

// The block `cdn`. A missing block gives a default-constructed one.
struct CDNConfig {
  CDNDataCenter dataCenter = CDNDataCenter::us;
  std::map<std::string, std::string> domains;  // base addresses by data centre
  std::string distributionRoot = "desksuite";
  std::string appsRoot = "apps";
  std::string release = "latest";
  bool releaseNotesEnabled = false;

  // The entry of `domains` for `dataCenter` without one trailing slash; empty when there is none. Not
  // validated.
  std::string baseURL() const;
};

// The whole file. All other code uses the functions below. A file that can't be used gives a
// default-constructed record.
struct ParsedConfig {
  std::map<std::string, AppBundleConfig> apps;  // by the file's keys, which aren't checked
  std::string installScope = "user";
  bool showTermsStep = true;
  std::string flavour = "default";
  std::string downloadPageURL;
  std::string helpURL;
  std::string feedbackURL;
  std::map<std::string, std::string> appWebURLs;
  std::optional<std::string> expiresOnOnline;
  std::optional<std::string> expiresOnOffline;
  std::vector<std::string> trustedDownloadDomains;
  std::string expectedSigningTeamId;
  CDNConfig cdn;

  ParsedConfig();

  // Reads the file in the main bundle's resources. The result is always usable; faults of the file are
  // logged.
  static ParsedConfig load();
};

namespace InstallerConfig {

// Null when `apps` has no valid entry under the identifier.
const AppBundleConfig* config(AppIdentifier identifier);
bool isIncluded(AppIdentifier identifier);

// The configured product page of an app's identifier. Not empty when present.
std::optional<std::string> webURL(const std::string& identifier);

// The last valid day as written ("2030-01-31"). Not validated; not empty when present.
std::optional<std::string> expiresOn(bool offline);

const std::string& installScope();
bool showTermsStep();
const std::string& flavour();
const std::string& downloadPageURL();
const std::string& helpURL();
const std::string& feedbackURL();
const std::vector<std::string>& trustedDownloadDomains();
const std::string& expectedSigningTeamId();  // empty disables the signature requirement

CDNDataCenter cdnDataCenter();
const std::string& cdnDistributionRoot();
const std::string& cdnAppsRoot();
const std::string& cdnRelease();
bool releaseNotesEnabled();
std::string cdnBaseURL();

}  // namespace InstallerConfig

}  // namespace installer

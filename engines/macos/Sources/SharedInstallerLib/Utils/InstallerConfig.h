// What `installer_config.json` among the resources says of this build. Read once per process, at the first
// question; never written. No question fails: what is missing or bad has a default. Any thread.
// References stay good as long as the process.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Models/AppInfo.h"

namespace installer {

// Which of the configured base addresses packages come from.
enum class CDNDataCenter { us, cn, local };

// "us", "cn" or "local": the key in the configuration.
std::string_view rawValue(CDNDataCenter dataCenter);

namespace CDNDataCenters {

// Exact and case-sensitive.
std::optional<CDNDataCenter> fromRawValue(std::string_view text);

}  // namespace CDNDataCenters

// One entry of `apps`.
struct AppBundleConfig {
  std::string primaryBundleIdentifier;
  std::vector<std::string> otherBundleIdentifiers;  // replaces the catalog's list whole, also when empty
  bool included = true;
};

// The block `cdn`. A default-constructed one is what stands when there is none.
struct CDNConfig {
  CDNDataCenter dataCenter = CDNDataCenter::us;
  std::map<std::string, std::string> domains;  // base addresses by data centre
  std::string distributionRoot = "desksuite";
  std::string appsRoot = "apps";
  std::string release = "latest";
  bool releaseNotesEnabled = false;

  // The entry of `domains` for `dataCenter` without one trailing slash; empty when there is none. Not yet
  // judged: it may be anything.
  std::string baseURL() const;
};

namespace InstallerConfig {

// Null when `apps` has no valid entry under the identifier.
const AppBundleConfig* config(AppIdentifier identifier);
bool isIncluded(AppIdentifier identifier);

// The configured product page of an app's identifier; never empty when present.
std::optional<std::string> webURL(const std::string& identifier);

// The last good day as written ("2030-01-31"), not yet tested; never empty when present.
std::optional<std::string> expiresOn(bool offline);

const std::string& installScope();
bool showTermsStep();
const std::string& flavour();
const std::string& downloadPageURL();
const std::string& helpURL();
const std::string& feedbackURL();
const std::vector<std::string>& trustedDownloadDomains();
const std::string& expectedSigningTeamId();  // empty switches the signature requirement off

CDNDataCenter cdnDataCenter();
const std::string& cdnDistributionRoot();
const std::string& cdnAppsRoot();
const std::string& cdnRelease();
bool releaseNotesEnabled();
std::string cdnBaseURL();

}  // namespace InstallerConfig

}  // namespace installer

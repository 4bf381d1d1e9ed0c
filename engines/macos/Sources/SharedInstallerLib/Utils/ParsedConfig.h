// The whole content of `installer_config.json` as a record, and its reader. All other code uses
// `InstallerConfig`.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Utils/InstallerConfig.h"

namespace installer {

// A file that can't be used gives a default-constructed record.
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

}  // namespace installer

// The whole content of `installer_config.json` as a record, and the reading of it.
// Everybody but the loader asks `InstallerConfig`.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Utils/InstallerConfig.h"

namespace installer {

// A default-constructed one is what stands when the file can't be used at all.
struct ParsedConfig {
  std::map<std::string, AppBundleConfig> apps;  // by whatever key the file has
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

  // Reads the file among the main bundle's resources. Whatever it looks like, the result can be used; what
  // was wrong with it stands in the log.
  static ParsedConfig load();
};

}  // namespace installer

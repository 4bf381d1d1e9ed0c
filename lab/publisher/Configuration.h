// What a build's installer_config.json says of packages: where they are, what they hold, who else may serve
// them. The engine's defaults where the file, or a key, is missing.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Base/URL.h"
#include "publisher/Layout.h"
#include "support/OrReason.h"

namespace lab {

struct Configuration {
  LayoutNames names;
  std::vector<std::string> trustedDomains;
  std::map<std::string, std::string> bundleIdentifiers;  // by app: of the bundle that its image has to hold

  Configuration();

  // Fails for a value of the wrong type, where the engine would take its default and go on.
  static OrReason<Configuration> read(const std::filesystem::path& file);
};

// Whether the engine would fetch a package from there.
OrReason<> checkAlternate(const installer::URL& url, const Configuration& configuration);

}  // namespace lab

// The parts of a build's installer_config.json about packages: their place, their content, and the other
// hosts that may serve them. The engine's defaults for a missing file or key.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Base/URL.h"
#include "publisher/Layout.h"
#include "support/OrReason.h"

namespace lab {

struct Configuration {
  LayoutNames names;
  std::vector<std::string> trustedDomains;
  std::map<std::string, std::string> bundleIdentifiers;  // by app: of the required bundle in its image
  std::optional<std::set<std::string>> offeredApps;      // absent without a file

  Configuration();

  // Fails for a value of the wrong type; the engine uses its default in that case.
  static OrReason<Configuration> read(const std::filesystem::path& file);
};

// Fails unless the engine would fetch a package from `url`.
OrReason<> checkAlternate(const installer::URL& url, const Configuration& configuration);

}  // namespace lab

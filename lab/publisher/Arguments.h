// The arguments of lab-publish. A plain record.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "publisher/Configuration.h"

namespace lab {

// The required signer. If both paths are empty, the host's linux_host.json names the roots.
struct ExpectedTeam {
  std::string identifier;
  std::filesystem::path testAuthority;       // trusted besides the platform's roots; empty for none
  std::filesystem::path timestampAuthority;  // of the test authority's time server; empty for the same root
};

struct PublishArguments {
  std::filesystem::path tree;
  Configuration configuration;
  bool isConfigured = false;  // a configuration or a name of it was given

  std::optional<ExpectedTeam> team;  // for `publish`, `rollback` and `verify`

  // The package of `publish`, `rollback` and `withdraw`. `list` uses the app only; empty means all apps.
  std::string app;
  std::string version;
  std::string arch;
  std::filesystem::path image;
  std::string destination;
  std::optional<std::filesystem::path> notes;
  std::optional<std::string> alternateURL;
};

}  // namespace lab

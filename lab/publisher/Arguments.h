// The arguments of lab-publish. A plain record.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "publisher/Configuration.h"

namespace lab {

struct PublishArguments {
  std::filesystem::path tree;
  Configuration configuration;
  bool isConfigured = false;  // a configuration or a name of it was given

  std::optional<std::string> team;  // the required signer for `publish`, `rollback` and `verify`

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

// The command line of lab-publish. Pure.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "publisher/Configuration.h"
#include "support/OrReason.h"

namespace lab {

struct PublishArguments {
  enum class Command { help, publish, rollback, withdraw, list, verify };

  Command command = Command::help;
  std::filesystem::path tree;
  Configuration configuration;
  bool isConfigured = false;  // a configuration or a name of it was given

  std::optional<std::string> team;  // the required signer for `publish`, `rollback` and `verify`

  // The package of `publish`, `rollback` and `withdraw`. `list` uses the app only; empty means all apps.
  std::string app;
  std::string version;
  std::string arch;
  std::filesystem::path image;
  std::string destination;  // "{app}-{version}.dmg" unless given
  std::optional<std::filesystem::path> notes;
  std::optional<std::string> alternateURL;
};

const char* publishUsage();

OrReason<PublishArguments> parsePublishArguments(const std::vector<std::string>& words);

}  // namespace lab

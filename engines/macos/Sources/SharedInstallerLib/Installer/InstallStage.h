// Where the app being worked on stands.
#pragma once

#include <string_view>

namespace installer {

enum class InstallStage { download, verify, install };

// "download", "verify" or "install": the word for the protocol and the log.
constexpr std::string_view rawValue(InstallStage stage) {
  switch (stage) {
    case InstallStage::download: return "download";
    case InstallStage::verify: return "verify";
    case InstallStage::install: return "install";
  }
  return "";
}

}  // namespace installer

// The path of a package on the content delivery network, below the data centre's base address. The engine
// fetches by this layout and the publishing tool writes it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace installer {

struct CDNLayout {
  static constexpr std::string_view kMetadataFileName = "meta.json";
  static constexpr std::string_view kReleaseNotesFileName = "release-notes.json";

  std::string distributionRoot;
  std::string appsRoot;
  std::string flavour;
  std::string service;  // the app's identifier
  std::string arch;     // "arm64", "x64" or "universal"
  std::string format;   // "dmg"
  std::string release;

  // The folder, path component by path component.
  std::vector<std::string> folderComponents() const {
    return {distributionRoot, appsRoot, flavour, service, "mac", arch, format, release};
  }
};

}  // namespace installer

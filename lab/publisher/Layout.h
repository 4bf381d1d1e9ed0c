// The places of packages in a tree: the engine's layout, filled from the command line. Pure.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "Models/CDNLayout.h"
#include "support/OrReason.h"

namespace lab {

// The parts of the layout that installer_config.json names, with the engine's defaults.
struct LayoutNames {
  std::string distributionRoot = "desksuite";
  std::string appsRoot = "apps";
  std::string flavour = "default";
  std::string release = "latest";
};

installer::CDNLayout layoutOf(const LayoutNames& names, const std::string& app, const std::string& arch);

std::filesystem::path folderOf(const std::filesystem::path& tree, const installer::CDNLayout& layout);

// The layout whose folder is `folder`; absent when there is none.
std::optional<installer::CDNLayout> layoutThatLeadsTo(const std::filesystem::path& tree,
                                                      const std::filesystem::path& folder);

// The valid values: one of the catalog's apps; "arm64", "x64" or "universal"; a name that a path can have;
// a name of an image, because metadata and notes are in the same folder.
OrReason<> checkApp(const std::string& app);
OrReason<> checkArch(const std::string& arch);
OrReason<> checkPathComponent(const std::string& what, const std::string& name);
OrReason<> checkImageName(const std::string& name);

// Fails unless `version` is numbers between points: other text has no order and would never be an update.
OrReason<> checkVersion(const std::string& version);

}  // namespace lab

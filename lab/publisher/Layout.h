// Where packages lie in a tree: the engine's layout, filled from the command line. Pure.
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

// The layout that leads to `folder`; absent when no app's does.
std::optional<installer::CDNLayout> layoutThatLeadsTo(const std::filesystem::path& tree,
                                                      const std::filesystem::path& folder);

// One of the catalog's apps; "arm64", "x64" or "universal"; a name that can stand in a path.
OrReason<> checkApp(const std::string& app);
OrReason<> checkArch(const std::string& arch);
OrReason<> checkPathComponent(const std::string& what, const std::string& name);

// Numbers between points: anything else has no order among versions, and would never be offered as an update.
OrReason<> checkVersion(const std::string& version);

}  // namespace lab

#include "publisher/Layout.h"

#include <algorithm>
#include <array>
#include <vector>

#include "Base/Path.h"
#include "Models/AppInfo.h"

namespace lab {

namespace {

constexpr std::array<std::string_view, 3> kArchs{"arm64", "x64", "universal"};
constexpr std::size_t kLongestNumber = 18;  // digits that a signed 64-bit integer always holds

bool isNumber(std::string_view text) {
  return !text.empty() && text.size() <= kLongestNumber &&
         std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

installer::CDNLayout layoutOf(const LayoutNames& names, const std::string& app, const std::string& arch) {
  return {.distributionRoot = names.distributionRoot,
          .appsRoot = names.appsRoot,
          .flavour = names.flavour,
          .service = app,
          .arch = arch,
          .format = "dmg",
          .release = names.release};
}

std::filesystem::path folderOf(const std::filesystem::path& tree, const installer::CDNLayout& layout) {
  auto folder = tree;
  for (const auto& component : layout.folderComponents()) folder /= component;
  return folder;
}

std::optional<installer::CDNLayout> layoutThatLeadsTo(const std::filesystem::path& tree,
                                                      const std::filesystem::path& folder) {
  const auto relative = folder.lexically_relative(tree);
  const std::vector<std::string> names(relative.begin(), relative.end());
  if (names.size() != installer::CDNLayout{}.folderComponents().size()) return std::nullopt;
  const installer::CDNLayout layout{.distributionRoot = names[0],
                                    .appsRoot = names[1],
                                    .flavour = names[2],
                                    .service = names[3],
                                    .arch = names[5],
                                    .format = names[6],
                                    .release = names[7]};
  const bool isOurs = checkApp(layout.service) && checkArch(layout.arch) && layout.format == "dmg" &&
                      layout.folderComponents() == names;
  return isOurs ? std::optional{layout} : std::nullopt;
}

OrReason<> checkApp(const std::string& app) {
  if (installer::AppIdentifiers::fromRawValue(app)) return {};
  std::string known;
  for (const auto id : installer::AppIdentifiers::allCases) {
    known += (known.empty() ? "" : ", ") + std::string{rawValue(id)};
  }
  return because("'{}' isn't an app of the catalog ({})", app, known);
}

OrReason<> checkArch(const std::string& arch) {
  if (std::ranges::find(kArchs, arch) != kArchs.end()) return {};
  return because("'{}' isn't an architecture (arm64, x64 or universal)", arch);
}

OrReason<> checkPathComponent(const std::string& what, const std::string& name) {
  if (installer::isPlainFileName(name) && !name.starts_with('.')) return {};
  return because("{} '{}' can't be part of a path", what, name);
}

OrReason<> checkImageName(const std::string& name) {
  if (auto checked = checkPathComponent("--destination", name); !checked) return checked;
  if (name.ends_with(".dmg")) return {};
  return because("--destination '{}' doesn't end in .dmg", name);
}

OrReason<> checkVersion(const std::string& version) {
  std::string_view rest = version;
  while (true) {
    const auto point = rest.find('.');
    if (!isNumber(rest.substr(0, point))) {
      return because("'{}' isn't a version: use numbers separated by points, such as 2.1", version);
    }
    if (point == std::string_view::npos) return {};
    rest.remove_prefix(point + 1);
  }
}

}  // namespace lab

#include "publisher/Versions.h"

#include <algorithm>

#include "Models/AppInfo.h"
#include "Models/PackageMeta.h"
#include "publisher/Publication.h"
#include "publisher/StagedFolder.h"
#include "support/Files.h"

namespace lab {

namespace {

using installer::CDNLayout;
using installer::PackageMeta;

fs::path placeOf(const PublishArguments& arguments, const std::string& app, const std::string& arch) {
  return folderOf(arguments.tree, layoutOf(arguments.configuration.names, app, arch));
}

OrReason<PackageMeta> offerIn(const fs::path& folder) {
  const auto text = readFile(folder / CDNLayout::kMetadataFileName);
  if (!text) return handOn(text);
  auto meta = PackageMeta::decode(*text);
  if (!meta) return because("{}: the metadata can't be read", folder.string());
  return std::move(*meta);
}

std::string otherImages(const fs::path& folder, const std::string& offered) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator{folder}) {
    const auto name = entry.path().filename().string();
    if (!name.starts_with('.') && name.ends_with(".dmg") && name != offered) names.push_back(name);
  }
  std::ranges::sort(names);
  return names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "));
}

OrReason<fs::path> publishedImage(const PublishArguments& arguments) {
  const auto folder = placeOf(arguments, arguments.app, arguments.arch);
  auto image = folder / arguments.destination;
  if (itemExists(image)) return image;
  return because("there is no {} in {}; see lab-publish list", arguments.destination, folder.string());
}

}  // namespace

OrReason<std::vector<std::string>> listVersions(const PublishArguments& arguments) {
  std::vector<std::string> lines;
  for (const auto id : installer::AppIdentifiers::allCases) {
    const std::string app{rawValue(id)};
    if (!arguments.app.empty() && arguments.app != app) continue;
    for (const std::string arch : {"arm64", "universal", "x64"}) {
      const auto folder = placeOf(arguments, app, arch);
      if (!itemExists(folder)) continue;
      const auto meta = offerIn(folder);
      if (!meta) return handOn(meta);
      const auto destination = meta->destination.value_or("");
      lines.push_back(fmt::format("{} {}: {} in {}; other images: {}", app, arch,
                                  meta->version.value_or("no version"), destination,
                                  otherImages(folder, destination)));
    }
  }
  if (lines.empty()) return because("{} holds no such package", arguments.tree.string());
  return lines;
}

OrReason<fs::path> rollBack(const PublishArguments& arguments) {
  auto image = publishedImage(arguments);
  if (!image) return image;
  PublishArguments again = arguments;
  again.image = std::move(*image);
  return publish(again);
}

OrReason<fs::path> withdraw(const PublishArguments& arguments) {
  auto image = publishedImage(arguments);
  if (!image) return image;
  const auto folder = image->parent_path();
  const auto meta = offerIn(folder);
  if (!meta) return handOn(meta);
  if (meta->destination == arguments.destination) {
    return because("{} is on offer; publish another version or roll back first", arguments.destination);
  }
  auto staged = StagedFolder::inPlaceOf(folder, {arguments.destination});
  if (!staged) return handOn(staged);
  if (auto done = staged->commit(std::string{CDNLayout::kMetadataFileName}); !done) return handOn(done);
  return image;
}

}  // namespace lab

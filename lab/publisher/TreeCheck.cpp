#include "publisher/TreeCheck.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "Base/Path.h"
#include "Base/Text.h"
#include "Models/PackageMeta.h"
#include "Models/ReleaseNotes.h"
#include "publisher/Image.h"
#include "publisher/Signatures.h"
#include "support/Files.h"

namespace lab {

namespace {

using installer::CDNLayout;
using installer::PackageMeta;

OrReason<PackageMeta> readMetadata(const fs::path& file, const Configuration& configuration) {
  if (!itemExists(file)) return because("there is no {}", file.filename().string());
  const auto text = readFile(file);
  if (!text) return handOn(text);
  auto meta = PackageMeta::decode(*text);
  if (!meta) return because("the metadata can't be read");
  if (!meta->destination) return because("the metadata has no destination");
  if (!installer::isPlainFileName(*meta->destination)) {
    return because("the destination '{}' is outside the folder", *meta->destination);
  }
  if (!meta->checksumIsVerifiable()) return because("the metadata has no SHA-256");
  if (!meta->version) return because("the metadata has no version");
  if (auto version = checkVersion(*meta->version); !version) return handOn(version);
  if (!meta->alternateDownloadURL) return std::move(*meta);
  auto alternate = checkAlternate(*meta->alternateDownloadURL, configuration);
  if (!alternate) return handOn(alternate);
  return std::move(*meta);
}

OrReason<> compare(const PackageMeta& meta, const ImageFacts& facts) {
  if (installer::lowercased(installer::trimmed(*meta.checksum)) != facts.sha256) {
    return because("the digest of '{}' isn't the one in the metadata", *meta.destination);
  }
  if (meta.size != facts.size) {
    return because("'{}' has {} bytes, and the metadata has another size", *meta.destination, facts.size);
  }
  return {};
}

// Compares the metadata's own description with its place in the tree. Only people read that part, not the
// engine.
OrReason<> compare(const PackageMeta& meta, const CDNLayout& layout) {
  for (const auto& [key, said, is] :
       {std::tuple{"product", &meta.product, layout.service},
        std::tuple{"flavour", &meta.flavour, layout.flavour}, std::tuple{"os", &meta.os, std::string{"mac"}},
        std::tuple{"arch", &meta.arch, layout.arch}, std::tuple{"format", &meta.format, layout.format},
        std::tuple{"release", &meta.release, layout.release}}) {
    if (said->value_or(is) != is) return because("the metadata is for {} '{}', not '{}'", key, **said, is);
  }
  return {};
}

OrReason<> checkNotes(const fs::path& file) {
  if (!itemExists(file)) return {};
  const auto text = readFile(file);
  if (!text) return handOn(text);
  if (!installer::ReleaseNotes::decode(*text)) return because("the release notes can't be read");
  return {};
}

bool isAsDeepAsPackages(const fs::path& tree, const fs::path& folder) {
  const auto relative = folder.lexically_relative(tree);
  const std::vector<std::string> names(relative.begin(), relative.end());
  const auto wanted = CDNLayout{}.folderComponents();
  return names.size() == wanted.size() && names[4] == wanted[4];
}

class TreeCheck {
 public:
  explicit TreeCheck(const PublishArguments& arguments) : arguments_{arguments} {}

  OrReason<TreeReport> run();

 private:
  // All paths of a package's folder, with links.
  using Paths = std::vector<fs::path>;
  // app and everything of its layout but the architecture -> architecture -> version
  using Offers = std::map<std::vector<std::string>, std::map<std::string, std::string>>;

  void walk(const fs::path& folder);
  void visit(const fs::directory_entry& entry, bool& holdsFolders, bool& holdsPackage);
  void checkReadable(const fs::path& path);
  OrReason<std::string> checkPackage(const Paths& paths);
  std::vector<CDNLayout> layoutsThatLeadTo(const Paths& paths) const;
  OrReason<ImageFacts> checkFiles(const fs::path& folder, const PackageMeta& meta, const std::string& app);
  void compareArchitectures();
  void lookForConfigured();
  void report(const fs::path& path, const std::string& problem);

  const PublishArguments& arguments_;
  TreeReport report_;
  std::map<fs::path, Paths> packages_;  // by canonical path
  Offers offers_;
};

void TreeCheck::report(const fs::path& path, const std::string& problem) {
  report_.problems.push_back(fmt::format("{}: {}", path.string(), problem));
}

void TreeCheck::checkReadable(const fs::path& path) {
  std::error_code error;
  const auto status = fs::status(path, error);
  const bool isFolder = status.type() == fs::file_type::directory;
  const auto needed = isFolder ? fs::perms::others_read | fs::perms::others_exec : fs::perms::others_read;
  if ((status.permissions() & needed) == needed) return;
  report(path, isFolder ? "other users can't enter it" : "other users can't read it");
}

void TreeCheck::visit(const fs::directory_entry& entry, bool& holdsFolders, bool& holdsPackage) {
  const auto& path = entry.path();
  const auto name = path.filename().string();
  if (name.starts_with('.')) {
    report_.leftovers.push_back(fmt::format("{}: left by an interrupted publication", path.string()));
    return;
  }
  std::error_code error;
  const auto type = fs::status(path, error).type();
  if (type == fs::file_type::not_found) return report(path, "the link's target doesn't exist");
  if (type != fs::file_type::directory) {
    holdsPackage = holdsPackage || name == CDNLayout::kMetadataFileName;
    return;
  }
  holdsFolders = true;
  const auto leadsTo = fs::canonical(path, error);
  const auto here = fs::canonical(path.parent_path(), error);
  if (std::ranges::mismatch(leadsTo, here).in1 == leadsTo.end())
    return report(path, "the link leads to one of its own parent folders");
  walk(path);
}

void TreeCheck::walk(const fs::path& folder) {
  checkReadable(folder);
  bool holdsFolders = false;
  bool holdsPackage = false;
  std::error_code error;
  for (fs::directory_iterator entry{folder, error}, end; !error && entry != end; entry.increment(error)) {
    visit(*entry, holdsFolders, holdsPackage);
  }
  if (error) return report(folder, error.message());
  // A package's folder without metadata breaks installs as much as bad metadata.
  const bool isPlace = !holdsFolders && isAsDeepAsPackages(arguments_.tree, folder);
  if (holdsPackage || isPlace) packages_[fs::canonical(folder, error)].push_back(folder);
}

// The line for a sound package.
OrReason<std::string> TreeCheck::checkPackage(const Paths& paths) {
  const fs::path& folder = paths.front();
  const auto layouts = layoutsThatLeadTo(paths);
  if (layouts.empty()) return because("no installer reads packages from this folder");
  const auto meta = readMetadata(folder / CDNLayout::kMetadataFileName, arguments_.configuration);
  if (!meta) return handOn(meta);
  const auto fits = [&](const CDNLayout& layout) { return compare(*meta, layout).has_value(); };
  const auto layout = std::ranges::find_if(layouts, fits);
  if (layout == layouts.end()) return std::unexpected(compare(*meta, layouts.front()).error());
  for (const auto& each : layouts) {
    offers_[{each.distributionRoot, each.appsRoot, each.flavour, each.service, each.release}][each.arch] =
        *meta->version;
  }
  const auto facts = checkFiles(folder, *meta, layout->service);
  if (!facts) return handOn(facts);
  return fmt::format("{} {} {}: {}, {} bytes, sha256 {}", layout->service, layout->arch, *meta->version,
                     *meta->destination, facts->size, facts->sha256);
}

std::vector<CDNLayout> TreeCheck::layoutsThatLeadTo(const Paths& paths) const {
  std::vector<CDNLayout> layouts;
  for (const auto& path : paths) {
    if (const auto layout = layoutThatLeadsTo(arguments_.tree, path)) layouts.push_back(*layout);
  }
  return layouts;
}

OrReason<ImageFacts> TreeCheck::checkFiles(const fs::path& folder, const PackageMeta& meta,
                                           const std::string& app) {
  const auto image = folder / *meta.destination;
  auto facts = examineImage(image);
  if (!facts) return facts;
  for (const auto& checked :
       {compare(meta, *facts),
        checkBundle(image, arguments_.configuration.bundleIdentifiers.at(app), *meta.version),
        checkNotes(folder / CDNLayout::kReleaseNotesFileName),
        arguments_.team ? checkSignatures(image, *arguments_.team) : OrReason<>{}}) {
    if (!checked) return handOn(checked);
  }
  for (const auto& file : fs::directory_iterator{folder}) {
    if (!file.path().filename().string().starts_with('.')) checkReadable(file);
  }
  return facts;
}

void TreeCheck::compareArchitectures() {
  for (const auto& [place, versions] : offers_) {
    const auto name = fmt::format("{} {}", place[3], place[4]);
    const bool forOne = versions.contains("arm64") != versions.contains("x64");
    if (forOne && !versions.contains("universal")) {
      report(name, fmt::format("there is no package for {}", versions.contains("x64") ? "arm64" : "x64"));
    }
    const auto& first = *versions.begin();
    for (const auto& [arch, version] : versions) {
      if (version == first.second) continue;
      report(name, fmt::format("{} has version {}, {} has {}", first.first, first.second, arch, version));
    }
  }
}

void TreeCheck::lookForConfigured() {
  if (!arguments_.isConfigured) return;
  const LayoutNames& names = arguments_.configuration.names;
  const auto& offered = arguments_.configuration.offeredApps;
  for (const auto& [app, _] : arguments_.configuration.bundleIdentifiers) {
    const auto isApps = [&app](const auto& offer) { return offer.first[3] == app; };
    // Without a configuration file, an app without any package isn't expected.
    const bool isExpected = offered ? offered->contains(app) : std::ranges::any_of(offers_, isApps);
    if (!isExpected ||
        offers_.contains({names.distributionRoot, names.appsRoot, names.flavour, app, names.release})) {
      continue;
    }
    report(app, fmt::format("the place in the configuration has no package: {}",
                            folderOf(arguments_.tree, layoutOf(names, app, "*")).string()));
  }
}

OrReason<TreeReport> TreeCheck::run() {
  std::error_code error;
  if (!fs::is_directory(arguments_.tree, error))
    return because("{} isn't a folder", arguments_.tree.string());
  walk(arguments_.tree);
  for (const auto& [_, paths] : packages_) {
    auto line = checkPackage(paths);
    if (line) report_.packages.push_back(std::move(*line));
    if (!line) report(paths.front(), line.error());
  }
  if (packages_.empty()) return because("{} holds no package", arguments_.tree.string());
  compareArchitectures();
  lookForConfigured();
  std::ranges::sort(report_.packages);
  std::ranges::sort(report_.problems);
  std::ranges::sort(report_.leftovers);
  return std::move(report_);
}

}  // namespace

OrReason<TreeReport> checkTree(const PublishArguments& arguments) {
  return TreeCheck{arguments}.run();
}

}  // namespace lab

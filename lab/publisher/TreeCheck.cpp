#include "publisher/TreeCheck.h"

#include <algorithm>

#include "Models/PackageMeta.h"
#include "Models/ReleaseNotes.h"
#include "Models/Text.h"
#include "Platform/Path.h"
#include "publisher/Image.h"
#include "publisher/Layout.h"
#include "support/Files.h"

namespace lab {

namespace {

using installer::CDNLayout;
using installer::PackageMeta;

OrReason<PackageMeta> readMetadata(const fs::path& file) {
  const auto text = readFile(file);
  if (!text) return std::unexpected(text.error());
  auto meta = PackageMeta::decode(*text);
  if (!meta) return because("the metadata can't be read");
  if (!meta->destination) return because("the metadata names no destination");
  if (!installer::isPlainFileName(*meta->destination)) {
    return because("the destination '{}' leads out of the folder", *meta->destination);
  }
  if (!meta->checksumIsVerifiable()) return because("the metadata has no SHA-256");
  if (!meta->version) return because("the metadata names no version");
  if (auto version = checkVersion(*meta->version); !version) return std::unexpected(version.error());
  const auto& alternate = meta->alternateDownloadURL;
  if (alternate && (!installer::URLTrust::isHTTPS(*alternate) || !alternate->host())) {
    return because("the alternate location '{}' is no https address", alternate->absoluteString());
  }
  return std::move(*meta);
}

OrReason<> compare(const PackageMeta& meta, const ImageFacts& facts) {
  if (installer::lowercased(installer::trimmed(*meta.checksum)) != facts.sha256) {
    return because("the digest of '{}' is another", *meta.destination);
  }
  if (meta.size != facts.size) {
    return because("'{}' has {} bytes, and the metadata says otherwise", *meta.destination, facts.size);
  }
  return {};
}

OrReason<> checkNotes(const fs::path& file) {
  if (!stands(file)) return {};
  const auto text = readFile(file);
  if (!text) return std::unexpected(text.error());
  if (!installer::ReleaseNotes::decode(*text)) return because("the release notes can't be read");
  return {};
}

// The line for a sound package.
OrReason<std::string> checkPackage(const fs::path& tree, const fs::path& folder) {
  const auto layout = layoutThatLeadsTo(tree, folder);
  if (!layout) return because("no installer looks for a package here");
  const auto meta = readMetadata(folder / CDNLayout::metadataFileName);
  if (!meta) return std::unexpected(meta.error());
  const auto facts = examineImage(folder / *meta->destination);
  if (!facts) return std::unexpected(facts.error());
  if (auto same = compare(*meta, *facts); !same) return std::unexpected(same.error());
  if (auto notes = checkNotes(folder / CDNLayout::releaseNotesFileName); !notes) {
    return std::unexpected(notes.error());
  }
  return fmt::format("{} {} {}: {}, {} bytes, sha256 {}", layout->service, layout->arch, *meta->version,
                     *meta->destination, facts->size, facts->sha256);
}

}  // namespace

OrReason<TreeReport> checkTree(const fs::path& tree) {
  TreeReport report;
  std::error_code error;
  for (fs::recursive_directory_iterator entry{tree, error}, end; !error && entry != end;
       entry.increment(error)) {
    const auto name = entry->path().filename().string();
    if (name.starts_with('.')) {
      report.leftovers.push_back(
          fmt::format("{}: left over from a publication that was cut short", entry->path().string()));
      entry.disable_recursion_pending();
      continue;
    }
    if (name != CDNLayout::metadataFileName) continue;
    const auto folder = entry->path().parent_path();
    auto line = checkPackage(tree, folder);
    if (line) report.packages.push_back(std::move(*line));
    if (!line) report.problems.push_back(fmt::format("{}: {}", folder.string(), line.error()));
  }
  if (error) return because("{}: {}", tree.string(), error.message());
  if (report.packages.empty() && report.problems.empty())
    return because("{} holds no package", tree.string());
  std::ranges::sort(report.packages);
  std::ranges::sort(report.problems);
  std::ranges::sort(report.leftovers);
  return report;
}

}  // namespace lab

#include "publisher/Publication.h"

#include "nlohmann/json.hpp"

#include "Models/ReleaseNotes.h"
#include "publisher/Image.h"
#include "publisher/Signatures.h"
#include "publisher/StagedFolder.h"
#include "support/Files.h"

namespace lab {

namespace {

using installer::CDNLayout;
using OrderedJson = nlohmann::ordered_json;

std::string metadataOf(const PublishArguments& arguments, const ImageFacts& facts) {
  OrderedJson meta{
      {"product", arguments.app}, {"version", arguments.version}, {"destination", arguments.destination},
      {"size", facts.size},       {"checksum", facts.sha256},     {"checksumAlgorithm", "sha256"}};
  if (arguments.alternateURL) meta["alternateDownloadUrl"] = *arguments.alternateURL;
  meta["flavour"] = arguments.configuration.names.flavour;
  meta["os"] = "mac";
  meta["arch"] = arguments.arch;
  meta["format"] = "dmg";
  meta["release"] = arguments.configuration.names.release;
  return meta.dump(2) + "\n";
}

OrReason<std::optional<std::string>> readNotes(const std::optional<fs::path>& file) {
  if (!file) return std::nullopt;
  auto text = readFile(*file);
  if (!text) return handOn(text);
  if (!installer::ReleaseNotes::decode(*text)) return because("{} aren't release notes", file->string());
  return std::move(*text);
}

// Checks the copy again, because the image could change after its examination.
OrReason<> putImage(const fs::path& image, const fs::path& destination, const ImageFacts& facts) {
  if (itemExists(destination)) {
    const auto published = sha256OfFile(destination);
    if (published && *published == facts.sha256) return {};
    return because("{} is published already, with other bytes; choose another version or --destination",
                   destination.filename().string());
  }
  std::error_code error;
  fs::copy_file(image, destination, error);
  // The web server that serves the tree is usually another user.
  if (!error) fs::permissions(destination, fs::perms{0644}, error);
  if (error) return because("{}: {}", destination.string(), error.message());
  if (const auto digest = sha256OfFile(destination); !digest || *digest != facts.sha256) {
    return because("{} changed while it was published", image.string());
  }
  return {};
}

}  // namespace

OrReason<fs::path> publish(const PublishArguments& arguments) {
  const auto facts = examineImage(arguments.image);
  if (!facts) return handOn(facts);
  const auto& identifier = arguments.configuration.bundleIdentifiers.at(arguments.app);
  if (auto held = checkBundle(arguments.image, identifier, arguments.version); !held) {
    return handOn(held);
  }
  if (arguments.team) {
    if (auto held = checkSignatures(arguments.image, *arguments.team); !held) return handOn(held);
  }
  const auto notes = readNotes(arguments.notes);
  if (!notes) return handOn(notes);

  const auto folder =
      folderOf(arguments.tree, layoutOf(arguments.configuration.names, arguments.app, arguments.arch));
  std::error_code error;
  fs::create_directories(folder.parent_path(), error);
  if (error) return because("{}: {}", folder.parent_path().string(), error.message());
  const std::string metadata{CDNLayout::kMetadataFileName};
  const std::string releaseNotes{CDNLayout::kReleaseNotesFileName};
  auto staged = StagedFolder::inPlaceOf(folder, {metadata, releaseNotes});
  if (!staged) return handOn(staged);
  auto put = putImage(arguments.image, staged->path() / arguments.destination, *facts);
  // A package without notes doesn't keep those of an earlier one.
  if (put && *notes) put = writeFile(staged->path() / releaseNotes, **notes);
  if (put) put = writeFile(staged->path() / metadata, metadataOf(arguments, *facts));
  if (put) put = staged->commit(metadata);
  if (!put) return handOn(put);
  return folder;
}

}  // namespace lab

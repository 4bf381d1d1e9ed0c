#include "publisher/Publication.h"

#include <fcntl.h>
#include <unistd.h>

#include "nlohmann/json.hpp"

#include "Models/ReleaseNotes.h"
#include "publisher/Image.h"
#include "support/Descriptor.h"
#include "support/Files.h"

namespace lab {

namespace {

using installer::CDNLayout;
using Json = nlohmann::ordered_json;

std::string metadataOf(const PublishArguments& arguments, const ImageFacts& facts) {
  Json meta{
      {"product", arguments.app}, {"version", arguments.version}, {"destination", arguments.destination},
      {"size", facts.size},       {"checksum", facts.sha256},     {"checksumAlgorithm", "sha256"}};
  if (arguments.alternateURL) meta["alternateDownloadUrl"] = *arguments.alternateURL;
  meta["flavour"] = arguments.names.flavour;
  meta["os"] = "mac";
  meta["arch"] = arguments.arch;
  meta["format"] = "dmg";
  meta["release"] = arguments.names.release;
  return meta.dump(2) + "\n";
}

OrReason<std::optional<std::string>> readNotes(const std::optional<fs::path>& file) {
  if (!file) return std::nullopt;
  auto text = readFile(*file);
  if (!text) return std::unexpected(text.error());
  if (!installer::ReleaseNotes::decode(*text)) return because("{} aren't release notes", file->string());
  return std::move(*text);
}

OrReason<> syncFile(const fs::path& file) {
  const Descriptor descriptor{open(file.c_str(), O_RDONLY | O_CLOEXEC)};
  if (!descriptor || fsync(descriptor.number()) != 0) return becauseOfErrno(file.string());
  return {};
}

// Under a hidden name first, and checked again there: what was examined is what is published.
OrReason<> putImage(const fs::path& image, const fs::path& destination, const ImageFacts& facts) {
  if (stands(destination)) {
    const auto published = sha256OfFile(destination);
    if (published && *published == facts.sha256) return {};
    return because("{} is published already, with other bytes; choose another version or --destination",
                   destination.string());
  }
  const auto hidden = destination.parent_path() / ("." + destination.filename().string() + ".publishing");
  std::error_code error;
  fs::copy_file(image, hidden, fs::copy_options::overwrite_existing, error);
  if (error) {
    static_cast<void>(removeTree(hidden));
    return because("{}: {}", hidden.string(), error.message());
  }
  const auto copied = sha256OfFile(hidden);
  const auto synced = syncFile(hidden);
  if (copied != facts.sha256 || !synced) {
    static_cast<void>(removeTree(hidden));
    return synced ? because("{} changed while it was published", image.string()) : synced;
  }
  fs::rename(hidden, destination, error);
  return error ? because("{}: {}", destination.string(), error.message()) : OrReason<>{};
}

// Notes of an earlier package don't stay beside a package without any.
OrReason<> putNotes(const fs::path& folder, const std::optional<std::string>& notes) {
  const auto file = folder / CDNLayout::releaseNotesFileName;
  return notes ? writeFile(file, *notes) : removeTree(file);
}

}  // namespace

OrReason<fs::path> publish(const PublishArguments& arguments) {
  const auto facts = examineImage(arguments.image);
  if (!facts) return std::unexpected(facts.error());
  const auto notes = readNotes(arguments.notes);
  if (!notes) return std::unexpected(notes.error());

  const auto folder = folderOf(arguments.tree, layoutOf(arguments.names, arguments.app, arguments.arch));
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) return because("{}: {}", folder.string(), error.message());
  if (auto put = putImage(arguments.image, folder / arguments.destination, *facts); !put) {
    return std::unexpected(put.error());
  }
  if (auto put = putNotes(folder, *notes); !put) return std::unexpected(put.error());
  if (auto put = writeFile(folder / CDNLayout::metadataFileName, metadataOf(arguments, *facts)); !put) {
    return std::unexpected(put.error());
  }
  return folder;
}

}  // namespace lab

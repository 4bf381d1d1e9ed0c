#include "publisher/Image.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "nlohmann/json.hpp"

#include "Base/JSONReader.h"
#include "Base/POSIX/PropertyListReader.h"
#include "diskimage/DiskImage.h"
#include "diskimage/VolumeListing.h"
#include "support/ChildProcess.h"
#include "support/Files.h"

namespace lab {

namespace JSONReader = installer::JSONReader;

namespace {

// Finds damage of the image before it is published.
OrReason<> checkContent(const std::filesystem::path& image) {
  const auto trailer = readTrailer(image);
  if (!trailer) return because("{} isn't a disk image: {}", image.string(), trailer.error());
  if (auto sound = verifyChecksums(image); !sound) {
    return because("{} is damaged: {}", image.string(), sound.error());
  }
  return {};
}

// The Info.plist of every bundle at the top of the volume, by path in the image.
std::vector<std::string> informationPaths(const VolumeListing& listing) {
  // The paths of an HFS+ volume's items begin with the volume's name.
  const std::ptrdiff_t slashes = listing.format == VolumeFormat::hfs ? 3 : 2;
  std::vector<std::string> paths;
  for (const ListedItem& item : listing.items) {
    if (item.path.ends_with(".app/Contents/Info.plist") && std::ranges::count(item.path, '/') == slashes) {
      paths.push_back(item.path);
    }
  }
  return paths;
}

// Null when the image has no such property list or it can't be read.
installer::Json informationIn(const std::filesystem::path& image, const std::string& path) {
  const auto read = runToEnd({"7zz", "x", "-so", "-spd", "-p", "--", image.string(), path});
  if (!read || read->status != 0) return {};
  return installer::readPropertyList(read->output).value_or(nullptr);
}

}  // namespace

OrReason<> checkBundle(const std::filesystem::path& image, const std::string& identifier,
                       const std::string& version) {
  const auto listing = listVolume(image);
  if (!listing) return because("{}: {}", image.string(), listing.error());
  std::string others;
  for (const std::string& path : informationPaths(*listing)) {
    const auto information = informationIn(image, path);
    const auto found = JSONReader::string(information, "CFBundleIdentifier").value_or("no identifier");
    if (found != identifier) {
      others += (others.empty() ? "" : ", ") + found;
      continue;
    }
    const auto its = JSONReader::string(information, "CFBundleShortVersionString").value_or("no version");
    if (its == version) return {};
    return because("{} holds version {}, not {}", image.filename().string(), its, version);
  }
  return because("{} holds no app '{}' but {}", image.filename().string(), identifier,
                 others.empty() ? "none" : others);
}

OrReason<ImageFacts> examineImage(const std::filesystem::path& image) {
  std::error_code error;
  if (!itemExists(image)) return because("{} isn't there", image.string());
  if (!std::filesystem::is_regular_file(std::filesystem::symlink_status(image, error))) {
    return because("{} isn't a regular file", image.string());
  }
  const auto size = std::filesystem::file_size(image, error);
  if (error) return because("{}: {}", image.string(), error.message());
  if (auto checked = checkContent(image); !checked) return handOn(checked);
  auto digest = sha256OfFile(image);
  if (!digest) return handOn(digest);
  return ImageFacts{.size = static_cast<std::int64_t>(size), .sha256 = std::move(*digest)};
}

}  // namespace lab

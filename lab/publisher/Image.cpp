#include "publisher/Image.h"

#include "diskimage/DiskImage.h"
#include "support/Files.h"

namespace lab {

namespace {

// A bit that fell over on the way here is found now, and not by those who download it.
OrReason<> checkContent(const std::filesystem::path& image) {
  const auto trailer = readTrailer(image);
  if (!trailer) return because("{} is no disk image: {}", image.string(), trailer.error());
  if (auto sound = verifyChecksums(image); !sound) {
    return because("{} is damaged: {}", image.string(), sound.error());
  }
  return {};
}

}  // namespace

OrReason<ImageFacts> examineImage(const std::filesystem::path& image) {
  std::error_code error;
  if (!stands(image)) return because("{} isn't there", image.string());
  if (!std::filesystem::is_regular_file(std::filesystem::symlink_status(image, error))) {
    return because("{} is no plain file", image.string());
  }
  const auto size = std::filesystem::file_size(image, error);
  if (error) return because("{}: {}", image.string(), error.message());
  if (auto checked = checkContent(image); !checked) return std::unexpected(checked.error());
  auto digest = sha256OfFile(image);
  if (!digest) return std::unexpected(digest.error());
  return ImageFacts{.size = static_cast<std::int64_t>(size), .sha256 = std::move(*digest)};
}

}  // namespace lab

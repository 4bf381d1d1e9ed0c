#include "publisher/Image.h"

#include <fstream>

#include "diskimage/UDIFTrailer.h"
#include "support/Files.h"

namespace lab {

namespace {

OrReason<> checkTrailer(const std::filesystem::path& image, std::uint64_t size) {
  if (size < UDIFTrailer::size)
    return because("{} is no disk image: it is too short for a trailer", image.string());
  std::ifstream file{image, std::ios::binary};
  UDIFTrailer::Block block{};
  file.seekg(static_cast<std::streamoff>(size - UDIFTrailer::size));
  file.read(reinterpret_cast<char*>(block.data()), static_cast<std::streamsize>(block.size()));
  if (!file) return because("{} can't be read", image.string());
  const auto trailer = UDIFTrailer::parse(block, size);
  if (!trailer) return because("{} is no disk image: {}", image.string(), trailer.error());
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
  if (auto trailer = checkTrailer(image, size); !trailer) return std::unexpected(trailer.error());
  auto digest = sha256OfFile(image);
  if (!digest) return std::unexpected(digest.error());
  return ImageFacts{.size = static_cast<std::int64_t>(size), .sha256 = std::move(*digest)};
}

}  // namespace lab

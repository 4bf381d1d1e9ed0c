#include "Platform/FileSystem.h"

#include <fmt/format.h>

namespace installer {

Result<std::string> readBoundedFile(FileSystem& files, const Path& path, std::size_t maximumBytes) {
  constexpr std::size_t pieceBytes = 256UL * 1024;
  const auto file = files.openForReading(path);
  if (!file) return handOn(file);
  std::string bytes;
  while (bytes.size() <= maximumBytes) {
    const auto piece = (*file)->read(pieceBytes);
    if (!piece) return handOn(piece);
    if (piece->empty()) return bytes;
    bytes += *piece;
  }
  return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt,
                 fmt::format("“{}” is longer than {} bytes.", path, maximumBytes));
}

}  // namespace installer

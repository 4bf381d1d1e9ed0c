#include "Base/POSIX/FileErrors.h"

#include <cerrno>
#include <fmt/format.h>
#include <optional>
#include <system_error>

namespace installer {

namespace {

std::optional<std::int64_t> readCode(int number) {
  switch (number) {
    case ENOENT: return CocoaError::fileReadNoSuchFile;
    case EACCES:
    case EPERM: return CocoaError::fileReadNoPermission;
    case ENOTDIR:
    case EISDIR: return CocoaError::fileReadUnknown;
    default: return std::nullopt;
  }
}

std::optional<std::int64_t> writeCode(int number) {
  switch (number) {
    case ENOENT: return CocoaError::fileNoSuchFile;
    case EACCES:
    case EPERM: return CocoaError::fileWriteNoPermission;
    case EEXIST:
    case ENOTEMPTY: return CocoaError::fileWriteFileExists;
    case ENOSPC:
    case EDQUOT: return CocoaError::fileWriteOutOfSpace;
    case EROFS: return CocoaError::fileWriteVolumeReadOnly;
    case ENOTDIR:
    case EISDIR: return CocoaError::fileWriteUnknown;
    default: return std::nullopt;
  }
}

}  // namespace

std::string errnoText(int number) {
  return std::generic_category().message(number);
}

Error fileError(FileAccess access, int number, const Path& path, std::string_view deed) {
  const auto known = access == FileAccess::read ? readCode(number) : writeCode(number);
  const auto domain = known ? ErrorDomain::cocoa : ErrorDomain::posix;
  const auto code = known.value_or(number);
  return {std::string{domain}, code,
          fmt::format("“{}” couldn’t be {}: {} ({} {}, {})", lastPathComponent(path), deed, errnoText(number),
                      domain, code, path),
          nullptr};
}

}  // namespace installer

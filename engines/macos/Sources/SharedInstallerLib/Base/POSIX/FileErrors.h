// Turns errno of a file operation into the errors of the seam.
#pragma once

#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer {

// Which codes a failure gets: EACCES is 257 while reading and 513 while writing.
enum class FileAccess { read, write };

// The error of `number` (an errno) at `path`. `deed` completes "couldn't be ...", such as "removed". The
// description also holds the domain and the code, so that every log line that quotes it names the cause.
Error fileError(FileAccess access, int number, const Path& path, std::string_view deed);

inline std::unexpected<Error> fileFailure(FileAccess access, int number, const Path& path,
                                          std::string_view deed) {
  return std::unexpected(fileError(access, number, path, deed));
}

// What the C library says about an errno; any thread.
std::string errnoText(int number);

}  // namespace installer

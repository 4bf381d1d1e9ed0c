// Turns errno of a file operation into the errors of the seam.
#pragma once

#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer {

// Selects the code of a failure: EACCES is 257 for a read and 513 for a write.
enum class FileAccess { read, write };

// The error of `number` (an errno) at `path`. `deed` completes "couldn't be ...", for example "removed". The
// description also has the domain and the code, so that every log line with it names the cause.
Error fileError(FileAccess access, int number, const Path& path, std::string_view deed);

inline std::unexpected<Error> fileFailure(FileAccess access, int number, const Path& path,
                                          std::string_view deed) {
  return std::unexpected(fileError(access, number, path, deed));
}

// The C library's text for an errno; any thread.
std::string errnoText(int number);

}  // namespace installer

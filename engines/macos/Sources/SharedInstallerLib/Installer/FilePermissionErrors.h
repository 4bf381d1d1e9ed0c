// Which file errors are about permission. Told by domain and code, never by text.
#pragma once

#include "Base/Error.h"

namespace installer {

// The one failure that the installer meets with an administrator prompt.
inline bool isNoWritePermission(const Error& error) {
  return error.is(ErrorDomain::cocoa, CocoaError::fileWriteNoPermission);
}

// The failures that the uninstaller takes for a missing permission: no write, no read, EPERM, EACCES.
inline bool isPermissionError(const Error& error) {
  return isNoWritePermission(error) || error.is(ErrorDomain::cocoa, CocoaError::fileReadNoPermission) ||
         error.is(ErrorDomain::posix, 1) || error.is(ErrorDomain::posix, 13);
}

}  // namespace installer

// Signs code directories like the platform's signing tool.
#pragma once

#include <span>

#include "CodeDirectory.h"
#include "Outcome.h"
#include "SigningIdentity.h"

namespace lab {

// The detached CMS over the first directory, with the digests of all directories in the signed attributes,
// and a secure timestamp if the options require one.
Outcome<Bytes> signDirectories(std::span<const CodeDirectory> directories, const SigningIdentity& identity,
                               const SigningOptions& options);

}  // namespace lab

// Signs code directories the way the platform's signing tool does.
#pragma once

#include <span>

#include "CodeDirectory.h"
#include "Outcome.h"
#include "SigningIdentity.h"

namespace lab {

// The detached CMS over the first directory, with the digests of all of them among the signed attributes,
// and a secure timestamp when the options ask for one.
Outcome<Bytes> signDirectories(std::span<const CodeDirectory> directories, const SigningIdentity& identity,
                               const SigningOptions& options);

}  // namespace lab

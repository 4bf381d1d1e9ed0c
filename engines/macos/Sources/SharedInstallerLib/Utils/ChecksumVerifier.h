// Verifies a file on disk: its digest, Gatekeeper's assessment, its code signature and the team that signed
// it.
//
// Stateless; any thread; blocks without a time limit. Any doubt counts as a failure. The caller decides what
// a failure means for the run. The file is left as it is.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/Path.h"

namespace installer {

class ChecksumVerifier {
 public:
  // True when the file's SHA-256, in lower-case hexadecimal, equals `expectedChecksum` after trimming and
  // lower-casing. An expectation of another length than 64 characters is false without opening the file.
  static bool verifyFileChecksum(const Path& filePath, std::string_view expectedChecksum);

  // True when Gatekeeper accepts the file as a disk image.
  static bool verifyGatekeeper(const Path& filePath);

  // True when the signature is intact and `verifyCodeRequirement` holds for the configured team.
  static bool verifySignature(const Path& filePath);

  // True when the signature chains to the developer team. `teamID` defaults to the configured team. An empty
  // team passes without a test; each such pass is logged as a warning.
  static bool verifyCodeRequirement(const Path& filePath,
                                    const std::optional<std::string>& teamID = std::nullopt);
};

}  // namespace installer

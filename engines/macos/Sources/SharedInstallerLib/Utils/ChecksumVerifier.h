// Proves that what lies on disk is what was promised: by its digest, by Gatekeeper, by its code signature and
// by the team that signed it.
//
// Stateless; any thread; blocks until it has its answer, without a time limit. Every doubt is a no. It says
// nothing about what a no means for the run, and leaves the file as it is.
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

  // True when the signature chains to the developer team. Absent, `teamID` is the configured one. An empty
  // team is the one way to pass without a test; it is announced each time.
  static bool verifyCodeRequirement(const Path& filePath,
                                    const std::optional<std::string>& teamID = std::nullopt);
};

}  // namespace installer

// Whose root certificates are believed.
// The platform's own roots are pinned by digest and always believed. A test authority is believed only
// where the host's own file names it; no argument and no environment variable can add one.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "Certificate.h"

namespace lab {

enum class AnchorKind { platform, testAuthority };

class Anchors {
 public:
  // The platform's pinned roots alone.
  static Anchors platform() { return {}; }

  // The platform's roots, and the test authority that the key "testAuthority" of `linux_host.json` names:
  // that file is looked for in `programs` (the folder of the running executable), then in its parent.
  // A file that can't be used adds nothing and leaves a warning.
  static Anchors ofHost(const std::filesystem::path& programs);

  // ofHost() for the folder that /proc/self/exe stands in.
  static Anchors ofThisProgram();

  // For tests of this library: the platform's roots and one more.
  static Anchors withTestAuthority(Certificate root);

  // Which kind of anchor this root is; absent when it is none.
  std::optional<AnchorKind> kindOf(const Certificate& root) const;

  const std::optional<Certificate>& testAuthority() const { return testAuthority_; }
  const std::string& warning() const { return warning_; }  // empty when there is nothing to say

 private:
  std::optional<Certificate> testAuthority_;
  std::string warning_;
};

}  // namespace lab

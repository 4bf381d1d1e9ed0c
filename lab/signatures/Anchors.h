// The trusted root certificates.
// The platform's roots are pinned by digest and always trusted. A test authority is trusted only if the
// host's settings file names it; no argument and no environment variable can add one.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "Certificate.h"

namespace lab {

enum class AnchorKind { platform, testAuthority };

class Anchors {
 public:
  // The platform's pinned roots only.
  static Anchors platform() { return {}; }

  // The platform's roots, and the test authority of the key "testAuthority" in `linux_host.json`, which is
  // read from `programs` (the folder of the running executable), else from its parent. An invalid file adds
  // nothing and sets a warning.
  static Anchors ofHost(const std::filesystem::path& programs);

  // ofHost() for the folder of /proc/self/exe.
  static Anchors ofThisProgram();

  // For tests of this library: the platform's roots and `root`.
  static Anchors withTestAuthority(Certificate root);

  // The kind of anchor of this root; absent when it isn't trusted.
  std::optional<AnchorKind> kindOf(const Certificate& root) const;

  const std::optional<Certificate>& testAuthority() const { return testAuthority_; }
  const std::string& warning() const { return warning_; }  // empty when there is none

 private:
  std::optional<Certificate> testAuthority_;
  std::string warning_;
};

}  // namespace lab

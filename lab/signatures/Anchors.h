// The trusted root certificates.
// The platform's roots are pinned by digest and always trusted. codesign and spctl trust a test authority
// only if the host's settings file names it; no argument and no environment variable can add one.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "Certificate.h"

namespace lab {

enum class AnchorKind { platform, testAuthority, timestampAuthority };

// The use of a chain.
enum class Purpose { code, timestamp };

class Anchors {
 public:
  // The platform's pinned roots only.
  static Anchors platform() { return {}; }

  // The platform's roots, and those of the keys "testAuthority" and "timestampAuthority" in
  // `linux_host.json`, which is read from `programs` (the folder of the running executable), else from its
  // parent. An invalid file adds nothing, an invalid root isn't added, and both set a warning.
  static Anchors ofHost(const std::filesystem::path& programs);

  // ofHost() for the folder of /proc/self/exe.
  static Anchors ofThisProgram();

  // The platform's roots and `root`.
  static Anchors withTestAuthority(Certificate root);

  // The platform's roots and those in these files; an empty path names none.
  static Outcome<Anchors> withRoots(const std::filesystem::path& testAuthority,
                                    const std::filesystem::path& timestampAuthority);

  // The kind of anchor of this root; absent when it isn't trusted for the purpose.
  std::optional<AnchorKind> kindOf(const Certificate& root, Purpose purpose = Purpose::code) const;

  const std::optional<Certificate>& testAuthority() const { return testAuthority_; }
  // The root of the time servers that stamp the test authority's signatures, besides the test authority.
  const std::optional<Certificate>& timestampAuthority() const { return timestampAuthority_; }
  const std::string& warning() const { return warning_; }  // empty when there is none

 private:
  // Reads the root that the settings name under `key`, by its path relative to their folder.
  std::optional<Certificate> rootNamed(const std::string& key, const std::filesystem::path& hostFile);

  std::optional<Certificate> testAuthority_;
  std::optional<Certificate> timestampAuthority_;
  std::string warning_;
};

}  // namespace lab

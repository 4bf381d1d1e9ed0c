// Verifies signed code: Mach-O files, bundles, disk images, plain files.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "Anchors.h"
#include "Bundle.h"
#include "CodeResources.h"
#include "CodeSignature.h"
#include "ResourceWalk.h"

namespace lab {

struct CodeReport {
  enum class Kind { machO, bundle, diskImage, plainFile };

  Kind kind = Kind::plainFile;
  std::string format;                // for people: "app bundle with Mach-O universal (x86_64 arm64)"
  std::filesystem::path executable;  // the file with the signature
  std::vector<CodeFacts> slices;     // never empty; one for each slice of a Mach-O file, else one
};

class Verifier {
 public:
  // `now` is the time for the check of timestamps and of signatures without one.
  Verifier(Anchors anchors, std::chrono::sys_seconds now) : anchors_(std::move(anchors)), now_(now) {}

  // Verifies everything below `path`: pages, slots, signers, resources, nested code. A link at `path` itself
  // is followed.
  Outcome<CodeReport> verify(const std::filesystem::path& path) const;

  // Reads the signature without hashing the sealed content. The chain of a slice is absent when its signer
  // can't be proven.
  Outcome<CodeReport> inspect(const std::filesystem::path& path) const;

  const Anchors& anchors() const { return anchors_; }

 private:
  enum class Thoroughness { everything, signatureOnly };
  struct Task {
    Thoroughness thoroughness = Thoroughness::everything;
    int depth = 0;                          // of nested code
    const ResourceScope* around = nullptr;  // the bundle that contains nested code; null at depth 0

    // The task for code inside the bundle.
    Task inside(const ResourceScope& scope) const { return {thoroughness, depth + 1, &scope}; }
  };

  Outcome<CodeReport> code(const std::filesystem::path& path, const Task& task) const;
  Outcome<CodeReport> file(const std::filesystem::path& path, const Task& task) const;
  Outcome<CodeReport> machO(ByteView bytes, const SignedSurroundings& bundled, const Task& task) const;
  Outcome<CodeReport> diskImage(ByteView bytes, const Task& task) const;
  Outcome<CodeReport> plainFile(const std::filesystem::path& path, ByteView bytes, const Task& task) const;
  Outcome<CodeReport> bundle(const Bundle& bundle, const Task& task) const;
  Outcome<CodeReport> bundleCode(const Bundle& bundle, const SignedSurroundings& surroundings,
                                 const Task& task) const;
  Outcome<void> otherVersions(const Bundle& bundle, const CodeReport& current, const Task& task) const;
  Outcome<void> nestedCode(const std::filesystem::path& path, const ResourceSeal& seal,
                           const Task& task) const;
  Outcome<CodeFacts> signature(const SignatureParts& parts, const SignedSurroundings& surroundings,
                               const Task& task) const;

  Anchors anchors_;
  std::chrono::sys_seconds now_;
};

}  // namespace lab

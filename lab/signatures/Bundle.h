// The paths in a bundle: base, Info.plist, main executable, signature.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Outcome.h"

namespace lab {

struct Bundle {
  enum class Shape {
    contents,   // App.app/Contents/...
    versioned,  // Some.framework/Versions/A/..., with links beside Versions
    flat        // all files in the root
  };

  Shape shape = Shape::flat;
  std::filesystem::path root;
  std::filesystem::path base;  // resource paths are relative to it
  std::filesystem::path infoPlist;
  std::filesystem::path mainExecutable;              // Info.plist itself if it names none
  std::filesystem::path signatureFolder;             // base/_CodeSignature
  std::vector<std::filesystem::path> otherVersions;  // of a versioned bundle, beside the current one

  // Finds the parts of the bundle at `root`. Follows no link except Versions/Current.
  static Outcome<Bundle> read(const std::filesystem::path& root);

  // Refuses unsealed items around the base: anything beside Contents or Versions, except links into the
  // current version and the plain files that the platform allows there, and unknown files in the signature's
  // folder.
  Outcome<void> checkSurroundings() const;

  // The name of `path`, which is below base, in the seals.
  std::string relative(const std::filesystem::path& path) const;
};

// The bundle whose main executable this file is; absent unless the file is at the place of an application's,
// a framework's or a flat bundle's main executable.
std::optional<Bundle> bundleOfMainExecutable(const std::filesystem::path& file);

}  // namespace lab

// Where a bundle keeps what: base, Info.plist, main executable, signature.
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
    flat        // everything in the root
  };

  Shape shape = Shape::flat;
  std::filesystem::path root;
  std::filesystem::path base;  // resource paths are relative to it
  std::filesystem::path infoPlist;
  std::filesystem::path mainExecutable;              // Info.plist itself when it names none
  std::filesystem::path signatureFolder;             // base/_CodeSignature
  std::vector<std::filesystem::path> otherVersions;  // of a versioned bundle, beside the current one

  // Finds the parts of the bundle at `root`, without following links but for Versions/Current.
  static Outcome<Bundle> read(const std::filesystem::path& root);

  // Refuses what stands unsealed around the base: anything beside Contents or Versions but links into the
  // current version and the plain files that the platform allows there, and strangers among the signature's
  // files.
  Outcome<void> checkSurroundings() const;

  // `path`, below base, as the seals name it.
  std::string relative(const std::filesystem::path& path) const;
};

// The bundle whose main executable this file is, when it stands where an application, a framework or a flat
// bundle keeps it.
std::optional<Bundle> bundleOfMainExecutable(const std::filesystem::path& file);

}  // namespace lab

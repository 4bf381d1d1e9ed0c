// Compares a bundle's files with the seals in its CodeResources.
#pragma once

#include <filesystem>
#include <functional>

#include "Bundle.h"
#include "CodeResources.h"

namespace lab {

// Verifies the nested code at a path against its seal.
using NestedCheck = std::function<Outcome<void>(const std::filesystem::path&, const ResourceSeal&)>;

// A bundle under verification, with the bundles that contain it.
struct ResourceScope {
  const Bundle* bundle = nullptr;
  const CodeResources* resources = nullptr;
  const ResourceScope* around = nullptr;  // null for the outermost bundle

  const Bundle& outermost() const { return around == nullptr ? *bundle : around->outermost(); }
};

// Everything below the bundle's base must match its seal; everything sealed must exist unless it is optional.
// Contents are never read through links; devices, pipes and sockets are refused without opening them. A
// link's target must be sealed, here or in a containing bundle; links into the platform's own folders can't
// be followed on this machine.
Outcome<void> checkResources(const ResourceScope& scope, const NestedCheck& checkNested);

// Refuses a file with a resource fork or Finder information, which no signature covers.
Outcome<void> checkSideband(const std::filesystem::path& file);

}  // namespace lab

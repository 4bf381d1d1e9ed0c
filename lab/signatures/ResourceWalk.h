// Compares a bundle's files with the seals in its CodeResources.
#pragma once

#include <filesystem>
#include <functional>

#include "Bundle.h"
#include "CodeResources.h"

namespace lab {

// Verifies the nested code at a path against its seal.
using NestedCheck = std::function<Outcome<void>(const std::filesystem::path&, const ResourceSeal&)>;

// A bundle that is being verified, inside of those that it is nested in.
struct ResourceScope {
  const Bundle* bundle = nullptr;
  const CodeResources* resources = nullptr;
  const ResourceScope* around = nullptr;  // null for the bundle that the verification began with

  const Bundle& outermost() const { return around == nullptr ? *bundle : around->outermost(); }
};

// Everything below the bundle's base must be sealed and as it was sealed; everything sealed must be there
// unless it is optional. Contents are never read through links; devices, pipes and sockets are refused
// unopened. A link must lead to something that a seal covers, here or in one of the bundles around; those
// into the platform's own folders can't be followed on this machine.
Outcome<void> checkResources(const ResourceScope& scope, const NestedCheck& checkNested);

// Refuses a file with a resource fork or Finder information, which no signature covers.
Outcome<void> checkSideband(const std::filesystem::path& file);

}  // namespace lab

// Compares a bundle's files with the seals in its CodeResources.
#pragma once

#include <filesystem>
#include <functional>

#include "Bundle.h"
#include "CodeResources.h"

namespace lab {

// Verifies the nested code at a path against its seal.
using NestedCheck = std::function<Outcome<void>(const std::filesystem::path&, const ResourceSeal&)>;

// Everything below the bundle's base must be sealed and as it was sealed; everything sealed must be there
// unless it is optional. Links are never followed; devices, pipes and sockets are refused unopened.
// `outermost` is the root of the bundle that the verification began with: no link may leave it, but those of
// nested code may lead to what stands beside that code.
Outcome<void> checkResources(const Bundle& bundle, const std::filesystem::path& outermost,
                             const CodeResources& resources, const NestedCheck& checkNested);

}  // namespace lab

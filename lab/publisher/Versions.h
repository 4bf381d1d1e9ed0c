// The versions of a package that a tree holds: the one on offer, and images that were published before.
// Blocks.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "publisher/Arguments.h"
#include "support/OrReason.h"

namespace lab {

// A line for each package of the configuration's release, or of one app: what is on offer, and which other
// images are there.
OrReason<std::vector<std::string>> listVersions(const PublishArguments& arguments);

// Puts an image that is still in its folder on offer again. Gives the folder. Checks what `publish` checks.
OrReason<std::filesystem::path> rollBack(const PublishArguments& arguments);

// Removes an image that isn't on offer. Gives its former place. Refuses the one on offer: without metadata,
// every installer in the field would take its source for retired.
OrReason<std::filesystem::path> withdraw(const PublishArguments& arguments);

}  // namespace lab

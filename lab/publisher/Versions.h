// The versions of a package in a tree: the one on offer, and the images of earlier publications. Blocks.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "publisher/Arguments.h"
#include "support/OrReason.h"

namespace lab {

// A line for each package of the configuration's release, or of one app: the version on offer, and the other
// images.
OrReason<std::vector<std::string>> listVersions(const PublishArguments& arguments);

// Offers an image that is still in its folder again, after the checks of `publish`. Returns the folder.
OrReason<std::filesystem::path> rollBack(const PublishArguments& arguments);

// Removes an image that isn't on offer and returns its former path. Refuses the one on offer: without its
// metadata, all installers would consider their source retired.
OrReason<std::filesystem::path> withdraw(const PublishArguments& arguments);

}  // namespace lab

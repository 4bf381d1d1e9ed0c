// Puts one package into a tree. Blocks.
#pragma once

#include <filesystem>

#include "publisher/Arguments.h"
#include "support/OrReason.h"

namespace lab {

// Gives the folder that now describes the package. A failure leaves the metadata as it was.
OrReason<std::filesystem::path> publish(const PublishArguments& arguments);

}  // namespace lab

// Puts one package into a tree. Blocks.
#pragma once

#include <filesystem>

#include "publisher/Arguments.h"
#include "support/OrReason.h"

namespace lab {

// Gives the folder that now describes the package. Readers see the package that was there before or this one,
// whole, whatever ends the process; a failure leaves everything as it was.
OrReason<std::filesystem::path> publish(const PublishArguments& arguments);

}  // namespace lab

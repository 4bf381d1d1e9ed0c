// Puts one package into a tree. Blocks.
#pragma once

#include <filesystem>

#include "publisher/Arguments.h"
#include "support/OrReason.h"

namespace lab {

// Returns the folder of the package. Readers see either the earlier package or this one, complete, also when
// the process is killed; a failure changes nothing. Where the file system can't exchange two folders, the
// files are replaced one after the other, the metadata last, and a kill or a failure can leave new notes with
// old metadata.
OrReason<std::filesystem::path> publish(const PublishArguments& arguments);

}  // namespace lab

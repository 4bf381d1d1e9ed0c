// Copies a file or a folder the way ditto does: with modes, times, links and attributes, merging into what is
// already there. Blocks.
//
// A link isn't followed, neither in the source nor on the way to it: who exchanges a name for a link while
// root copies gets a failure and not the link's target.
#pragma once

#include <filesystem>

#include "support/OrReason.h"

namespace lab {

enum class QuarantineMark { keep, drop };

// A folder's content goes into `destination`, which is created when missing, and then appears whole or not at
// all. A file goes to `destination`, or into it when that is a folder. Links are copied as links. A file or
// link replaces a file or link; where only one of the two is a folder, the copy fails. Owners are kept when
// root asks.
OrReason<> copyLikeDitto(const std::filesystem::path& source, const std::filesystem::path& destination,
                         QuarantineMark quarantine);

}  // namespace lab

// Copies a file or a folder like ditto: with modes, times, links and attributes, merging into an existing
// folder. Blocks.
//
// Links in the source or in its path aren't followed: if a name is replaced by a link while root copies, the
// copy fails and doesn't read the link's target.
#pragma once

#include <filesystem>

#include "support/OrReason.h"

namespace lab {

enum class QuarantineMark { keep, drop };

// A folder's content is copied into `destination`; a missing one is created, all or nothing. A file is copied
// to `destination`, or into it when that is a folder. Links are copied as links. A file or link replaces a
// file or link; when only one of the two is a folder, the copy fails. Root's copies keep the owners.
OrReason<> copyLikeDitto(const std::filesystem::path& source, const std::filesystem::path& destination,
                         QuarantineMark quarantine);

}  // namespace lab

// What a program said, for the log: the failure's own line often names no more than its status.
#pragma once

#include <string_view>

#include "Utils/Log.h"

namespace installer {

// One line at `info`, "{speaker}: {words}", whatever the words hold; none when there are none. Any thread.
// Never a warning: the digest of warnings holds the failure's own line.
void logToolWords(std::string_view speaker, std::string_view words,
                  std::source_location location = std::source_location::current());

}  // namespace installer

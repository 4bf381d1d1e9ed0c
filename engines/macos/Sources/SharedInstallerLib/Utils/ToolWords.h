// What a program said, for the log: the failure's own line often names no more than its status.
#pragma once

#include <string_view>

#include "Utils/Log.h"

namespace installer {

// One line, "{speaker}: {words}", whatever the words hold; none when there are none. Any thread.
void logToolWords(std::string_view speaker, std::string_view words, LogLevel level,
                  std::source_location location = std::source_location::current());

}  // namespace installer

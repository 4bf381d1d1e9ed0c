#include "Utils/ToolWords.h"

#include <fmt/format.h>

#include "Base/Text.h"

namespace installer {

void logToolWords(std::string_view speaker, std::string_view words, std::source_location location) {
  const auto line = oneLine(words);
  if (!line.empty()) log(fmt::format("{}: {}", speaker, line), LogLevel::info, location);
}

}  // namespace installer

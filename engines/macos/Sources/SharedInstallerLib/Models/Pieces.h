// Taking text apart. Stateless; any thread.
#pragma once

#include <string_view>
#include <vector>

namespace installer {

// What lies between the separators, in order, with empty pieces left out. Views into `text`.
std::vector<std::string_view> nonEmptyPieces(std::string_view text, char separator);

}  // namespace installer

// Reads a published tree as the engine would. Blocks.
#pragma once

#include <string>
#include <vector>

#include "publisher/Arguments.h"
#include "support/OrReason.h"

namespace lab {

struct TreeReport {
  std::vector<std::string> packages;   // a line for each sound one
  std::vector<std::string> problems;   // a line for each thing that is wrong
  std::vector<std::string> leftovers;  // a line for each hidden rest of a publication that was cut short
};

// Fails only when the tree can't be read at all.
OrReason<TreeReport> checkTree(const PublishArguments& arguments);

}  // namespace lab

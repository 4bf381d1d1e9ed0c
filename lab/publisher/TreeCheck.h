// Checks a published tree by the engine's rules. Blocks.
#pragma once

#include <string>
#include <vector>

#include "publisher/Arguments.h"
#include "support/OrReason.h"

namespace lab {

struct TreeReport {
  std::vector<std::string> packages;   // a line for each valid package
  std::vector<std::string> problems;   // a line for each fault
  std::vector<std::string> leftovers;  // a line for each hidden leftover of an interrupted publication
};

// Fails only when the tree can't be read at all.
OrReason<TreeReport> checkTree(const PublishArguments& arguments);

}  // namespace lab

// The output of `codesign` about code.
#pragma once

#include <string>

#include "Verifier.h"

namespace lab {

// One line for each slice that is signed under a test authority or valid only by tolerance. The lines don't
// depend on the verbosity: such code must not be mistaken for a release.
std::string cautions(const std::string& path, const CodeReport& report);

// The output of `-d`.
std::string description(const CodeReport& report, int verbosity);

}  // namespace lab

// What `codesign` writes about the code it looked at.
#pragma once

#include <string>

#include "Verifier.h"

namespace lab {

// One line for each slice that is vouched for by a test authority or valid only by tolerance. These lines
// are written whatever the verbosity: nobody may take such code for a release.
std::string cautions(const std::string& path, const CodeReport& report);

// The display of `-d`.
std::string description(const CodeReport& report, int verbosity);

}  // namespace lab

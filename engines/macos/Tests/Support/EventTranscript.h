// One short line of text per event of the protocol, so that a test compares a whole run at once.
#pragma once

#include <string>
#include <vector>

#include "Base/JSONReader.h"

namespace installer::test {

// For example
//   "log warn: message"
//   "stage brenna download 1/2"
//   "progress brenna 42.5% DOWNLOADING 425 of 1000" ("progress brenna ~85% VERIFYING" when indeterminate)
//   "app-result brenna installed /Applications/Brenna.app 2.0", "app-result brenna failed VERIFY_FAILED"
//   "done install 1: brenna installed /Applications/Brenna.app 2.0, tolvi cancelled"
// The line of any other event is its type.
std::string transcriptLine(const Json& event);
std::vector<std::string> transcript(const std::vector<Json>& events);

}  // namespace installer::test

// The grammar of both command lines once more, and what a process that ended shows of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Support/SimulatedStreams.h"

namespace installer::test {

using Tokens = std::vector<std::string>;  // without the program's name

// What a run on an offline machine comes to.
enum class End { usage, refused, done, silentRefused, silentDone };
End endOf(const Tokens& tokens);

// What a line of an unattended run asks for, names in lower case.
struct SilentLine {
  std::string mode = "install";
  std::vector<std::string> apps;
  bool opensApps = false;
  bool isStrict = false;
};
// The grammar of unattended runs, as a machine that waits for a value or for a flag. Absent for a line
// outside the grammar.
std::optional<SilentLine> silentLine(const Tokens& tokens);
// What an option of the other mode is worth: its last value that isn't an option itself. `name` is in lower
// case.
std::optional<std::string> optionIn(const Tokens& tokens, const std::string& name);
// The apps that a value of --apps names; absent when it names something else.
std::optional<std::vector<std::string>> appsIn(std::string_view value);

// How the run that has just ended with `status` looks from outside; absent when it looks like no stated end.
std::optional<End> endSeen(const SimulatedStreams& streams, std::int32_t status);

}  // namespace installer::test

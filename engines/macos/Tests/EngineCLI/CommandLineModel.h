// A second implementation of the grammar of both command lines, and the kinds of end of a process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Support/SimulatedStreams.h"

namespace installer::test {

using Tokens = std::vector<std::string>;  // without the program's name

// The kinds of end of a run on an offline machine.
enum class End { usage, refused, done, silentRefused, silentDone };
End endOf(const Tokens& tokens);

// The options of an unattended run, names in lower case.
struct SilentLine {
  std::string mode = "install";
  std::vector<std::string> apps;
  bool opensApps = false;
  bool isStrict = false;
};
// The grammar of unattended runs, as a state machine that expects a value or a flag. Absent for an invalid
// line.
std::optional<SilentLine> silentLine(const Tokens& tokens);
// The value of an option of the protocol mode: its last value that isn't an option itself. `name` is in lower
// case.
std::optional<std::string> optionIn(const Tokens& tokens, const std::string& name);
// The apps in a value of --apps; absent when it has another word.
std::optional<std::vector<std::string>> appsIn(std::string_view value);

// The kind of end of the run that has just ended with `status`, from its output; absent for any unspecified
// end.
std::optional<End> endSeen(const SimulatedStreams& streams, std::int32_t status);

}  // namespace installer::test

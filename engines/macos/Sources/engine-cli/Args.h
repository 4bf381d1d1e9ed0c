// The parsed command line of the protocol mode.
//
// Every option takes the next word as its value unless that begins with "--": there is no list of plain
// switches and no `--key=value`. So `extra` in `--offline extra` is a value, and `--out=/tmp/x` is a switch
// with that whole name.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace installer {

struct Args {
  // Names are in lower case without their leading dashes; values keep their case. The last value of a
  // repeated option is used; a later option without a value doesn't change it.
  std::map<std::string, std::string> values;
  std::set<std::string> switches;         // every option seen, with or without a value
  std::optional<std::string> subcommand;  // the first token, as typed, unless it begins with "--"

  // `tokens` are the words after the program's name.
  explicit Args(const std::vector<std::string>& tokens);

  std::optional<std::string> value(const std::string& name) const;
  bool has(const std::string& name) const { return switches.contains(name); }
};

}  // namespace installer

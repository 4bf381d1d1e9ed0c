// The command line of the protocol mode, taken apart.
//
// Every option takes a value if one can follow: there is no list of plain switches and no `--key=value`.
// So `--offline extra` swallows `extra`, and `--out=/tmp/x` is a switch of that whole name.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace installer {

struct Args {
  // Names stand without their leading dashes and in lower case; values keep their case. Of an option given
  // twice the last value stands, and a later bare one leaves it.
  std::map<std::string, std::string> values;
  std::set<std::string> switches;         // every option seen, with or without a value
  std::optional<std::string> subcommand;  // the first token, as typed, unless it begins with "--"

  // `tokens` are those after the program's name.
  explicit Args(const std::vector<std::string>& tokens);

  std::optional<std::string> value(const std::string& name) const;
  bool has(const std::string& name) const { return switches.contains(name); }
};

}  // namespace installer

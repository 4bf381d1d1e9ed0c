#include "Args.h"

#include "Base/Text.h"

namespace installer {

namespace {

bool isOption(const std::string& token) {
  return token.starts_with("--");
}

}  // namespace

Args::Args(const std::vector<std::string>& tokens) {
  if (!tokens.empty() && !isOption(tokens.front())) subcommand = tokens.front();
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    if (!isOption(tokens[i])) continue;
    const auto name = lowercased(tokens[i].substr(2));
    switches.insert(name);
    if (i + 1 < tokens.size() && !isOption(tokens[i + 1])) values[name] = tokens[++i];
  }
}

std::optional<std::string> Args::value(const std::string& name) const {
  const auto found = values.find(name);
  if (found == values.end()) return std::nullopt;
  return found->second;
}

}  // namespace installer

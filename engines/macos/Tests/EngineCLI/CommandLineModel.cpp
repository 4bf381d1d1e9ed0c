#include "EngineCLI/CommandLineModel.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "Utils/RunOptions.h"

namespace installer::test {

namespace {

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
  return text;
}

// The blanks of Unicode and the tab, in UTF-8.
bool takeBlank(std::string& text, bool atEnd) {
  constexpr std::array<std::string_view, 5> beginnings{"\t", " ", "\xC2\xA0", "\xE1\x9A\x80", "\xE3\x80\x80"};
  const auto length = [&](std::string_view piece) {
    return (atEnd ? text.ends_with(piece) : text.starts_with(piece)) ? piece.size() : 0;
  };
  std::size_t taken = 0;
  for (const auto blank : beginnings) taken = std::max(taken, length(blank));
  for (const char last : std::string_view{"\x80\x81\x82\x83\x84\x85\x86\x87\x88\x89\x8A\xAF"})
    taken = std::max(taken, length(std::string{"\xE2\x80"} + last));
  taken = std::max(taken, length("\xE2\x81\x9F"));
  text.erase(atEnd ? text.size() - taken : 0, taken);
  return taken > 0;
}

std::optional<std::string> appIn(std::string piece) {
  while (takeBlank(piece, false) || takeBlank(piece, true)) {
  }
  const auto name = lower(piece);
  const bool isApp = std::ranges::find(AppIdentifiers::allCases, name, [](AppIdentifier app) {
                       return rawValue(app);
                     }) != AppIdentifiers::allCases.end();
  return isApp ? std::optional{name} : std::nullopt;
}

}  // namespace

std::optional<std::vector<std::string>> appsIn(std::string_view value) {
  std::vector<std::string> apps;
  std::string piece;
  for (const char c : std::string{value} + ',') {
    if (c != ',') {
      piece += c;
      continue;
    }
    if (piece.empty()) continue;
    const auto app = appIn(std::exchange(piece, {}));
    if (!app) return std::nullopt;
    apps.push_back(*app);
  }
  return apps;
}

std::optional<SilentLine> silentLine(const Tokens& tokens) {
  SilentLine line;
  std::string awaited;
  bool sawSilent = false;
  for (const auto& token : tokens) {
    const auto word = lower(token);
    if (awaited == "--mode") line.mode = word;
    if (awaited == "--open-after-install") line.opensApps = word == "true";
    if (awaited == "--strict") line.isStrict = word == "true";
    const auto apps = awaited == "--apps" ? appsIn(token) : std::vector<std::string>{};
    if (!apps || (line.mode != "install" && line.mode != "uninstall")) return std::nullopt;
    line.apps.insert(line.apps.end(), apps->begin(), apps->end());
    const std::set<std::string> flags{"--mode", "--apps", "--strict", "--open-after-install"};
    sawSilent = sawSilent || (awaited.empty() && word == "--silent");
    awaited = awaited.empty() && flags.contains(word) ? word : "";
  }
  return sawSilent && awaited.empty() ? std::optional{line} : std::nullopt;
}

std::optional<std::string> optionIn(const Tokens& tokens, const std::string& name) {
  std::optional<std::string> value;
  for (std::size_t i = 0; i + 1 < tokens.size(); ++i) {
    if (lower(tokens[i]) == "--" + name && !tokens[i + 1].starts_with("--")) value = tokens[i + 1];
  }
  return value;
}

End endOf(const Tokens& tokens) {
  if (std::ranges::count(tokens, "--silent") > 0) {
    return silentLine(tokens) ? End::silentDone : End::silentRefused;
  }
  if (tokens.empty() || tokens.front().starts_with("--")) return End::usage;
  const std::set<std::string> plain{"hello", "disk-free", "export-logs"};
  if (plain.contains(tokens.front())) return End::done;
  const std::set<std::string> actions{"install", "update", "uninstall"};
  const bool isRun =
      tokens.front() == "run" && actions.contains(lower(optionIn(tokens, "action").value_or("")));
  if (!isRun && tokens.front() != "check-updates") return End::refused;
  return appsIn(optionIn(tokens, "apps").value_or("")) ? End::done : End::refused;
}

std::optional<End> endSeen(const SimulatedStreams& streams, std::int32_t status) {
  const auto events = streams.events();
  const auto told = streams.error();
  if (events.empty() && status != 3) {
    return status >= 0 && status <= 5 ? std::optional{End::silentDone} : std::nullopt;
  }
  if (events.empty() && told.starts_with("Usage: engine-cli <hello|")) return End::usage;
  if (events.empty() && told.contains(std::string{RunOptions::usageHint} + "\n")) return End::silentRefused;
  if (events.empty()) return std::nullopt;
  const auto& last = events.back();
  if (last["type"] == "done" && last["exitCode"] == status && status != 3) return End::done;
  const bool isRefusal = status == 3 && last["level"] == "error" && told.starts_with("Error: ");
  return isRefusal ? std::optional{End::refused} : std::nullopt;
}

}  // namespace installer::test

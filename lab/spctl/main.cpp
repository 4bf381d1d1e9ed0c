#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <span>

#include "Assessment.h"

namespace {

using namespace lab;

constexpr int kAccepted = 0;
constexpr int kUsage = 2;
constexpr int kRejected = 3;

constexpr const char* kHelp =
    R"(spctl --assess --type open [-v... | --verbose=LEVEL] --context context:primary-signature PATH...

Assesses disk images. Accepts an image with its own valid signature, under a Developer ID chain with a secure
timestamp. Notarization and revocation can't be checked on this machine.

The platform's roots are trusted. A test authority is trusted only if linux_host.json beside this program, or in
the folder above it, names one; the output then has a line about it.

Exit status: 0 accepted, 2 usage, 3 rejected.
)";

struct Arguments {
  bool help = false;
  bool assess = false;
  bool hasType = false;
  bool hasContext = false;
  int verbosity = 0;
  std::vector<std::filesystem::path> paths;
};

void say(const std::string& text) {
  std::fputs(text.c_str(), stderr);
}

// The value of "--name value" or "--name=value"; advances past the words that it read.
std::optional<std::string> valueOf(std::string_view name, std::span<const std::string> words,
                                   std::size_t& at) {
  const std::string& word = words[at];
  if (word == name && at + 1 < words.size()) return words[++at];
  if (word.starts_with(std::string(name) + "=")) return word.substr(name.size() + 1);
  return std::nullopt;
}

// The level after `word`, one of "-v", "-vv", ..., "--verbose" and "--verbose=DIGIT"; absent for another
// word.
std::optional<int> verbosityAfter(const std::string& word, int before) {
  if (word == "--verbose") return before + 1;
  if (word.starts_with("-v") && word.find_first_not_of('v', 1) == std::string::npos)
    return before + static_cast<int>(word.size()) - 1;
  if (word.starts_with("--verbose=") && word.size() == 11 &&
      std::isdigit(static_cast<unsigned char>(word.back())) != 0)
    return word.back() - '0';
  return std::nullopt;
}

Outcome<Arguments> ifComplete(Arguments arguments) {
  if (arguments.help) return arguments;
  if (!arguments.assess || !arguments.hasType || !arguments.hasContext)
    return refuse("use --assess --type open --context context:primary-signature");
  if (arguments.paths.empty()) return refuse("no path given");
  return arguments;
}

Outcome<Arguments> parse(std::span<const std::string> words) {
  Arguments arguments;
  for (std::size_t at = 0; at < words.size(); ++at) {
    const std::string word = words[at];
    if (word == "--help" || word == "-h") {
      arguments.help = true;
    } else if (word == "--assess" || word == "-a") {
      arguments.assess = true;
    } else if (const auto type = valueOf(word.starts_with("-t") ? "-t" : "--type", words, at)) {
      if (*type != "open") return refuse("only the type \"open\" can be assessed here");
      arguments.hasType = true;
    } else if (const auto context = valueOf("--context", words, at)) {
      if (*context != "context:primary-signature")
        return refuse("only the context \"context:primary-signature\" is known here");
      arguments.hasContext = true;
    } else if (const auto verbosity = verbosityAfter(word, arguments.verbosity)) {
      arguments.verbosity = *verbosity;
    } else if (word.starts_with('-')) {
      return refuse("unrecognized option {}", printable(word));
    } else {
      arguments.paths.emplace_back(word);
    }
  }
  return ifComplete(std::move(arguments));
}

bool assessOne(const Verifier& verifier, const std::filesystem::path& path, int verbosity) {
  const Assessment assessment = assess(verifier, path);
  const std::string name = printable(path.string());
  if (!assessment.accepted || verbosity > 0)
    say(name + ": " + (assessment.accepted ? "accepted" : "rejected") + "\n");
  say("source=" + assessment.source + "\n");
  if (!assessment.origin.empty() && verbosity > 0) say("origin=" + assessment.origin + "\n");
  if (assessment.accepted) say("note: notarization and revocation can't be evaluated on this machine\n");
  return assessment.accepted;
}

int run(std::span<const std::string> words) {
  const auto arguments = parse(words);
  if (!arguments) {
    say("error: " + arguments.error().reason + "\n");
    return kUsage;
  }
  if (arguments->help) {
    std::fputs(kHelp, stdout);
    return 0;
  }
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const Verifier verifier(Anchors::ofThisProgram(), now);
  if (!verifier.anchors().warning().empty()) say("warning: " + verifier.anchors().warning() + "\n");
  bool allAccepted = true;
  for (const auto& path : arguments->paths)
    allAccepted = assessOne(verifier, path, arguments->verbosity) && allAccepted;
  return allAccepted ? kAccepted : kRejected;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  return run(words);
}

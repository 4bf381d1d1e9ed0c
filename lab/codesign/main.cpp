#include <algorithm>
#include <chrono>
#include <cstdio>

#include "Arguments.h"
#include "Reports.h"
#include "Verifier.h"

namespace {

using namespace lab;

constexpr int kValid = 0;
constexpr int kInvalid = 1;
constexpr int kUsage = 2;
constexpr int kRequirementFailed = 3;

void say(const std::string& text) {
  std::fputs(text.c_str(), stderr);
}

// Absent when every slice meets the requirement, else the reason.
std::optional<std::string> unmet(const Requirement& requirement, const CodeReport& report) {
  for (const CodeFacts& slice : report.slices) {
    const auto met = meets(requirement, slice.subject());
    if (!met) return met.error().reason;
    if (!*met) return "code doesn't satisfy it";
  }
  return std::nullopt;
}

Outcome<bool> meetsItsOwn(const CodeFacts& slice) {
  if (!slice.designatedProblem.empty()) return refuse("{}", slice.designatedProblem);
  return slice.designated ? meets(*slice.designated, slice.subject()) : Outcome<bool>(true);
}

int checkOwnRequirement(const std::string& name, const CodeReport& report, int verbosity) {
  for (const CodeFacts& slice : report.slices) {
    const auto met = meetsItsOwn(slice);
    if (met && *met) continue;
    if (!met) {
      say(name + ": designated Requirement can't be evaluated here (" + met.error().reason + ")\n");
      return kValid;
    }
    say(name + ": does not satisfy its designated Requirement\n");
    // Ad hoc code has no signer to check, and some linkers write a stale identifier.
    return slice.isAdHoc() ? kValid : kRequirementFailed;
  }
  if (verbosity > 0) say(name + ": satisfies its Designated Requirement\n");
  return kValid;
}

int verify(const Verifier& verifier, const std::filesystem::path& path, const CodesignArguments& arguments) {
  const std::string name = printable(path.string());
  const auto report = verifier.verify(path);
  if (!report) {
    say(name + ": " + report.error().reason + "\n");
    return kInvalid;
  }
  if (arguments.verbosity > 0) say(name + ": valid on disk\n");
  say(cautions(name, *report));
  const int own = checkOwnRequirement(name, *report, arguments.verbosity);
  if (!arguments.requirement) return own;
  if (const auto why = unmet(*arguments.requirement, *report)) {
    say(name + ": test-requirement: code failed to satisfy specified code requirement(s): " + *why + "\n");
    return kRequirementFailed;
  }
  if (arguments.verbosity > 0) say(name + ": explicit requirement satisfied\n");
  return own;
}

int display(const Verifier& verifier, const std::filesystem::path& path, int verbosity) {
  const auto report = verifier.inspect(path);
  say(report ? description(*report, verbosity)
             : printable(path.string()) + ": " + report.error().reason + "\n");
  return report ? kValid : kInvalid;
}

int run(std::span<const std::string> words) {
  const auto arguments = parseCodesignArguments(words);
  if (!arguments) {
    say("error: " + arguments.error().reason + "\n");
    return kUsage;
  }
  using Operation = CodesignArguments::Operation;
  if (arguments->operation == Operation::help) {
    std::fputs(kCodesignHelp, stdout);
    return 0;
  }
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const Verifier verifier(Anchors::ofThisProgram(), now);
  if (!verifier.anchors().warning().empty()) say("warning: " + verifier.anchors().warning() + "\n");
  int worst = kValid;
  for (const auto& path : arguments->paths) {
    const int status = arguments->operation == Operation::display
                           ? display(verifier, path, arguments->verbosity)
                           : verify(verifier, path, *arguments);
    // An invalid signature is worse than an unmet requirement.
    if (status == kInvalid || worst == kValid) worst = status;
  }
  return worst;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  return run(words);
}

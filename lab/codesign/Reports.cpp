#include "Reports.h"

#include "Base/Text.h"

namespace lab {

namespace {

std::string trust(const CodeFacts& facts) {
  if (facts.isAdHoc()) return "none (ad hoc: no signer)";
  if (!facts.chain) return "not proven (" + facts.trustProblem + ")";
  if (facts.isVouchedForByTestAuthority()) {
    return fmt::format("test authority \"{}\" named by linux_host.json, not the platform's",
                       facts.chain->root().displayName());
  }
  return "platform root \"" + facts.chain->root().displayName() + "\"";
}

std::string describeSignature(const CodeFacts& facts) {
  std::string text;
  for (const Certificate& authority : facts.authorities)
    text += "Authority=" + authority.displayName() + "\n";
  if (facts.isAdHoc()) text += "Signature=adhoc\n";
  if (facts.timestamp) text += "Timestamp=" + showTime(*facts.timestamp) + "\n";
  if (!facts.timestamp && facts.claimedTime)
    text += "Signed Time=" + showTime(*facts.claimedTime) + " (claimed)\n";
  return text;
}

std::string describe(const CodeFacts& facts, int verbosity) {
  std::string text;
  if (!facts.architecture.empty()) text += "Architecture=" + facts.architecture + "\n";
  text += "Identifier=" + printable(facts.identifier) + "\n";
  text += fmt::format("CodeDirectory v={:x} flags={:#x}({})\n", facts.version, facts.flags,
                      flagNames(facts.flags));
  if (verbosity > 1) {
    for (std::size_t i = 0; i < facts.cdhashes.size(); ++i) {
      text += fmt::format("CandidateCDHash {}={}\n", nameOf(facts.hashTypes[i]),
                          installer::hexadecimal(facts.cdhashes[i]));
    }
  }
  text += "CDHash=" + installer::hexadecimal(facts.cdhash()) + "\n";
  text += describeSignature(facts);
  text += "TeamIdentifier=" + (facts.team.empty() ? "not set" : printable(facts.team)) + "\n";
  text += "Trust=" + trust(facts) + "\n";
  if (facts.expiredUnstamped) text += "Status=expired and unstamped\n";
  return text;
}

}  // namespace

std::string cautions(const std::string& path, const CodeReport& report) {
  std::string text;
  const CodeFacts& facts = report.slices.front();
  if (facts.isVouchedForByTestAuthority()) text += path + ": vouched for by the " + trust(facts) + "\n";
  for (const CodeFacts& slice : report.slices) {
    if (!slice.expiredUnstamped) continue;
    text += path + ": valid, but its certificate has expired and there is no secure timestamp\n";
    break;
  }
  return text;
}

std::string description(const CodeReport& report, int verbosity) {
  std::string text = "Executable=" + printable(report.executable.string()) + "\n";
  text += "Format=" + report.format + "\n";
  for (const CodeFacts& facts : report.slices) text += describe(facts, verbosity);
  return text;
}

}  // namespace lab

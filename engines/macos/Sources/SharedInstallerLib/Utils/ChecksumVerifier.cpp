#include "Utils/ChecksumVerifier.h"

#include <fmt/format.h>

#include "Base/Text.h"
#include "Platform/Machine.h"
#include "Utils/InstallerConfig.h"
#include "Utils/Log.h"

namespace installer {

namespace {

constexpr std::size_t kDigestLength = 64;     // characters
constexpr std::size_t kShownLength = 8;       // characters of a digest that the log shows
constexpr std::size_t kReadSize = 1'048'576;  // bytes; bounds the memory for an image of any size

// The SHA-256 in lower-case hexadecimal.
Result<std::string> digestOf(const Path& filePath) {
  const auto file = machine().files.openForReading(filePath);
  if (!file) return handOn(file);
  const auto digest = machine().digest.startSHA256();
  while (true) {
    const auto bytes = (*file)->read(kReadSize);
    if (!bytes) return handOn(bytes);
    if (bytes->empty()) break;
    digest->update(*bytes);
  }
  return hexadecimal(digest->finish());
}

// The result of one run of a tool.
struct ToolVerdict {
  std::optional<std::int32_t> status;  // absent when the tool couldn't be started
  bool passed() const { return status == 0; }
};

// The texts of one check's log lines.
struct ToolTexts {
  std::string_view launchFailure;  // followed by the error's description
  std::string output;              // followed by the tool's text
};

// The tool's status is the verdict; its text goes to the log only.
ToolVerdict runTool(const Path& program, const std::vector<std::string>& arguments, const ToolTexts& texts) {
  const auto exit = machine().processes.run(program, arguments, CapturedOutput::merged);
  if (!exit) {
    logError("{}: {}", texts.launchFailure, exit.error().localizedDescription);
    return {};
  }
  log("{}: {}", texts.output, isUTF8(exit->output) ? exit->output : "");
  return {exit->status};
}

}  // namespace

bool ChecksumVerifier::verifyFileChecksum(const Path& filePath, std::string_view expectedChecksum) {
  const auto expected = lowercased(trimmed(expectedChecksum));
  const auto length = characterCount(expected);
  if (length != kDigestLength) {
    logError("ERROR: Expected checksum length invalid (expected 64, got {})", length);
    return false;
  }
  const auto digest = digestOf(filePath);
  if (!digest) {
    logError("Error reading file for checksum verification: {}", digest.error().localizedDescription);
    return false;
  }
  if (*digest == expected) {
    log("Checksum verification PASSED");
    return true;
  }
  logError("Checksum verification FAILED — calculated: {}…, expected: {}…",
           firstCharacters(*digest, kShownLength), firstCharacters(expected, kShownLength));
  return false;
}

bool ChecksumVerifier::verifyGatekeeper(const Path& filePath) {
  const auto verdict =
      runTool(machine().paths.spctl,
              {"--assess", "--type", "open", "-vvv", "--context", "context:primary-signature", filePath},
              {.launchFailure = "Error verifying Gatekeeper", .output = "Gatekeeper verification output"});
  if (!verdict.status) return false;
  log(verdict.passed() ? "Gatekeeper verification result: Passed" : "Gatekeeper verification result: Failed");
  return verdict.passed();
}

bool ChecksumVerifier::verifySignature(const Path& filePath) {
  const auto verdict =
      runTool(machine().paths.codesign, {"--verify", "--strict", "-vv", filePath},
              {.launchFailure = "Error running codesign --verify", .output = "Signature integrity output"});
  if (!verdict.status) return false;
  if (!verdict.passed()) {
    logError("DMG signature failed integrity verification (codesign --verify exit {})", *verdict.status);
    return false;
  }
  return verifyCodeRequirement(filePath);
}

bool ChecksumVerifier::verifyCodeRequirement(const Path& filePath, const std::optional<std::string>& teamID) {
  const std::string team = teamID ? *teamID : InstallerConfig::expectedSigningTeamId();
  const auto file = lastPathComponent(filePath);
  if (team.empty()) {
    logWarn(
        "Signature requirement check SKIPPED for {} — expectedSigningTeamId is empty in installer_config.json. A release build must never ship in this state.",
        file);
    return true;
  }
  // With the leading "=", codesign reads a requirement's text and not a file's name.
  const auto requirement = "=anchor apple generic and certificate leaf[subject.OU] = " + team;
  const auto verdict =
      runTool(machine().paths.codesign, {"--verify", "--strict", "-vv", "-R", requirement, filePath},
              {.launchFailure = "Error evaluating the signing requirement",
               .output = fmt::format("Signature requirement output for {}", file)});
  if (!verdict.status) return false;
  if (verdict.passed()) return true;
  logError("{} does not satisfy the signing requirement (team {}) — codesign exit {}", file, team,
           *verdict.status);
  return false;
}

}  // namespace installer

#include "publisher/Signatures.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <stdlib.h>

#include "RequirementEvaluator.h"
#include "RequirementText.h"
#include "Verifier.h"
#include "diskimage/VolumeExtraction.h"
#include "support/Files.h"

namespace lab {

namespace {

// A scratch folder; its content may be read-only.
class Scratch {
 public:
  Scratch() {
    std::string name = (fs::temp_directory_path() / "lab-publish.XXXXXX").string();
    if (mkdtemp(name.data()) != nullptr) path_ = name;
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { static_cast<void>(removeTree(path_)); }  // failures are ignored: it is in the temporary folder

  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

// The option that trusts the root, for a failure about a root that isn't trusted.
std::string wayOut(const std::string& reason, const ExpectedTeam& team) {
  if (!reason.contains("trusted")) return "";
  if (team.testAuthority.empty()) return "; --test-authority names a root of your own";
  return reason.contains("time server") ? "; --timestamp-authority names that root" : "";
}

Outcome<Anchors> anchorsFor(const ExpectedTeam& team) {
  if (team.testAuthority.empty()) return Anchors::ofThisProgram();
  return Anchors::withRoots(team.testAuthority, team.timestampAuthority);
}

OrReason<> checkSigned(const Verifier& verifier, const Requirement& requirement, const ExpectedTeam& team,
                       const fs::path& path) {
  const auto name = path.filename().string();
  const auto report = verifier.verify(path);
  if (!report) {
    const auto& reason = report.error().reason;
    return because("the signature of {}: {}{}", name, reason, wayOut(reason, team));
  }
  for (const CodeFacts& slice : report->slices) {
    const auto met = meets(requirement, slice.subject());
    if (!met || !*met) return because("{} isn't signed by the expected team", name);
  }
  return {};
}

}  // namespace

OrReason<> checkSignatures(const fs::path& image, const ExpectedTeam& team) {
  const auto requirement = parseRequirement(
      fmt::format("anchor apple generic and certificate leaf[subject.OU] = \"{}\"", team.identifier));
  const auto isPlain = [](unsigned char c) { return std::isalnum(c) != 0; };
  if (!requirement || !std::ranges::all_of(team.identifier, isPlain))
    return because("'{}' isn't a team identifier", team.identifier);
  const auto anchors = anchorsFor(team);
  if (!anchors) return because("{}", anchors.error().reason);
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const Verifier verifier{*anchors, now};
  if (auto held = checkSigned(verifier, *requirement, team, image); !held) return held;
  const Scratch scratch;
  if (scratch.path().empty()) return because("no scratch folder can be made");
  const auto volume = extractVolume(image, scratch.path());
  if (!volume) return handOn(volume);
  for (const auto& entry : fs::directory_iterator{volume->folder}) {
    if (entry.path().extension() != ".app") continue;
    if (auto held = checkSigned(verifier, *requirement, team, entry.path()); !held) return held;
  }
  return {};
}

}  // namespace lab

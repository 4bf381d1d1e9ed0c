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

OrReason<> checkSigned(const Verifier& verifier, const Requirement& requirement, const fs::path& path) {
  const auto name = path.filename().string();
  const auto report = verifier.verify(path);
  if (!report) return because("the signature of {}: {}", name, report.error().reason);
  for (const CodeFacts& slice : report->slices) {
    const auto met = meets(requirement, slice.subject());
    if (!met || !*met) return because("{} isn't signed by the expected team", name);
  }
  return {};
}

}  // namespace

OrReason<> checkSignatures(const fs::path& image, const std::string& team) {
  const auto requirement =
      parseRequirement(fmt::format("anchor apple generic and certificate leaf[subject.OU] = \"{}\"", team));
  const auto isPlain = [](unsigned char c) { return std::isalnum(c) != 0; };
  if (!requirement || !std::ranges::all_of(team, isPlain))
    return because("'{}' isn't a team identifier", team);
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const Verifier verifier{Anchors::ofThisProgram(), now};
  if (auto held = checkSigned(verifier, *requirement, image); !held) return held;
  const Scratch scratch;
  if (scratch.path().empty()) return because("no scratch folder can be made");
  const auto volume = extractVolume(image, scratch.path());
  if (!volume) return std::unexpected(volume.error());
  for (const auto& entry : fs::directory_iterator{volume->folder}) {
    if (entry.path().extension() != ".app") continue;
    if (auto held = checkSigned(verifier, *requirement, entry.path()); !held) return held;
  }
  return {};
}

}  // namespace lab

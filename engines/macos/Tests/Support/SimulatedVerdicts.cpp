#include "Support/SimulatedVerdicts.h"

#include <algorithm>

namespace installer::test {

void SimulatedVerdicts::refuse(Check check, const Path& path, int status) {
  refusals_.push_back({check, path, status});
}

void SimulatedVerdicts::accept(Check check, const Path& path) {
  std::erase_if(refusals_, [&](const Refusal& one) { return one.check == check && one.path == path; });
}

void SimulatedVerdicts::installTools(SimulatedPrograms& programs, const Path& codesign, const Path& spctl) {
  programs.on(codesign).does([this](const Arguments& arguments) {
    const bool named = std::ranges::find(arguments, "-R") != arguments.end();
    return judge(named ? Check::requirement : Check::integrity, arguments);
  });
  programs.on(spctl).does([this](const Arguments& arguments) { return judge(Check::gatekeeper, arguments); });
}

ProgramExit SimulatedVerdicts::judge(Check check, const Arguments& arguments) const {
  const auto path = arguments.empty() ? Path{} : arguments.back();
  if (!files_.fileExists(path)) return {1, "", path + ": No such file or directory\n"};
  const auto found = std::ranges::find_if(
      refusals_, [&](const Refusal& one) { return one.check == check && one.path == path; });
  if (found == refusals_.end()) return {0, "", path + ": accepted\n"};
  return {found->status, "", path + ": rejected\n"};
}

}  // namespace installer::test

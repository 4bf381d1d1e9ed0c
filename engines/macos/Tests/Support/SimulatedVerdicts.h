// The `codesign` and `spctl` of the simulated machine: every existing item passes unless a test refuses it.
#pragma once

#include <string>
#include <vector>

#include "Support/SimulatedPrograms.h"

namespace installer::test {

class SimulatedVerdicts {
 public:
  explicit SimulatedVerdicts(SimulatedFileSystem& files) : files_{files} {}

  enum class Check {
    gatekeeper,   // spctl
    integrity,    // codesign without a requirement
    requirement,  // codesign with a requirement ("-R")
  };

  // Makes that check of that path exit with `status`.
  void refuse(Check check, const Path& path, int status = 3);
  void accept(Check check, const Path& path);

  void installTools(SimulatedPrograms& programs, const Path& codesign, const Path& spctl);

 private:
  struct Refusal {
    Check check;
    Path path;
    int status;
  };
  SimulatedFileSystem& files_;
  std::vector<Refusal> refusals_;

  ProgramExit judge(Check check, const Arguments& arguments) const;
};

}  // namespace installer::test

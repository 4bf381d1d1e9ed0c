// Programs with scripts. Each is a file of the simulated file system; one without a file or a script can't be
// started.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Platform/ProcessLauncher.h"
#include "Support/SimulatedDispatch.h"
#include "Support/SimulatedFileSystem.h"

namespace installer::test {

using Arguments = std::vector<std::string>;

// The behaviour of one program. "Next" behaviours are used first, one per start, in the order of their
// addition; then the lasting one, which is the latest that was set.
class ProgramScript {
 public:
  using Behaviour = std::function<Result<ProgramExit>(const Arguments&)>;

  ProgramScript& exits(int status, std::string output = {}, std::string errorOutput = {});
  ProgramScript& exitsNext(int status, std::string output = {}, std::string errorOutput = {});
  ProgramScript& cannotLaunch(std::string description);
  ProgramScript& cannotLaunchNext(std::string description);
  ProgramScript& does(std::function<ProgramExit(const Arguments&)> behaviour);
  ProgramScript& doesNext(std::function<ProgramExit(const Arguments&)> behaviour);
  // The virtual time that each later start takes before its effect.
  ProgramScript& takes(Duration duration);

 private:
  friend class SimulatedPrograms;
  Behaviour lasting_;
  std::deque<Behaviour> next_;
  Duration duration_{0};
};

class SimulatedPrograms : public ProcessLauncher {
 public:
  // One requested start, also a failed one.
  struct Start {
    Path program;
    Arguments arguments;
    CapturedOutput captured = CapturedOutput::none;
    bool launched = false;  // started by `launch`
  };

  SimulatedPrograms(SimulatedDispatch& dispatch, SimulatedFileSystem& files, FaultPlan& plan)
      : dispatch_{dispatch}, files_{files}, plan_{plan} {}

  // The script of the program at `path`, which becomes an executable file if there is none yet.
  ProgramScript& on(const Path& path);
  // Removes the file, so that it can't be started.
  void remove(const Path& path);

  const std::vector<Start>& starts() const { return starts_; }
  std::vector<Start> starts(const Path& program) const;
  // "hdiutil attach /x.dmg -plist": file name and arguments, separated by blanks; of all programs or of one.
  std::vector<std::string> commandLines() const;
  std::vector<std::string> commandLines(const Path& program) const;
  void forgetStarts() { starts_.clear(); }

  Result<ProgramExit> run(const Path& program, const std::vector<std::string>& arguments,
                          CapturedOutput captured) override;
  Result<> launch(const Path& program, const std::vector<std::string>& arguments) override;

 private:
  SimulatedDispatch& dispatch_;
  SimulatedFileSystem& files_;
  FaultPlan& plan_;
  std::map<Path, ProgramScript> scripts_;
  std::vector<Start> starts_;

  Result<ProgramExit> perform(const Path& program, const Arguments& arguments);
  Result<ProgramExit> performPlanned(const Path& program, const Arguments& arguments);
};

}  // namespace installer::test

// Programs that do what a script says. Each is a file of the simulated file system; one that isn't there, or
// has no script, can't be launched.
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

// What one program does when it is started. "Next" behaviours come first, one per start, in the order in
// which they were added; then the lasting one, which is the latest that was set.
class ProgramScript {
 public:
  using Behaviour = std::function<Result<ProgramExit>(const Arguments&)>;

  ProgramScript& exits(int status, std::string output = {}, std::string errorOutput = {});
  ProgramScript& exitsNext(int status, std::string output = {}, std::string errorOutput = {});
  ProgramScript& cannotLaunch(std::string description);
  ProgramScript& cannotLaunchNext(std::string description);
  ProgramScript& does(std::function<ProgramExit(const Arguments&)> behaviour);
  ProgramScript& doesNext(std::function<ProgramExit(const Arguments&)> behaviour);
  // How long each start from here on runs, in virtual time, before it does what it does.
  ProgramScript& takes(Duration duration);

 private:
  friend class SimulatedPrograms;
  Behaviour lasting_;
  std::deque<Behaviour> next_;
  Duration duration_{0};
};

class SimulatedPrograms : public ProcessLauncher {
 public:
  // One start, in the order in which they were asked for, failed ones included.
  struct Start {
    Path program;
    Arguments arguments;
    CapturedOutput captured = CapturedOutput::none;
    bool launched = false;  // started and forgotten
  };

  SimulatedPrograms(SimulatedDispatch& dispatch, SimulatedFileSystem& files)
      : dispatch_{dispatch}, files_{files} {}

  // The script of the program at `path`, which becomes an executable file if there is none yet.
  ProgramScript& on(const Path& path);
  // Takes the file away, so that it is neither executable nor launchable.
  void remove(const Path& path);

  const std::vector<Start>& starts() const { return starts_; }
  std::vector<Start> starts(const Path& program) const;
  // "hdiutil attach /x.dmg -plist": file name and arguments, separated by blanks; all, or one program's.
  std::vector<std::string> commandLines() const;
  std::vector<std::string> commandLines(const Path& program) const;
  void forgetStarts() { starts_.clear(); }

  Result<ProgramExit> run(const Path& program, const std::vector<std::string>& arguments,
                          CapturedOutput captured) override;
  Result<> launch(const Path& program, const std::vector<std::string>& arguments) override;

 private:
  SimulatedDispatch& dispatch_;
  SimulatedFileSystem& files_;
  std::map<Path, ProgramScript> scripts_;
  std::vector<Start> starts_;

  Result<ProgramExit> perform(const Path& program, const Arguments& arguments);
};

}  // namespace installer::test

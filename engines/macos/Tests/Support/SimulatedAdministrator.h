// The administrator's prompt. Grants by default.
//
// A granted command line runs as root on the simulated files. Supported are "/bin/rm -rf", "/usr/bin/ditto
// --noqtn" and "/usr/sbin/chown -R" joined by " && ", with shell quoting. Any other command ends the line
// with status 127.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/AdministratorScript.h"
#include "Support/SimulatedDispatch.h"
#include "Support/SimulatedFileSystem.h"

namespace installer::test {

class SimulatedAdministrator : public AdministratorScripts {
 public:
  SimulatedAdministrator(SimulatedDispatch& dispatch, SimulatedFileSystem& files, FaultPlan& plan)
      : dispatch_{dispatch}, files_{files}, plan_{plan} {}

  // The behaviour of the next calls, one verb per call in order. Later calls grant and run the command line.
  void grantsNext();
  void dismissesNext();                    // the user dismisses the prompt: -128
  void failsNext(int number);              // nothing runs; the error has this number
  void failsNextWithoutNumber();           // an error dictionary without a number
  void succeedsWithoutEffectNext();        // reports success although nothing ran
  void failsAfterRunningNext(int number);  // runs the command line and reports a failure
  void dismissesAlways(bool always = true) { dismissesAlways_ = always; }
  // The duration of each prompt and command, in virtual time.
  void takes(Duration duration) { duration_ = duration; }

  void cannotMakeScripts(bool cannot = true) { cannotMake_ = cannot; }
  void noTarget(bool none = true) { noTarget_ = none; }  // handlers can't be addressed

  // The record of the calls.
  std::size_t scriptsMade() const { return sources_.size(); }
  const std::vector<std::string>& sources() const { return sources_; }    // of the scripts, in order
  const std::vector<std::string>& handlers() const { return handlers_; }  // names called, in order
  // The shell's command lines in order, whether or not they were granted.
  const std::vector<std::string>& commandLines() const { return commandLines_; }
  bool calledOffMainThread() const { return calledOffMainThread_; }

  std::unique_ptr<AdministratorScript> make(const std::string& source) override;

 private:
  friend class SimulatedScript;
  struct Outcome {
    bool runs = false;   // the command line is run as root
    bool fails = false;  // the result is a failure in any case
    std::optional<int> number = {};
  };

  SimulatedDispatch& dispatch_;
  SimulatedFileSystem& files_;
  FaultPlan& plan_;
  std::deque<Outcome> next_;
  bool dismissesAlways_ = false;
  bool cannotMake_ = false;
  bool noTarget_ = false;
  bool calledOffMainThread_ = false;
  Duration duration_{0};
  std::vector<std::string> sources_;
  std::vector<std::string> handlers_;
  std::vector<std::string> commandLines_;

  ScriptErrorDictionary perform(const std::string& commandLine);
  void takePlannedFault(const std::string& commandLine);
  ScriptErrorDictionary settle(const Outcome& outcome, const std::string& commandLine);
  ScriptErrorDictionary runAsRoot(const std::string& commandLine);
  bool runCommand(const std::vector<std::string>& words);
};

// The words of a shell command line, by the shell's rules for single quotes, double quotes and backslashes.
// The word "&&" is kept as an operator.
std::vector<std::string> shellWords(const std::string& commandLine);

}  // namespace installer::test

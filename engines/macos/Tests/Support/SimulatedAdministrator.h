// The administrator's prompt: granted unless a test says otherwise.
//
// A granted command line really runs, as root, against the simulated files, as far as it consists of
// "/bin/rm -rf", "/usr/bin/ditto --noqtn" and "/usr/sbin/chown -R" joined by " && ", with shell quoting. Any
// other command ends the line with status 127.
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
  SimulatedAdministrator(SimulatedDispatch& dispatch, SimulatedFileSystem& files)
      : dispatch_{dispatch}, files_{files} {}

  // What the next call does, one verb per call in order; after those, the command line is granted and run.
  void grantsNext();
  void dismissesNext();                    // the person dismisses the prompt: -128
  void failsNext(int number);              // nothing runs; this error number
  void failsNextWithoutNumber();           // an error dictionary that says nothing of a number
  void succeedsWithoutEffectNext();        // reports success though nothing ran
  void failsAfterRunningNext(int number);  // runs the command line and reports a failure all the same
  void dismissesAlways(bool always = true) { dismissesAlways_ = always; }
  // How long each prompt and command takes, in virtual time.
  void takes(Duration duration) { duration_ = duration; }

  void cannotMakeScripts(bool cannot = true) { cannotMake_ = cannot; }
  void noTarget(bool none = true) { noTarget_ = none; }  // handlers can't be addressed

  // What happened.
  std::size_t scriptsMade() const { return sources_.size(); }
  const std::vector<std::string>& sources() const { return sources_; }    // of the scripts, in order
  const std::vector<std::string>& handlers() const { return handlers_; }  // names called, in order
  // The command lines as the shell got them, in order, whether or not they were granted.
  const std::vector<std::string>& commandLines() const { return commandLines_; }
  bool calledOffMainThread() const { return calledOffMainThread_; }

  std::unique_ptr<AdministratorScript> make(const std::string& source) override;

 private:
  friend class SimulatedScript;
  struct Outcome {
    bool runs = false;   // the command line is run as root
    bool fails = false;  // and reported as failed, whatever it did
    std::optional<int> number = {};
  };

  SimulatedDispatch& dispatch_;
  SimulatedFileSystem& files_;
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
  ScriptErrorDictionary settle(const Outcome& outcome, const std::string& commandLine);
  ScriptErrorDictionary runAsRoot(const std::string& commandLine);
  bool runCommand(const std::vector<std::string>& words);
};

// The words of a shell command line, by the shell's rules for single quotes, double quotes and backslashes.
// The word "&&" is kept as an operator.
std::vector<std::string> shellWords(const std::string& commandLine);

}  // namespace installer::test

// Command lines that run as administrator, their quoting, and the errors that call for one.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Base/Mutex.h"
#include "Base/Path.h"
#include "Platform/AdministratorScript.h"

namespace installer {

// How a command line that was to run as administrator ended.
enum class AdminOutcome {
  succeeded,  // it ran and exited with status 0
  cancelled,  // the prompt was dismissed; nothing ran
  failed,     // the authorization failed, the command exited non-zero, or the script could not run
};

// Runs one complete line for /bin/sh as administrator, asking for the password at most once per burst: the
// script object that the authorization belongs to lives as long as the process. Any thread; everything runs
// on the main thread, one command at a time, and the caller blocks until its end. The caller quotes the paths
// in the line.
AdminOutcome runAsAdministrator(const std::string& command);

// Reads the dictionary that a script execution left, and logs what it says. No dictionary is a success.
AdminOutcome adminOutcome(const ScriptErrorDictionary& scriptError);

// Text that goes into a command line for /bin/sh.
// One word for the shell, whatever it holds: in single quotes, each single quote inside written as '\''.
std::string shellQuoted(std::string_view text);

// A program's path as the first word of a command: as it stands when the shell would read it as such,
// quoted otherwise.
std::string shellProgram(std::string_view path);

// Removes whatever stands at `path`, with all beneath it, asking nothing.
std::string removalCommand(const Path& path);

// Which file errors are about permission. Told by domain and code, never by text.
// The one failure that the installer meets with an administrator prompt.
inline bool isNoWritePermission(const Error& error) {
  return error.is(ErrorDomain::cocoa, CocoaError::fileWriteNoPermission);
}

// The failures that the uninstaller takes for a missing permission: no write, no read, EPERM, EACCES.
inline bool isPermissionError(const Error& error) {
  return isNoWritePermission(error) || error.is(ErrorDomain::cocoa, CocoaError::fileReadNoPermission) ||
         error.is(ErrorDomain::posix, 1) || error.is(ErrorDomain::posix, 13);
}

// The one script object that all privileged command lines of the process go through, so that one granted
// authorization serves the whole burst.
class PrivilegedRunner {
 public:
  static PrivilegedRunner& shared();

  // Main thread; blocks until the command has ended or the prompt was dismissed.
  AdminOutcome run(const std::string& command);

 private:
  Mutex privilegedRunnerLock_;  // held across each execution, the fallback's included
  bool isMade_ GUARDED_BY(privilegedRunnerLock_) = false;
  // Made once; null when the platform couldn't make it.
  std::unique_ptr<AdministratorScript> script_ GUARDED_BY(privilegedRunnerLock_);

  AdministratorScript* privilegedRunner() REQUIRES(privilegedRunnerLock_);
};

}  // namespace installer

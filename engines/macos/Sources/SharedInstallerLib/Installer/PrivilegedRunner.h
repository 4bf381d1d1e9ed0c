// Command lines that run as administrator, their quoting, and the errors that require one.
#pragma once

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Base/Mutex.h"
#include "Base/Path.h"
#include "Platform/AdministratorScript.h"

namespace installer {

// The result of a command line as administrator.
enum class AdminOutcome {
  succeeded,  // it ran and exited with status 0
  cancelled,  // the prompt was dismissed; nothing ran
  failed,     // the authorization failed, the command exited non-zero, or the script could not run
};

// Runs one complete line for /bin/sh as administrator. Prompts at most once for a series of commands: the
// script object with the authorization exists as long as the process. Any thread; commands run on the main
// thread, one at a time, and the caller blocks until the end. The caller quotes the paths in the line.
AdminOutcome runAsAdministrator(const std::string& command);

// Reads and logs the error dictionary of a script execution. No dictionary is a success.
AdminOutcome adminOutcome(const ScriptErrorDictionary& scriptError);

// Any text as one word of a command line for /bin/sh: in single quotes, with '\'' for each single quote.
std::string shellQuoted(std::string_view text);

// A program's path as the first word of a command: unchanged if the shell reads it as one word, else quoted.
std::string shellProgram(std::string_view path);

// A command that removes the item at `path` and everything below it without confirmation.
std::string removalCommand(const Path& path);

// File errors about permission, identified by domain and code, never by text.
// The only failure after which the installer runs a command as administrator.
inline bool isNoWritePermission(const Error& error) {
  return error.is(ErrorDomain::cocoa, CocoaError::fileWriteNoPermission);
}

// The failures that the uninstaller treats as a missing permission: no write, no read, EPERM, EACCES.
inline bool isPermissionError(const Error& error) {
  return isNoWritePermission(error) || error.is(ErrorDomain::cocoa, CocoaError::fileReadNoPermission) ||
         error.is(ErrorDomain::posix, EPERM) || error.is(ErrorDomain::posix, EACCES);
}

// The script object of all privileged command lines of the process, so that one authorization is enough for a
// series of commands.
class PrivilegedRunner {
 public:
  static PrivilegedRunner& shared();

  // Main thread; blocks until the command has ended or the prompt was dismissed.
  AdminOutcome run(const std::string& command);

 private:
  Mutex privilegedRunnerLock_;  // held during each execution, also the fallback's
  bool isMade_ GUARDED_BY(privilegedRunnerLock_) = false;
  // Created once; null when the platform can't create it.
  std::unique_ptr<AdministratorScript> script_ GUARDED_BY(privilegedRunnerLock_);

  AdministratorScript* privilegedRunner() REQUIRES(privilegedRunnerLock_);
};

}  // namespace installer

// Starts the child processes of the engine and its host. The lab forks, so that a child ends with its parent.
// Any thread.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "Base/Error.h"
#include "Base/POSIX/FileDescriptor.h"
#include "Base/Path.h"

namespace installer {

struct SpawnRequest {
  Path program;                        // absolute
  std::vector<std::string> arguments;  // without the program's own name
  // The descriptors of the child's three streams; -1 is /dev/null. The caller still owns them.
  int input = -1;
  int output = -1;
  int errorOutput = -1;
  // A Ctrl-C at the terminal doesn't interrupt a child in its own process group.
  enum class Group { own, shared } group = Group::own;
  std::vector<std::string> extraEnvironment{};  // "NAME=value", before the variables of this process
};

// The child's process identifier, which the caller must wait for; or the errno of a failed start, and then
// there is no child. The child has the default signal dispositions, an empty signal mask and only the three
// descriptors.
Expected<pid_t, int> spawn(const SpawnRequest& request);

// Starts a program as a child of init, in its own session; it needs no wait. The three streams are /dev/null.
// The error is the errno of a failed start.
Expected<void, int> spawnDetached(const Path& program, const std::vector<std::string>& arguments);

// The seam's error for a failed start.
Error launchError(int number, const Path& program);

// Waits for the end of `child` and returns its status as a shell does: 128 + the signal's number if a signal
// ended it. `kUnknownExitStatus`, never a success, when other code has already reaped the child.
inline constexpr int kUnknownExitStatus = 255;
int waitForExit(pid_t child);
// The same for a status of `waitpid`.
int exitStatusOf(int waitStatus);

struct Pipe {
  FileDescriptor reading;
  FileDescriptor writing;
};
// Both ends are closed in every child. The ends are absent with errno set on failure.
Pipe makePipe();

}  // namespace installer

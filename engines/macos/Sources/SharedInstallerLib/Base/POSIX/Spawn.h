// Starts a child process; the one place that does.
#pragma once

#include <expected>
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
  // What becomes the child's three streams; -1 is /dev/null. The caller keeps its descriptors.
  int input = -1;
  int output = -1;
  int errorOutput = -1;
  // In a group of its own a Ctrl-C at the terminal doesn't reach the child.
  enum class Group { own, shared } group = Group::own;
  std::vector<std::string> extraEnvironment{};  // "NAME=value", put before what the process has
};

// The child's process identifier, to be waited for by the caller; or the errno of a start that failed, and
// then there is no child. The child has the default signal dispositions, an empty mask and no descriptors but
// the three.
std::expected<pid_t, int> spawn(const SpawnRequest& request);

// Starts a program without waiting for it: it belongs to init from the start, in a session of its own. The
// three streams are /dev/null. Absent errno means that it runs.
std::expected<void, int> spawnDetached(const Path& program, const std::vector<std::string>& arguments);

// The launch error that the engine sees.
Error launchError(int number, const Path& program);

// Waits for the end of `child` and gives its status as a shell would: 128 + the signal's number if one ended
// it. A status that other code has collected is never taken for a success.
inline constexpr int unknownExitStatus = 255;
int waitForExit(pid_t child);
// The same for what `waitpid` told.
int exitStatusOf(int waitStatus);

struct Pipe {
  FileDescriptor reading;
  FileDescriptor writing;
};
// Both ends closed in every child; absent ends with errno set on failure.
Pipe makePipe();

}  // namespace installer

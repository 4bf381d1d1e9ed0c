// A handle of one process by pidfd; it never refers to a later process with the same identifier.
#pragma once

#include <sys/types.h>

#include "Base/POSIX/FileDescriptor.h"

namespace installer {

// The current process with this identifier; invalid when there is none.
FileDescriptor holdProcess(pid_t process);

// True until the process has ended, also if it isn't reaped yet.
bool isRunning(const FileDescriptor& process);

// False with errno set; ESRCH when the process has ended.
bool signalProcess(const FileDescriptor& process, int signal);

}  // namespace installer

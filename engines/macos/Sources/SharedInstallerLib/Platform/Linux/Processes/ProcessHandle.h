// A hold on one process by pidfd, which a reused process identifier can't fool.
#pragma once

#include <sys/types.h>

#include "Base/POSIX/FileDescriptor.h"

namespace installer {

// The process that bears the number now; invalid when there is none.
FileDescriptor holdProcess(pid_t process);

// True until the process has ended, whether or not it was collected.
bool isRunning(const FileDescriptor& process);

// False with errno set, ESRCH when it has ended.
bool signalProcess(const FileDescriptor& process, int signal);

}  // namespace installer

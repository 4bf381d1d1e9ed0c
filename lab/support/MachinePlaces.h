// The settings of this program's machine, from the installer's bundle that contains the program.
#pragma once

#include "Base/POSIX/LinuxHostSettings.h"
#include "support/OrReason.h"

namespace lab {

// The content of `linux_host.json`, in the parent of this program's folder. The engine's reader reads it, so
// a file that the engine refuses is a failure here.
OrReason<installer::LinuxHostSettings> machine();

}  // namespace lab

// Where the machine's macOS-shaped places are, as the installer's bundle around this program says.
#pragma once

#include "Base/POSIX/LinuxHostSettings.h"
#include "support/OrReason.h"

namespace lab {

// What `linux_host.json` says, which is one folder above this program's own. The engine's own reader reads
// it, so a file that the engine refuses is a failure here.
OrReason<installer::LinuxHostSettings> machine();

}  // namespace lab

// The macOS machine: every service of the seam, each a thin translation to the system's own classes.
#pragma once

namespace installer {

struct Machine;

// The machine of this process, for `installMachine`. Call once, first thing in `main`, on the main thread.
// Ignores SIGPIPE. Never destroyed: workers may use it while the process exits.
Machine& makeDarwinMachine();

}  // namespace installer

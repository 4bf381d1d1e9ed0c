// The entry point of every host for the executable. The build selects the host.
#pragma once

namespace installer {

struct Machine;

// The machine of this process, for `installMachine`. Call once, at the start of `main`: the calling thread
// becomes the main thread, SIGPIPE is ignored, and a missing standard stream is replaced by /dev/null. A host
// whose settings are invalid writes one line to standard error and ends the process. Never destroyed: workers
// may use it while the process exits.
Machine& makeHostMachine();

}  // namespace installer

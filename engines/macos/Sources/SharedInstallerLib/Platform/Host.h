// The one thing that every host offers the executable. Which host that is, is the build's choice.
#pragma once

namespace installer {

struct Machine;

// The machine of this process, for `installMachine`. Call once, first thing in `main`: the calling thread
// becomes the main thread, SIGPIPE is ignored, and a standard stream that is missing is made a void one. A
// host whose own settings are invalid writes one line to standard error and ends the
// process. Never destroyed: workers may use it while the process exits.
Machine& makeHostMachine();

}  // namespace installer

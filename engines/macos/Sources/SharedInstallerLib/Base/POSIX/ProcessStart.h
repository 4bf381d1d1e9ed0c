// What a process has to set right about what it inherited, before it opens or starts anything.
#pragma once

namespace installer {

// Writing to a reader that has gone, or beyond the limit for the size of files, fails and doesn't end the
// process. The ends of children are reported also where the parent ignored those of its own. Programs that
// the engine starts inherit neither.
void settleSignals();

// A process started without one of the three streams would give its number to the next file it opens, and
// then write events into that. Each missing one becomes /dev/null.
void openMissingStreams();

}  // namespace installer

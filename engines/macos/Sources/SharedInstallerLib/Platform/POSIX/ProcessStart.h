// What a process has to set right about what it inherited, before it opens or starts anything.
#pragma once

namespace installer {

// A reader that went away costs its bytes and not the process; and a parent that didn't care for the ends of
// its children mustn't cost us those of ours. Programs that the engine starts inherit neither.
void settleSignals();

// A process started without one of the three streams would give its number to the next file it opens, and
// then write events into that. Each missing one becomes /dev/null.
void openMissingStreams();

}  // namespace installer

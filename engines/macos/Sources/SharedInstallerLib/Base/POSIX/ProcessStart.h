// Corrects the inherited signals and streams. Call before the process opens or starts anything.
#pragma once

namespace installer {

// Afterwards a write to a pipe without a reader, or beyond the file size limit, fails and doesn't end the
// process. The exits of children are reported, also when the parent process ignored SIGCHLD. Programs that
// the engine starts inherit neither setting.
void settleSignals();

// Opens /dev/null for each missing standard stream. Otherwise the next opened file would get the stream's
// number, and events would be written to it.
void openMissingStreams();

}  // namespace installer

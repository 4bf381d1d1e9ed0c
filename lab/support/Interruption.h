// Asking a lab program to stop, without leaving half a result behind.
//
// The signals that ask a program to end (HUP, INT, TERM) are blocked from the start of `main` and looked for
// at the places where stopping is safe; a child that is being waited for is ended at once.
#pragma once

#include <csignal>

namespace lab {

// Blocks the three signals and ignores SIGPIPE. Call before any thread or child exists.
void holdInterruptions();

// The signal that waits to be obeyed, or 0. It goes on waiting: every later call sees it too.
int interruption();

// The three signals.
sigset_t interruptingSignals();

// What a program that obeyed `signal` returns from `main`.
int exitStatusOf(int signal);

}  // namespace lab

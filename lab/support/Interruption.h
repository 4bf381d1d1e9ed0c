// Requests to stop a lab program, without a partial result.
//
// The signals that request a program's end (HUP, INT, TERM) are blocked from the start of `main` and checked
// where stopping is safe; a child that is waited for is ended at once.
#pragma once

#include <csignal>

namespace lab {

// Blocks the three signals and ignores SIGPIPE. Call before any thread or child exists.
void holdInterruptions();

// The pending signal, or 0. It stays pending, so every later call returns it too.
int interruption();

// The three signals.
sigset_t interruptingSignals();

// The exit status of a program that stopped after `signal`.
int exitStatusOf(int signal);

}  // namespace lab

// The only reader of standard input: one JSON object per line, each a command for the run that goes on.
//
// Known is `{"type": "cancel"}`, for the whole run, and with a key "app" for that app. Anything else costs a
// line in the log. Nothing is ever answered: a shell learns the outcome from the run's events. The end of the
// input cancels nothing; the run finishes on its own.
#pragma once

#include <memory>
#include <string_view>

namespace installer {

class EngineController;

// Detaches the listener's thread, which reads until the input ends and keeps the controller alive that long.
// The process ends without waiting for it.
void startStdinCommandListener(const std::shared_ptr<EngineController>& controller);

// Carries out one line. Any thread.
void obeyStdinLine(std::string_view line, EngineController& controller);

}  // namespace installer

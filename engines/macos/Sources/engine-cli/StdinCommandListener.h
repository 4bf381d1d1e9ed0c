// The only reader of standard input: one JSON object per line, each a command for the current run.
//
// The only command is `{"type": "cancel"}`, for the whole run, or with a key "app" for that app. Other lines
// are logged. There are no answers: the run's events show the effect. The end of the input cancels nothing.
#pragma once

#include <memory>
#include <string_view>

namespace installer {

class EngineController;

// Starts the listener's detached thread, which reads until the input ends and keeps the controller alive. The
// exit of the process doesn't wait for it.
void startStdinCommandListener(const std::shared_ptr<EngineController>& controller);

// Executes one line. Any thread.
void obeyStdinLine(std::string_view line, EngineController& controller);

}  // namespace installer

// What an event of the engine says about an app's progress, and in words for a person. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lab {

// A step of one app, as "stage", "progress" and "app-result" events tell it. What an event doesn't say is
// absent.
struct AppStep {
  std::string app;
  std::optional<std::string> stage;
  std::optional<double> percent;
  bool indeterminate = false;
  std::optional<double> downloadedBytes;
  std::optional<double> totalBytes;
  std::optional<std::string> status;   // the end: "installed", "failed", ...
  std::optional<std::string> outcome;  // the version, or what the error code means, that goes with the status
};

struct Event {
  std::optional<AppStep> step;
  std::optional<std::string> words;  // for any other event worth a line
  bool isRoutine = false;            // a log event of level `info`
};

// "12.3": millions.
std::string megabytes(double bytes);

// Nothing for a line that is no event of the engine.
std::optional<Event> parseEvent(std::string_view line);

// The text without control characters, so that it can't play with the terminal.
std::string harmless(std::string_view text);

}  // namespace lab

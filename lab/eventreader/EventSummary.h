// The content of an engine's event: an app's step, and words for a person. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lab {

// A step of one app, from a "stage", "progress" or "app-result" event. Values that the event doesn't have are
// absent.
struct AppStep {
  std::string app;
  std::optional<std::string> stage;
  std::optional<double> percent;
  bool indeterminate = false;
  std::optional<double> downloadedBytes;
  std::optional<double> totalBytes;
  // The result, with the version or the meaning of the error code: "installed 2.0", "failed: The download
  // failed. (...)".
  std::optional<std::string> status;
};

struct Event {
  std::optional<AppStep> step;
  std::optional<std::string> words;  // the line for another event
  bool isRoutine = false;            // a log event of level `info`
  bool isDone = false;               // the last event of a stream
};

// "12.3": millions.
std::string megabytes(double bytes);

// Absent for a line that isn't an event of the engine.
std::optional<Event> parseEvent(std::string_view line);

// The text without control characters, which could control the terminal.
std::string harmless(std::string_view text);

}  // namespace lab

// Standard output and error in memory, and standard input that a test feeds line by line.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/JSONReader.h"
#include "Base/Mutex.h"
#include "Platform/StandardStreams.h"
#include "Support/SimulatedDispatch.h"

namespace installer::test {

class SimulatedStreams : public StandardStreams {
 public:
  explicit SimulatedStreams(SimulatedDispatch& dispatch) : dispatch_{dispatch} {}

  std::string output() const;
  std::string error() const;
  std::vector<std::string> outputLines() const;
  std::vector<std::string> errorLines() const;
  // The lines of standard output that are JSON objects, in order. Other lines are skipped.
  std::vector<Json> events() const;
  std::vector<Json> events(std::string_view type) const;  // the events of that "type"
  void forgetOutput();

  // Adds a line of standard input, without its line feed, now or after `delay`. `readLine` blocks its
  // simulated thread until there is a line or the input is closed.
  void feedLine(std::string_view line);
  void feedLineAt(Duration delay, std::string_view line);
  void closeInput();
  void closeInputAt(Duration delay);

  // Later written bytes are lost, as after the end of the shell.
  void readerGoesAway() { readerGone_ = true; }

  void writeOutput(std::string_view bytes) override;
  void writeError(std::string_view bytes) override;
  std::optional<std::string> readLine() override;

 private:
  SimulatedDispatch& dispatch_;
  mutable Mutex writing_;  // guards both streams
  std::string output_ GUARDED_BY(writing_);
  std::string error_ GUARDED_BY(writing_);
  std::deque<std::string> input_;
  bool closed_ = false;
  bool readerGone_ = false;
  std::shared_ptr<SimulatedDispatch::Event> arrival_;

  void announce();
};

// `text` split at its line feeds, without an empty last line.
std::vector<std::string> linesOf(std::string_view text);

}  // namespace installer::test

// The board of progress bars: one line per app, in the order in which the apps first appeared.
// A value; one thread at a time.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "eventreader/EventSummary.h"

namespace lab {

// Colours and block characters, or plain ASCII.
enum class Look { terminal, plain };

using Moment = std::chrono::steady_clock::time_point;

class Board {
 public:
  explicit Board(Look look) : look_(look) {}

  // Applies a step that arrived at `now`. True when it begins a stage or ends an app, which is printed as a
  // line.
  bool apply(const AppStep& step, Moment now);

  // Ends the rows without a result, because the engine has ended without one.
  void abandon();

  // The app's stage or end: "brenna: download".
  std::string words(const std::string& app) const;

  // One line per app, without line feeds and at most `columns` wide.
  std::vector<std::string> lines(std::size_t columns) const;

 private:
  struct Row {
    std::string app;
    std::string stage;
    std::string detail;  // "12.3 of 45.6 MB, 7.8 MB/s", or the interruption of the download
    std::optional<std::pair<Moment, double>>
        began;  // the first measurement of the download: its time and bytes
    std::string status;
    double percent = 0;  // the highest so far
    bool indeterminate = false;
  };

  static void enterStage(Row& row, const std::string& stage);
  static void advance(Row& row, const AppStep& step, Moment now);
  static std::string detailOf(Row& row, const AppStep& step, Moment now);
  std::string bar(const Row& row) const;
  std::string draw(const Row& row, std::size_t columns) const;
  Row& rowOf(const std::string& app);

  Look look_;
  std::vector<Row> rows_;
};

}  // namespace lab

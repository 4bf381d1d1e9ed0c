// The board of progress bars: one line per app, in the order in which the apps first appeared.
// A value; one thread at a time.
#pragma once

#include <string>
#include <vector>

#include "eventreader/EventSummary.h"

namespace lab {

enum class Colours { on, off };

class Board {
 public:
  explicit Board(Colours colours) : colours_(colours) {}

  // Takes a step in. True when it begins a stage or ends an app: a change worth a line of its own.
  bool apply(const AppStep& step);

  // The app's line, without a line feed and at most `columns` wide.
  std::string line(const std::string& app, std::size_t columns) const;

  // All lines.
  std::vector<std::string> lines(std::size_t columns) const;

 private:
  struct Row {
    std::string app;
    std::string stage;
    std::string detail;
    std::string status;
    double percent = 0;
    bool indeterminate = false;
  };

  std::string draw(const Row& row, std::size_t columns) const;
  Row& rowOf(const std::string& app);

  Colours colours_;
  std::vector<Row> rows_;
};

}  // namespace lab

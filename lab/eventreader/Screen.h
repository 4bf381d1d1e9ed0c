// The reader's output: scrolling lines and, on a terminal, a board below them that is redrawn in place. One
// thread.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace lab {

class Screen {
 public:
  enum class Kind { plain, terminal };

  Screen(std::FILE* out, Kind kind) : out_(out), kind_(kind) {}

  // Prints a permanent line above the board.
  void print(const std::string& line);

  // The same in a faint colour, on a terminal.
  void printFaint(const std::string& line);

  // Replaces the board. Without a terminal there is no board.
  void show(std::vector<std::string> board);

  std::size_t columns() const;
  bool isTerminal() const { return kind_ == Kind::terminal; }

 private:
  void erase();
  void draw();

  std::FILE* out_;
  Kind kind_;
  std::vector<std::string> board_;
};

}  // namespace lab

#include "eventreader/Screen.h"

#include <fmt/format.h>
#include <sys/ioctl.h>

namespace lab {

void Screen::erase() {
  if (!board_.empty()) fmt::print(out_, "\033[{}A\r\033[J", board_.size());
}

void Screen::draw() {
  for (const std::string& line : board_) fmt::print(out_, "{}\n", line);
  std::fflush(out_);
}

void Screen::print(const std::string& line) {
  erase();
  fmt::print(out_, "{}\n", line);
  draw();
}

void Screen::printFaint(const std::string& line) {
  print(isTerminal() ? "\033[2m" + line + "\033[0m" : line);
}

void Screen::show(std::vector<std::string> board) {
  if (!isTerminal()) return;
  erase();
  board_ = std::move(board);
  draw();
}

std::size_t Screen::columns() const {
  winsize size{};
  if (!isTerminal() || ioctl(fileno(out_), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 1000;
  return size.ws_col;
}

}  // namespace lab

// lab-events: shows the engine's event stream to a person.
#include <iostream>
#include <string>
#include <unistd.h>

#include "eventreader/Board.h"
#include "eventreader/Screen.h"

namespace {

constexpr const char* usage = R"(usage: engine-cli ... | lab-events [--plain] [--raw]
Draws one progress bar per app from the engine's events on standard input. Lines that are no events pass through.
--plain  no escape codes, one line per stage and result; the way it is when standard output is no terminal
--raw    shows each event as it came, too
)";

struct Options {
  bool plain = false;
  bool raw = false;
};

void take(const std::string& line, const Options& options, lab::Board& board, lab::Screen& screen) {
  const auto event = lab::parseEvent(line);
  if (!event || options.raw) screen.printFaint(lab::harmless(line));
  if (!event) return;
  if (event->words) screen.print(*event->words);
  if (!event->step) return;
  const bool telling = board.apply(*event->step);
  if (screen.isTerminal())
    screen.show(board.lines(screen.columns()));
  else if (telling)
    screen.print(board.line(event->step->app, screen.columns()));
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--plain")
      options.plain = true;
    else if (word == "--raw")
      options.raw = true;
    else {
      const bool asked = word == "--help" || word == "-h";
      (asked ? std::cout : std::cerr) << usage;
      return asked ? 0 : 64;
    }
  }
  const bool terminal = !options.plain && isatty(STDOUT_FILENO) == 1;
  lab::Screen screen{stdout, terminal ? lab::Screen::Kind::terminal : lab::Screen::Kind::plain};
  lab::Board board{terminal ? lab::Colours::on : lab::Colours::off};
  std::ios::sync_with_stdio(false);
  for (std::string line; std::getline(std::cin, line);) take(line, options, board, screen);
  return 0;
}

// lab-events: shows the engine's event stream to a person.
#include <iostream>
#include <string>
#include <unistd.h>

#include "eventreader/Board.h"
#include "eventreader/Screen.h"
#include "support/CommandLine.h"

namespace {

struct Options {
  bool plain = false;
  bool events = false;
};

void take(const std::string& line, const Options& options, lab::Board& board, lab::Screen& screen) {
  const auto event = lab::parseEvent(line);
  if (!event || options.events) screen.printFaint(lab::harmless(line));
  if (!event) return;
  // On a terminal, the board shows the content of routine events.
  if (event->words && !(event->isRoutine && screen.isTerminal())) screen.print(*event->words);
  if (!event->step) return;
  const bool telling = board.apply(*event->step, std::chrono::steady_clock::now());
  if (screen.isTerminal())
    screen.show(board.lines(screen.columns()));
  else if (telling)
    screen.print(board.words(event->step->app));
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App program{
      "Draws one board from the engine's events on standard input: for each app a progress bar, the "
      "bytes and the rate, and\nits result. Other lines are printed unchanged.",
      "lab-events"};
  program.add_flag("--plain", options.plain,
                   "print a line per stage and result, without escape codes;\n"
                   "the default unless standard output is a terminal");
  program.add_flag("--events", options.events, "also show each event unchanged");
  program.footer("Example:\n  engine-cli run --action install --offline | lab-events --events");
  if (const auto ended = lab::readCommandLine(program, argc, argv)) return *ended;
  const bool terminal = !options.plain && isatty(STDOUT_FILENO) == 1;
  lab::Screen screen{stdout, terminal ? lab::Screen::Kind::terminal : lab::Screen::Kind::plain};
  lab::Board board{terminal ? lab::Look::terminal : lab::Look::plain};
  std::ios::sync_with_stdio(false);
  for (std::string line; std::getline(std::cin, line);) take(line, options, board, screen);
  return 0;
}

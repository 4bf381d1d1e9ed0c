// lab-events: shows the engine's event stream to a person.
#include <iostream>
#include <string>
#include <unistd.h>

#include "eventreader/Board.h"
#include "eventreader/Screen.h"

namespace {

constexpr const char* kUsage = R"(kUsage: engine-cli ... | lab-events [--plain] [--events]
Draws one board from the engine's events on standard input: for each app a progress bar, the bytes and the rate, and
its result. Other lines are printed unchanged.
--plain   prints one line per stage and result, without escape codes; the default unless standard output is a terminal
--events  also shows each event unchanged
)";

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
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--plain")
      options.plain = true;
    else if (word == "--events")
      options.events = true;
    else {
      const bool asked = word == "--help" || word == "-h";
      (asked ? std::cout : std::cerr) << kUsage;
      return asked ? 0 : 64;
    }
  }
  const bool terminal = !options.plain && isatty(STDOUT_FILENO) == 1;
  lab::Screen screen{stdout, terminal ? lab::Screen::Kind::terminal : lab::Screen::Kind::plain};
  lab::Board board{terminal ? lab::Look::terminal : lab::Look::plain};
  std::ios::sync_with_stdio(false);
  for (std::string line; std::getline(std::cin, line);) take(line, options, board, screen);
  return 0;
}

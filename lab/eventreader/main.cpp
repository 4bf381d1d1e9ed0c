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

class Reader {
 public:
  Reader(const Options& options, bool terminal)
      : options_{options},
        screen_{stdout, terminal ? lab::Screen::Kind::terminal : lab::Screen::Kind::plain},
        board_{terminal ? lab::Look::terminal : lab::Look::plain} {}

  void take(const std::string& line) {
    const auto event = lab::parseEvent(line);
    if (!event || options_.events) screen_.printFaint(lab::harmless(line));
    if (!event) return;
    // A refused command line ends with a log event only.
    if (event->step || event->isDone) incomplete_ = !event->isDone;
    // On a terminal, the board shows the content of routine events.
    if (event->words && !(event->isRoutine && screen_.isTerminal())) screen_.print(*event->words);
    if (event->step) take(*event->step);
  }

  void end() {
    if (!incomplete_) return;
    screen_.print("the engine ended unexpectedly");
    board_.abandon();
    screen_.show(board_.lines(screen_.columns()));
  }

 private:
  void take(const lab::AppStep& step) {
    const bool news = board_.apply(step, std::chrono::steady_clock::now());
    if (screen_.isTerminal())
      screen_.show(board_.lines(screen_.columns()));
    else if (news)
      screen_.print(board_.words(step.app));
  }

  const Options options_;
  lab::Screen screen_;
  lab::Board board_;
  bool incomplete_ = false;  // a run has begun, and `done` hasn't come
};

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
  Reader reader{options, terminal};
  std::ios::sync_with_stdio(false);
  for (std::string line; std::getline(std::cin, line);) reader.take(line);
  reader.end();
  return 0;
}

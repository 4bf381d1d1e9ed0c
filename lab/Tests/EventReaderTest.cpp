#include <fmt/format.h>

#include "Support.h"
#include "eventreader/Board.h"
#include "eventreader/EventSummary.h"

namespace lab {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

using Screenful = std::vector<std::string>;

// What a terminal shows of this output, before each redrawing of the board and at the end.
std::vector<Screenful> screensOf(std::string_view output) {
  std::vector<Screenful> screens;
  Screenful screen{""};
  std::size_t row = 0;
  for (std::size_t i = 0; i < output.size(); ++i) {
    if (output[i] == '\n') {
      if (++row == screen.size()) screen.emplace_back();
    } else if (output[i] == '\033') {
      const std::size_t end = output.find_first_of("AJm", i);
      if (output[end] == 'A') {
        screens.push_back(screen);
        row -= std::stoul(std::string{output.substr(i + 2, end - i - 2)});
      }
      if (output[end] == 'J') {
        screen.resize(row + 1);
        screen[row].clear();
      }
      i = end;
    } else if (output[i] != '\r') {
      screen[row] += output[i];
    }
  }
  screens.push_back(screen);
  return screens;
}

std::string transcript(const std::string& name) {
  return test::contentOf(std::string{TRANSCRIPTS} + "/" + name + ".jsonl");
}

class EventReader : public test::FolderTest {
 protected:
  // The screens of lab-events on a terminal.
  std::vector<Screenful> watch(const std::string& events) const {
    const std::string command =
        std::string{LAB_PROGRAMS} + "/lab-events < " + write("events", events).string();
    const auto [status, output, diagnostics] =
        run({"/usr/bin/script", "--quiet", "--return", "--command", command, "/dev/null"});
    EXPECT_EQ(status, 0) << diagnostics;
    return screensOf(output);
  }

  std::string read(const std::string& events, const std::string& options = "") const {
    write("events", events);
    return run({"/bin/sh", "-c",
                std::string{LAB_PROGRAMS} + "/lab-events " + options + " < " + (folder / "events").string()})
        .output;
  }
};

AppStep stepIn(const char* line) {
  const auto event = parseEvent(line);
  EXPECT_TRUE(event && event->step) << line;
  return event && event->step ? *event->step : AppStep{};
}

TEST(Board, FollowsAnAppFromStageToResult) {
  Board board{Look::plain};
  EXPECT_TRUE(board.apply(stepIn(R"({"type":"stage","app":"brenna","stage":"download","index":1,"total":2})"),
                          Moment{}));
  EXPECT_FALSE(board.apply(
      stepIn(
          R"({"type":"progress","app":"brenna","percent":50,"indeterminate":false,"detailArgs":{"downloadedBytes":1500000,"totalBytes":3000000}})"),
      Moment{}));
  EXPECT_THAT(board.lines(100),
              ElementsAre("brenna     [############............]  50%  download  1.5 of 3.0 MB"));
  EXPECT_TRUE(board.apply(stepIn(R"({"type":"stage","app":"tolvi","stage":"verify"})"), Moment{}));
  EXPECT_FALSE(
      board.apply(stepIn(R"({"type":"progress","app":"tolvi","percent":0,"indeterminate":true})"), Moment{}));
  EXPECT_TRUE(board.apply(
      stepIn(
          R"({"type":"app-result","app":"brenna","status":"installed","errorCode":null,"installedVersion":"2.0"})"),
      Moment{}));
  EXPECT_TRUE(board.apply(
      stepIn(R"({"type":"app-result","app":"tolvi","status":"failed","errorCode":"VERIFY_FAILED"})"),
      Moment{}));
  EXPECT_THAT(
      board.lines(100),
      ElementsAre("brenna     [========================] installed 2.0",
                  "tolvi      [------------------------] failed: The package is damaged. (VERIFY_FAILED)"));
}

TEST(Board, KeepsTheHighestPercentageAndReportsAnInterruption) {
  Board board{Look::plain};
  const auto after = [&](const char* line) {
    board.apply(stepIn(line), Moment{});
    return board.lines(100).front();
  };
  after(R"({"type":"stage","app":"rulo","stage":"download"})");
  after(
      R"({"type":"progress","app":"rulo","percent":50,"detailArgs":{"downloadedBytes":1500000,"totalBytes":3000000}})");
  EXPECT_EQ(after(R"({"type":"progress","app":"rulo","percent":0})"),
            "rulo       [############............]  50%  download  connection interrupted, trying again");
  EXPECT_EQ(
      after(
          R"({"type":"progress","app":"rulo","percent":40,"detailArgs":{"downloadedBytes":1200000,"totalBytes":3000000}})"),
      "rulo       [############............]  50%  download  1.2 of 3.0 MB");
  EXPECT_EQ(after(R"({"type":"stage","app":"rulo","stage":"verify"})"),
            "rulo       [~~~~~~~~~~~~~~~~~~~~~~~~]       verify");
  EXPECT_EQ(after(R"({"type":"progress","app":"rulo","percent":85,"indeterminate":true})"),
            "rulo       [~~~~~~~~~~~~~~~~~~~~~~~~]       verify");
  after(R"({"type":"app-result","app":"rulo","status":"installed","installedVersion":"2.0"})");
  EXPECT_EQ(after(R"({"type":"stage","app":"rulo","stage":"download"})"),
            "rulo       [........................]   0%  download");
}

TEST(Board, GivesNoNumberForARemoval) {
  Board board{Look::plain};
  board.apply(stepIn(R"({"type":"stage","app":"rulo","stage":"uninstall"})"), Moment{});
  board.apply(stepIn(R"({"type":"progress","app":"rulo","percent":100,"indeterminate":true})"), Moment{});
  EXPECT_THAT(board.lines(100), ElementsAre("rulo       [~~~~~~~~~~~~~~~~~~~~~~~~]       uninstall"));
  board.apply(stepIn(R"({"type":"app-result","app":"rulo","status":"skipped","errorCode":"SKIPPED"})"),
              Moment{});
  EXPECT_THAT(board.lines(1000), ElementsAre(HasSubstr("] skipped: This app came from the App Store.")));
}

TEST(Board, GivesTheRateOnceItIsMeasured) {
  using namespace std::chrono_literals;
  Board board{Look::plain};
  const auto at = [&](std::chrono::milliseconds time, int megabytesDone) {
    board.apply(
        stepIn(
            fmt::format(
                R"({{"type":"progress","app":"rulo","percent":10,"detailArgs":{{"downloadedBytes":{}000000,"totalBytes":90000000}}}})",
                megabytesDone)
                .c_str()),
        Moment{time});
    return board.lines(100).front();
  };
  EXPECT_THAT(at(0ms, 10), testing::EndsWith("10.0 of 90.0 MB"));
  EXPECT_THAT(at(100ms, 11), testing::EndsWith("11.0 of 90.0 MB"));
  EXPECT_THAT(at(2000ms, 14), testing::EndsWith("14.0 of 90.0 MB, 2.0 MB/s"));
}

TEST(Board, KeepsACodeWithoutWords) {
  Board board{Look::plain};
  board.apply(stepIn(R"({"type":"app-result","app":"rulo","status":"failed","errorCode":"LATER"})"),
              Moment{});
  EXPECT_THAT(board.lines(100), ElementsAre("rulo       [------------------------] failed: LATER"));
}

TEST(Board, FitsTheTerminalAndSurvivesOddNumbers) {
  Board board{Look::plain};
  for (const char* percent : {"-5", "250", "1e300"}) {
    board.apply(stepIn((std::string{R"({"type":"progress","app":"ä","percent":)"} + percent + "}").c_str()),
                Moment{});
    EXPECT_THAT(board.lines(12), ElementsAre(testing::StartsWith("ä ")));
  }
  EXPECT_THAT(board.lines(1), ElementsAre("ä"));
}

TEST(EventSummary, KnowsEventsFromOtherLines) {
  for (const char* line : {"", "plain", "[1]", "42", "{\"type\":3}", "{", "{\"v\":1}"}) {
    EXPECT_FALSE(parseEvent(line)) << line;
  }
  const auto unknown = parseEvent(R"({"type":"later-invention"})");
  ASSERT_TRUE(unknown);
  EXPECT_FALSE(unknown->words);
  EXPECT_FALSE(unknown->step);
}

TEST(EventSummary, PutsEventsIntoWords) {
  struct Row {
    const char* line;
    const char* words;
  };
  const std::vector<Row> rows{
      {R"({"type":"done","action":"install","exitCode":1})", "done: install, exit code 1"},
      {R"({"type":"log","level":"warn","message":"careful"})", "warn: careful"},
      {R"({"type":"disk-free-result","path":"/","freeBytes":2500000})", "/: 2.5 MB free"},
      {R"({"type":"disk-free-result","path":"/","freeBytes":null})", "/: free space unknown"},
      {R"({"type":"export-logs-result","path":"/a.zip","errorCode":null})", "log bundle: /a.zip"},
      {R"({"type":"export-logs-result","path":null,"errorCode":"UNKNOWN"})", "log bundle failed: UNKNOWN"},
      {R"({"type":"hello","engineVersion":"1.0.0","mode":"offline","apps":[{"displayName":"Kelo Rulo","installedVersion":"1.0","latestVersion":"2.0","updateAvailable":true}]})",
       "engine 1.0.0 (offline)\n  Kelo Rulo, installed 1.0, latest 2.0, update available"},
      {R"({"type":"update-check-result","apps":[{"id":"rulo","updateAvailable":false}]})",
       "latest versions\n  rulo"},
      {R"({"type":"update-check-result","apps":[{"id":"rulo","latestVersion":"2.0","releaseNotes":{"releases":[{"version":"2.0","notes":["Faster","Smaller"]},{"version":"1.0","notes":["New"]}]}}]})",
       "latest versions\n  rulo, latest 2.0\n    - Faster\n    - Smaller"},
      {R"({"type":"update-check-result","apps":[{"id":"rulo","releaseNotes":{"releases":[{"notes":["\u001b[2JFaster"]}]}}]})",
       "latest versions\n  rulo\n    - [2JFaster"},
      {R"({"type":"update-check-result","apps":[{"id":"rulo","releaseNotes":{"releases":7}}]})",
       "latest versions\n  rulo"},
      {R"({"type":"done","action":"update","exitCode":2,"installerRetired":{"reason":"source-unavailable","downloadUrl":"https://a/b"}})",
       "done: update, exit code 2\nthis installer is out of date (source-unavailable); a current one is at https://a/b"},
  };
  for (const Row& row : rows) {
    const auto event = parseEvent(row.line);
    ASSERT_TRUE(event) << row.line;
    EXPECT_EQ(event->words.value_or(""), row.words);
  }
}

TEST(EventSummary, KeepsControlCharactersFromTheTerminal) {
  EXPECT_EQ(harmless("a\033[31mb\tc\x7f\u009b1m\u00e9"), "a[31mbc1m\u00e9");
}

TEST_F(EventReader, IsPlainWithoutATerminal) {
  const std::string output = read(R"({"type":"stage","app":"brenna","stage":"download"}
{"type":"progress","app":"brenna","percent":50}
a word from the logger
{"type":"app-result","app":"brenna","status":"installed","installedVersion":"2.0"}
{"type":"done","action":"install","exitCode":0}
)");
  EXPECT_EQ(output,
            "brenna: download\n"
            "a word from the logger\n"
            "brenna: installed 2.0\n"
            "done: install, exit code 0\n");
}

TEST_F(EventReader, ShowsTheEventsThemselvesOnRequest) {
  const std::string event = R"({"type":"done","action":"install","exitCode":0})";
  EXPECT_EQ(read(event + "\n", "--events"), event + "\ndone: install, exit code 0\n");
  EXPECT_THAT(read("", "--help"), HasSubstr("Usage:"));
}

TEST_F(EventReader, ExpectsNoDoneAfterARefusedCommandLine) {
  EXPECT_THAT(read(transcript("bad-command-line")), Not(HasSubstr("unexpectedly")));
}

TEST_F(EventReader, ReportsAnEngineThatEndsWithoutDone) {
  EXPECT_EQ(read(R"({"type":"stage","app":"brenna","stage":"download"})"),
            "brenna: download\nthe engine ended unexpectedly\n");
  const std::string events = transcript("failure");
  EXPECT_THAT(
      watch(events.substr(0, events.find("{\"v\":1,\"type\":\"app-result\",\"app\":\"tolvi\""))).back(),
      Contains("tolvi      [────────────────────────] not finished"));
}

TEST_F(EventReader, RedrawsItsBoardInPlace) {
  const auto screens = watch(transcript("retry"));
  const std::string full = "[████████████████████████]";
  EXPECT_THAT(screens.back(),
              ElementsAre("done: install, exit code 0", "brenna     " + full + " installed 2.1", ""));
  EXPECT_THAT(screens, Contains(ElementsAre(HasSubstr("connection interrupted, trying again"), "")));
  EXPECT_THAT(screens, Contains(ElementsAre(HasSubstr("]  80%  download  31.5 of 31.5 MB"), "")));
  EXPECT_THAT(screens, Contains(ElementsAre(testing::EndsWith("]       install"), "")));
  EXPECT_THAT(
      watch(transcript("failure")).back(),
      ElementsAre("done: install, exit code 1",
                  "brenna     [────────────────────────] failed: The package is damaged. (VERIFY_FAILED)",
                  "rulo       [────────────────────────] failed: This installer doesn't contain this app. "
                  "(PACKAGE_NOT_FOUND)",
                  "tolvi      " + full + " installed 2.0", ""));
}

TEST_F(EventReader, TakesALastLineWithoutALineFeed) {
  EXPECT_EQ(read("cut off"), "cut off\n");
}

}  // namespace
}  // namespace lab

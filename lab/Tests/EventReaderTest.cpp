#include <fmt/format.h>

#include "Support.h"
#include "eventreader/Board.h"
#include "eventreader/EventSummary.h"

namespace lab {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class EventReader : public test::FolderTest {
 protected:
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

TEST_F(EventReader, IsPlainWhenNobodyWatches) {
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

TEST_F(EventReader, TakesALastLineWithoutALineFeed) {
  EXPECT_EQ(read("cut off"), "cut off\n");
}

}  // namespace
}  // namespace lab

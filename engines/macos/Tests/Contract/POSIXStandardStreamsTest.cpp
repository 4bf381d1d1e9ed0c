// The three streams. Each case runs in a child whose streams are pipes of the test.
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/Spawn.h"
#include "Contract/LinuxTestFolder.h"
#include "Platform/POSIX/POSIXStandardStreams.h"

namespace installer::test {
namespace {

std::string drained(const FileDescriptor& reading) {
  std::string all;
  std::string buffer(65536, '\0');
  for (;;) {
    const auto count = retryInterrupted([&] { return ::read(reading.get(), buffer.data(), buffer.size()); });
    if (count <= 0) return all;
    all.append(buffer, 0, static_cast<std::size_t>(count));
  }
}

// The lines that a child reads from `input`, each in brackets.
std::string bracketedLines(const std::string& input) {
  Pipe in = makePipe();
  Pipe out = makePipe();
  const pid_t child = startChild([&] {
    ::dup2(in.reading.get(), STDIN_FILENO);
    in = {};
    out.reading.reset();
    POSIXStandardStreams streams;
    while (const auto line = streams.readLine()) {
      if (!writeAll(out.writing.get(), "[" + *line + "]")) return 1;
    }
    return 0;
  });
  in.reading.reset();
  out.writing.reset();
  std::thread writer{[&] {
    EXPECT_TRUE(writeAll(in.writing.get(), input));
    in.writing.reset();
  }};
  std::string lines = drained(out.reading);
  writer.join();
  EXPECT_EQ(endOf(child), 0);
  return lines;
}

TEST(POSIXStreams, LinesEndAtLineFeedsAndTheLastMayLackOne) {
  EXPECT_EQ(bracketedLines(""), "");
  EXPECT_EQ(bracketedLines("\n"), "[]");
  EXPECT_EQ(bracketedLines("a\n\nb\r\n"), "[a][][b\r]");
  EXPECT_EQ(bracketedLines("a\nb"), "[a][b]");
}

TEST(POSIXStreams, ALineBeyondTheLimitArrivesEmpty) {
  const std::string limit(StandardStreams::kMaximumLineLength, 'x');
  EXPECT_TRUE(bracketedLines(limit + "\nnext\n") == "[" + limit + "][next]");
  EXPECT_TRUE(bracketedLines(limit) == "[" + limit + "]");
  EXPECT_EQ(bracketedLines(limit + "y\nnext\n"), "[][next]");
  EXPECT_EQ(bracketedLines(limit + "yyy\nnext\n"), "[][next]");
  EXPECT_EQ(bracketedLines(limit + limit + limit), "[]");
}

TEST(POSIXStreams, OutputArrivesWholeAlsoWhereTheOtherEndMadeItNonBlocking) {
  Pipe out = makePipe();
  ASSERT_EQ(::fcntl(out.writing.get(), F_SETFL, O_NONBLOCK), 0);
  const std::string bytes(3UL * 1024 * 1024, 'z');
  const pid_t child = startChild([&] {
    ::dup2(out.writing.get(), STDOUT_FILENO);
    out = {};
    POSIXStandardStreams{}.writeOutput(bytes);
    return 0;
  });
  out.writing.reset();
  EXPECT_TRUE(drained(out.reading) == bytes);
  EXPECT_EQ(endOf(child), 0);
}

TEST(POSIXStreams, LinesLongerThanAPipeTakesStayWholeWhenTwoThreadsWrite) {
  static constexpr int kRounds = 50;
  Pipe out = makePipe();
  const pid_t child = startChild([&] {
    ::dup2(out.writing.get(), STDOUT_FILENO);
    out = {};
    POSIXStandardStreams streams;
    const auto writeMany = [&](char letter) {
      for (int i = 0; i < kRounds; ++i) streams.writeOutput(std::string(200'000, letter) + '\n');
    };
    std::thread first{writeMany, 'a'};
    writeMany('b');
    first.join();
    return 0;
  });
  out.writing.reset();
  std::istringstream lines{drained(out.reading)};
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    ASSERT_TRUE(line == std::string(200'000, line.front())) << "line " << count << " is torn";
  }
  EXPECT_EQ(count, 2 * kRounds);
  EXPECT_EQ(endOf(child), 0);
}

TEST(POSIXStreams, AReaderThatWentAwayCostsTheBytesAndNothingElse) {
  EXPECT_EQ(inChild([] {
              ::signal(SIGPIPE, SIG_IGN);
              Pipe out = makePipe();
              ::dup2(out.writing.get(), STDOUT_FILENO);
              ::dup2(out.writing.get(), STDERR_FILENO);
              out = {};
              POSIXStandardStreams streams;
              streams.writeOutput("lost");
              streams.writeError("lost");
              return 7;
            }),
            7);
}

}  // namespace
}  // namespace installer::test

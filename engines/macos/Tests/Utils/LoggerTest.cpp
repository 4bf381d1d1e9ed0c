#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Support/SimulatedMachine.h"
#include "Utils/Logger.h"

namespace installer {
namespace {

using test::Lines;
using test::linesOf;
using test::Operation;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

const Error kRefusal{"NSCocoaErrorDomain", 513, "No permission.", nullptr};

class LogFile : public ::testing::Test {
 protected:
  test::SimulatedMachine mac;
  const Path directory = "/Users/tester/Library/Logs/Kelo-Desk-Installer";
  const Path file = joined(directory, "webinstall.log");
  const Path temporary = joined(directory, "temp_webinstall.log");

  void start() {
    Logger::shared();
    mac.dispatch.runUntilIdle();
  }
  void write(const std::string& message) {
    log(message);
    mac.dispatch.runUntilIdle();
  }
  std::string content() { return mac.files.read(file); }
  Lines lines() { return linesOf(content()); }
};

TEST_F(LogFile, BeginsWithTheSystemsFacts) {
  start();
  EXPECT_THAT(lines(), ElementsAre(EndsWith("] Logging initialized for Kelo WebInstaller"),
                                   EndsWith("] System: Version 14.5 (Build 23F79)"),
                                   EndsWith("] Architecture: ARM64")));
  EXPECT_EQ(mac.streams.output(), "Created log directory: " + directory + "\n");
  EXPECT_EQ(Logger::shared().logDirectoryPath(), directory);
  EXPECT_EQ(Logger::shared().currentLogFilePath(), file);
}

TEST_F(LogFile, NamesTheOtherArchitecture) {
  mac.systemInfo.machine = "x86_64";
  start();
  EXPECT_THAT(lines().back(), EndsWith("] Architecture: x86_64"));
}

TEST_F(LogFile, IsAppendedToByANewProcess) {
  mac.files.addFile(file, "earlier\n");
  start();
  EXPECT_EQ(lines().front(), "earlier");
  EXPECT_EQ(lines().size(), 4U);
  EXPECT_EQ(mac.streams.output(), "");
}

TEST_F(LogFile, HasOneLinePerEntryWithATagForAllLevelsButInfo) {
  mac.dispatch.setNow("2026-03-01T12:00:00Z");
  auto& logger = Logger::shared();
  logger.log("one", LogLevel::info, "/src/Utils/Some.cpp", 12, "detect");
  logger.log("two", LogLevel::warn, "Some.mm", 3, "init");
  logger.log("three", LogLevel::error, "Some.cpp", 4, "A::b");
  mac.dispatch.runUntilIdle();
  auto written = lines();
  written.erase(written.begin(), written.begin() + 3);
  const std::string time = R"(\[2026-0[0-9]-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3}\] )";
  EXPECT_THAT(written, ElementsAre(MatchesRegex(time + R"(\[Some\.cpp:12 detect\] one)"),
                                   MatchesRegex(time + R"(\[WARN\] \[Some\.mm:3 init\] two)"),
                                   MatchesRegex(time + R"(\[ERROR\] \[Some\.cpp:4 A::b\] three)")));
  EXPECT_EQ(content().back(), '\n');
}

TEST_F(LogFile, NamesTheCallersPlace) {
  start();
  log("from here");
  const auto line = std::to_string(__LINE__ - 1);
  logWarn("from there");
  mac.dispatch.runUntilIdle();
  const auto written = lines();
  EXPECT_THAT(written[3], HasSubstr("[LoggerTest.cpp:" + line + " "));
  EXPECT_THAT(written[3], EndsWith("TestBody] from here"));
  EXPECT_THAT(written[4], HasSubstr("[WARN] [LoggerTest.cpp:"));
}

TEST_F(LogFile, CarriesTheTimeOfWriting) {
  start();
  mac.dispatch.setNow("2026-03-05T12:00:00Z");
  log("late");
  mac.dispatch.setNow("2026-03-07T12:00:00Z");
  mac.dispatch.runUntilIdle();
  EXPECT_THAT(lines().back(), HasSubstr("[2026-03-07 "));
}

TEST_F(LogFile, DoesNotEscapeALineBreak) {
  start();
  write("first\nsecond");
  EXPECT_THAT(lines()[3], EndsWith("] first"));
  EXPECT_EQ(lines()[4], "second");
}

TEST_F(LogFile, StaysUTF8) {
  start();
  Logger::shared().setEchoToStandardError(true);
  write("--apps caf\xe9,\xff");
  EXPECT_THAT(lines().back(), EndsWith("] --apps caf\uFFFD,\uFFFD"));
  EXPECT_THAT(mac.streams.error(), EndsWith("] --apps caf\uFFFD,\uFFFD\n"));
}

TEST_F(LogFile, IsEchoedWithoutPlacesWhenAsked) {
  start();
  EXPECT_EQ(mac.streams.error(), "");
  Logger::shared().setEchoToStandardError(true);
  log("one");
  logWarn("two");
  logError("three");
  mac.dispatch.runUntilIdle();
  EXPECT_THAT(mac.streams.errorLines(), ElementsAre(MatchesRegex(R"(\[[-0-9]+ [:.0-9]+\] one)"),
                                                    MatchesRegex(R"(\[[-0-9]+ [:.0-9]+\] \[WARN\] two)"),
                                                    MatchesRegex(R"(\[[-0-9]+ [:.0-9]+\] \[ERROR\] three)")));
}

TEST_F(LogFile, KeepsTheOrderOfOneThreadsCalls) {
  start();
  mac.dispatch.runOnWorker([] {
    for (int entry = 0; entry < 100; ++entry) log(std::to_string(entry));
  });
  mac.dispatch.runUntilIdle();
  const auto written = lines();
  ASSERT_EQ(written.size(), 103U);
  for (std::size_t entry = 0; entry < 100; ++entry) {
    EXPECT_THAT(written[3 + entry], EndsWith("] " + std::to_string(entry)));
  }
}

TEST_F(LogFile, ThatAnotherProcessMadeJustNowIsNotReplaced) {
  mac.files.failNext(Operation::move, file, {"NSCocoaErrorDomain", 516, "It exists.", nullptr});
  start();
  EXPECT_THAT(mac.files.tree(directory), IsEmpty());
  EXPECT_THAT(mac.streams.output(), HasSubstr("Error opening log file: "));
}

TEST_F(LogFile, IsMadeWithoutLeavingAnythingBesideIt) {
  start();
  EXPECT_THAT(mac.files.tree(directory), ElementsAre("webinstall.log"));
}

TEST_F(LogFile, ThatAKilledProcessWasMakingIsMadeWithoutLeavingAnythingBesideIt) {
  mac.files.failNext(Operation::move, file, {"NSCocoaErrorDomain", 512, "Failed.", nullptr});
  mac.files.failNext(Operation::remove, file + ".new", {"NSCocoaErrorDomain", 512, "Failed.", nullptr});
  start();
  EXPECT_THAT(mac.files.tree(directory), ElementsAre("webinstall.log.new"));
  mac.startNextProcess();
  start();
  EXPECT_THAT(mac.files.tree(directory), ElementsAre("webinstall.log"));
}

TEST_F(LogFile, IsDoneWithoutWhenItsDirectoryCannotBeMade) {
  mac.files.failAlways(Operation::createDirectory, directory, kRefusal);
  start();
  write("lost");
  EXPECT_EQ(mac.streams.output(), "Error creating log directory: No permission.\n");
  EXPECT_FALSE(mac.files.exists(directory));
}

TEST_F(LogFile, IsStillEchoedWithoutADirectory) {
  mac.files.failAlways(Operation::createDirectory, directory, kRefusal);
  Logger::shared().setEchoToStandardError(true);
  write("heard");
  EXPECT_THAT(mac.streams.error(), EndsWith("] heard\n"));
}

TEST_F(LogFile, IsDoneWithoutWhenItCannotBeOpened) {
  mac.files.addFile(file, "earlier\n");
  mac.files.failAlways(Operation::openForAppending, file, kRefusal);
  start();
  write("lost");
  EXPECT_EQ(mac.streams.output(), "Error opening log file: No permission.\n");
  EXPECT_EQ(content(), "earlier\n");
}

TEST_F(LogFile, LosesOnlyTheLineThatCouldNotBeWritten) {
  start();
  mac.files.failNext(Operation::append, file, {"NSCocoaErrorDomain", 640, "Disk full.", nullptr});
  write("lost");
  write("kept");
  EXPECT_THAT(mac.streams.output(), EndsWith("\nError writing to log file: Disk full.\n"));
  EXPECT_EQ(lines().size(), 4U);
  EXPECT_THAT(lines().back(), EndsWith("] kept"));
}

TEST_F(LogFile, OfExactlyTheLimitIsNotCut) {
  start();
  mac.files.addFile(file, std::string(512000, 'x'));
  write("entry");
  EXPECT_GE(content().size(), 512000U);
  EXPECT_EQ(content().substr(0, 512000), std::string(512000, 'x'));
  EXPECT_FALSE(mac.files.exists(temporary));
}

TEST_F(LogFile, OfOneByteMoreIsCutToItsNewerHalfAtTheNextEntry) {
  start();
  mac.files.addFile(file, std::string(256001, 'o') + std::string(256000, 'n'));
  write("entry");
  EXPECT_EQ(content().substr(0, 256000), std::string(256000, 'n'));
  EXPECT_THAT(
      linesOf(content().substr(256000)),
      ElementsAre(EndsWith("] entry"), EndsWith("] Log file rotated due to size threshold (512 KB)")));
  EXPECT_FALSE(mac.files.exists(temporary));
  EXPECT_EQ(mac.streams.output(), "Created log directory: " + directory + "\n");
}

TEST_F(LogFile, IsCutEvenInTheMiddleOfACharacter) {
  start();
  const std::string tail(255999, 'n');
  mac.files.addFile(file, std::string(300000, 'o') + "\xc3\xa9" + tail);
  write("entry");
  EXPECT_EQ(content().substr(0, 256000), "\xa9" + tail);
}

TEST_F(LogFile, LeftLargeByAnotherProcessIsCutAtTheStart) {
  mac.files.addFile(file, std::string(600000, 'x'));
  start();
  EXPECT_EQ(content().substr(0, 256000), std::string(256000, 'x'));
  EXPECT_THAT(
      linesOf(content().substr(256000)),
      ElementsAre(EndsWith("Kelo WebInstaller"), HasSubstr("] System: "), HasSubstr("] Architecture: "),
                  EndsWith("] Log file rotated due to size threshold (600 KB)")));
}

TEST_F(LogFile, StartsAnewWhenItsNewerHalfCannotBeSaved) {
  const struct {
    Operation operation;
    const Path& path;
    bool leavesTemporary;
  } rows[] = {{Operation::remove, file, true}, {Operation::move, file, true}};
  start();
  for (const auto& row : rows) {
    mac.files.addFile(file, std::string(512001, 'x'));
    mac.streams.forgetOutput();
    mac.files.failNext(row.operation, row.path, kRefusal);
    write("entry");
    EXPECT_EQ(mac.streams.output(), "Error rotating log file: No permission.\n");
    EXPECT_THAT(lines(), ElementsAre(EndsWith("] entry"), HasSubstr("] Log file rotated")));
    EXPECT_EQ(mac.files.exists(temporary), row.leavesTemporary);
  }
}

TEST_F(LogFile, StartsAnewWhenTheTemporaryFileCannotBeWritten) {
  start();
  mac.files.addFile(file, std::string(512001, 'x'));
  mac.files.failAlways(Operation::writeFile, temporary, kRefusal);
  write("entry");
  EXPECT_THAT(mac.streams.output(), EndsWith("\nError rotating log file: No permission.\n"));
  EXPECT_THAT(lines(), ElementsAre(EndsWith("] entry"), HasSubstr("] Log file rotated")));
}

TEST_F(LogFile, ThatCannotBeReadIsNotCutAndReportsThatOncePerEntry) {
  start();
  mac.files.addFile(file, std::string(512001, 'x'));
  mac.files.failAlways(Operation::readFile, file, kRefusal);
  write("entry");
  EXPECT_THAT(linesOf(content().substr(512001)), ElementsAre(EndsWith("] entry"), HasSubstr("rotated")));
  EXPECT_EQ(content().substr(0, 512001), std::string(512001, 'x'));
}

TEST_F(LogFile, IsNotCutForEverWhenItCannotBeCut) {
  start();
  mac.files.addFile(file, std::string(512001, 'x'));
  for (const auto operation : {Operation::writeFile, Operation::move}) {
    mac.files.failAlways(operation, file, kRefusal);
    mac.files.failAlways(operation, temporary, kRefusal);
  }
  write("entry");
  EXPECT_THAT(mac.streams.outputLines(),
              ::testing::Contains("Error rotating log file: No permission.").Times(1));
}

TEST_F(LogFile, ThatWasDeletedIsNeitherMadeAnewNorCut) {
  start();
  mac.files.erase(file);
  write(std::string(600000, 'x'));
  write("entry");
  EXPECT_FALSE(mac.files.exists(file));
  EXPECT_EQ(mac.streams.output(), "Created log directory: " + directory + "\n");
}

TEST_F(LogFile, ThatAnotherProcessReplacedIsTakenUpBeforeTheNextEntry) {
  start();
  mac.files.erase(file);
  mac.files.addFile(file, "another's newer half\n");
  write("entry");
  EXPECT_THAT(lines(), ElementsAre("another's newer half", EndsWith("] entry")));
}

TEST_F(LogFile, ThatAnotherProcessCutMeanwhileIsNotCutAgain) {
  start();
  mac.files.addFile(file, std::string(512001, 'x'));
  mac.files.setLockedByAnother(directory);
  mac.dispatch.asyncMainAfter(Duration{0.5}, [&] {
    mac.files.addFile(file, "another's newer half\n");
    mac.files.setLockedByAnother(directory, false);
  });
  log("entry");
  mac.dispatch.runMainLoop(Duration{2});
  EXPECT_THAT(lines(), ElementsAre("another's newer half", EndsWith("] entry")));
}

TEST_F(LogFile, IsWrittenWithoutALockThatIsNeverReleased) {
  start();
  mac.files.setLockedByAnother(directory);
  log("late");
  mac.dispatch.runMainLoop(Duration{0.9});
  EXPECT_EQ(lines().size(), 3U);
  mac.dispatch.runMainLoop(Duration{0.2});
  EXPECT_THAT(lines()[3], EndsWith("] late"));
  write("at once");
  EXPECT_THAT(lines()[4], EndsWith("] at once"));
}

TEST_F(LogFile, IsWrittenWhereNoLockCanBeHad) {
  mac.files.addDirectory(directory);
  mac.files.failAlways(Operation::lock, directory, kRefusal);
  start();
  write("entry");
  EXPECT_EQ(mac.dispatch.elapsed(), Duration{0});
  EXPECT_THAT(lines().back(), EndsWith("] entry"));
  EXPECT_EQ(mac.streams.output(), "");
}

TEST_F(LogFile, ThatAKilledRotationLeftBesideItsNameIsTakenUp) {
  mac.files.addFile(temporary, "newer half\n");
  start();
  EXPECT_EQ(lines().front(), "newer half");
  EXPECT_THAT(mac.files.tree(directory), ElementsAre("webinstall.log"));
}

TEST_F(LogFile, ThatARotationKilledMeanwhileRemovedIsTakenUp) {
  start();
  ASSERT_TRUE(mac.files.removeItem(file));
  mac.files.addFile(temporary, "newer half\n");
  write("entry");
  EXPECT_THAT(lines(), ElementsAre("newer half", EndsWith("] entry")));
  EXPECT_THAT(mac.files.tree(directory), ElementsAre("webinstall.log"));
}

TEST_F(LogFile, IsNotCutWhileAnotherProcessHoldsTheLock) {
  start();
  write(std::string(512000, 'x'));
  mac.files.setLockedByAnother(directory);
  log("late");
  mac.dispatch.runMainLoop(Duration{2});
  EXPECT_GT(content().size(), 512000U);
  EXPECT_THAT(lines().back(), EndsWith("] late"));
  mac.files.setLockedByAnother(directory, false);
  write("entry");
  EXPECT_LT(content().size(), 512000U);
}

TEST_F(LogFile, ThatIsALinkIsCutToo) {
  mac.files.addFile("/Users/tester/elsewhere.log", "earlier\n");
  mac.files.addDirectory(directory);
  mac.files.addSymlink(file, "/Users/tester/elsewhere.log");
  start();
  EXPECT_EQ(lines().size(), 4U);
  write(std::string(512000, 'x'));
  write("entry");
  EXPECT_EQ(content().substr(0, 100), std::string(100, 'x'));
  EXPECT_THAT(lines().back(), EndsWith("] Log file rotated due to size threshold (512 KB)"));
  EXPECT_FALSE(mac.files.isSymbolicLink(file));
}

TEST_F(LogFile, HoldsAllThatWasLoggedOnceItIsFlushed) {
  for (int entry = 0; entry < 50; ++entry) log("entry");
  Logger::shared().flush();
  EXPECT_EQ(lines().size(), 53U);
  EXPECT_EQ(mac.dispatch.elapsed(), Duration{0});
}

TEST_F(LogFile, HoldsTheReportOfARotationOnceItIsFlushed) {
  start();
  mac.files.addFile(file, std::string(512001, 'x'));
  log("entry");
  Logger::shared().flush();
  EXPECT_THAT(lines().back(), EndsWith("] Log file rotated due to size threshold (512 KB)"));
}

// A dispatch whose serial queues never run.
class BlockedQueues : public Dispatch {
 public:
  explicit BlockedQueues(Dispatch& real) : real_{real} {}
  bool isMainThread() override { return real_.isMainThread(); }
  void asyncMain(Work work) override { real_.asyncMain(std::move(work)); }
  void asyncMainAfter(Duration delay, Work work) override { real_.asyncMainAfter(delay, std::move(work)); }
  void syncMain(const Work& work) override { real_.syncMain(work); }
  void runMainLoop(Duration slice) override { real_.runMainLoop(slice); }
  void asyncGlobal(QualityOfService quality, Work work) override {
    real_.asyncGlobal(quality, std::move(work));
  }
  std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& /*label*/,
                                               QualityOfService /*quality*/) override {
    struct Blocked : SerialQueue {
      void async(Work /*work*/) override {}
    };
    return std::make_shared<Blocked>();
  }
  std::shared_ptr<Semaphore> makeSemaphore(int count) override { return real_.makeSemaphore(count); }
  std::unique_ptr<Timer> startTimer(Duration interval, Work handler) override {
    return real_.startTimer(interval, std::move(handler));
  }
  void detachThread(Work work) override { real_.detachThread(std::move(work)); }
  TimePoint now() override { return real_.now(); }
  void sleep(Duration duration) override { real_.sleep(duration); }

 private:
  Dispatch& real_;
};

TEST_F(LogFile, IsWaitedForTwoSecondsAtMost) {
  BlockedQueues blocked{mac.dispatch};
  auto& whole = machine();
  Machine stuck{whole.paths,
                whole.files,
                whole.streams,
                whole.processes,
                whole.sessions,
                blocked,
                whole.bundles,
                whole.propertyList,
                whole.workspace,
                whole.runningApplications,
                whole.administratorScripts,
                whole.systemInfo,
                whole.digest,
                whole.signals};
  installMachine(&stuck);
  log("never written");
  Logger::shared().flush();
  EXPECT_EQ(mac.dispatch.elapsed(), Duration{2});
  installMachine(nullptr);
}

TEST(LogLevel, HasItsRawValues) {
  EXPECT_EQ(rawValue(LogLevel::info), "INFO");
  EXPECT_EQ(rawValue(LogLevel::warn), "WARN");
  EXPECT_EQ(rawValue(LogLevel::error), "ERROR");
}

TEST(QualifiedFunctionName, LeavesOutReturnTypeAndArguments) {
  const struct {
    const char* compilerName;
    const char* name;
  } rows[] = {
      {"int main(int, char**)", "main"},
      {"main", "main"},
      {"installer::Logger::Logger()", "installer::Logger::Logger"},
      {"static installer::Logger& installer::Logger::shared()", "installer::Logger::shared"},
      {"std::optional<std::pair<int, char> > installer::f(const std::string&)", "installer::f"},
      {"std::function<void(int)> installer::f()", "installer::f"},
      {"virtual bool installer::{anonymous}::A::b() const", "installer::{anonymous}::A::b"},
      {"bool installer::(anonymous namespace)::A::b(int) const", "installer::(anonymous namespace)::A::b"},
      {"installer::A::b(int)::<lambda(const std::string&)>", "installer::A::b"},
      {"auto installer::A::b(int)::(anonymous class)::operator()() const", "installer::A::b"},
      {"const char* installer::f(int)", "installer::f"},
      {"T installer::f(T) [with T = int]", "installer::f"},
      {"", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(qualifiedFunctionName(row.compilerName), row.name);
}

}  // namespace
}  // namespace installer

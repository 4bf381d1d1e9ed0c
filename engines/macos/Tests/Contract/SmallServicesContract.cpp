// The contracts of the digest, the facts about the system, the streams, the signals, the running applications
// and the administrator's scripts.
#include <algorithm>
#include <cstdint>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Base/Text.h"
#include "Contract/MachineUnderTest.h"

namespace installer::test {
namespace {

class DigestContract : public Contract {
 protected:
  // The digest of `bytes`, updated in pieces of `size` bytes.
  std::string digestOf(std::string_view bytes, std::size_t size) {
    const auto digest = machine.digest.startSHA256();
    for (std::size_t at = 0; at < bytes.size(); at += size) digest->update(bytes.substr(at, size));
    return hexadecimal(digest->finish());
  }
};

TEST_P(DigestContract, GivesTheKnownDigests) {
  EXPECT_EQ(digestOf("", 1), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(digestOf("abc", 3), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_P(DigestContract, DependsOnTheBytesAndNotOnThePieces) {
  const std::string million(1'000'000, 'a');
  for (const std::size_t size : {1'000'000UL, 4096UL, 777UL}) {
    EXPECT_EQ(digestOf(million, size), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
  }
}

INSTANTIATE_CONTRACT(DigestContract);

class SystemInfoContract : public Contract {};

TEST_P(SystemInfoContract, GivesTheFactsOfTheProcessAndItsMachine) {
  auto& info = machine.systemInfo;
  EXPECT_FALSE(info.operatingSystemVersionString().empty());
  const auto facts = under->facts();
  EXPECT_EQ(info.machineField(), facts.machineField);
  EXPECT_EQ(info.userIdentifier(), facts.user);
  EXPECT_EQ(info.groupIdentifier(), facts.group);
  EXPECT_EQ(info.processIdentifier(), facts.process);
}

INSTANTIATE_CONTRACT(SystemInfoContract);

class StandardStreamsContract : public Contract {
 protected:
  // The results of `readLine` for `input`, one per line.
  std::string linesRead(const std::string& input) {
    return under->withStandardInput(input, [this] { copyLines(); }).output;
  }
  void copyLines() {
    while (const auto line = machine.streams.readLine()) {
      machine.streams.writeOutput(fmt::format("{} {}\n", line->size(), line->substr(0, 10)));
    }
    machine.streams.writeOutput("end\n");
  }
};

TEST_P(StandardStreamsContract, ReadsLineByLineToTheEnd) {
  EXPECT_EQ(linesRead("one\n\nthree\n"), "3 one\n0 \n5 three\nend\n");
}

TEST_P(StandardStreamsContract, EndsAtOnceWithoutInput) {
  EXPECT_EQ(linesRead(""), "end\n");
}

TEST_P(StandardStreamsContract, ReadsALastLineWithoutALineFeed) {
  EXPECT_EQ(linesRead("one\ntwo"), "3 one\n3 two\nend\n");
}

TEST_P(StandardStreamsContract, ReadsALineThatIsTooLongAsAnEmptyOne) {
  const std::string limit(StandardStreams::kMaximumLineLength, 'x');
  EXPECT_EQ(linesRead(limit + "\n" + limit + "x\nnext\n"), "1048576 xxxxxxxxxx\n0 \n4 next\nend\n");
}

TEST_P(StandardStreamsContract, KeepsTheTwoOutputsApart) {
  const auto written = under->withStandardInput("", [this] {
    machine.streams.writeOutput(std::string{"out\0put\n", 8});
    machine.streams.writeError("error\n");
    machine.streams.writeOutput("more");
  });
  EXPECT_EQ(written.output, (std::string{"out\0put\nmore", 12}));
  EXPECT_EQ(written.error, "error\n");
}

INSTANTIATE_CONTRACT(StandardStreamsContract);

class SignalsContract : public Contract {};

TEST_P(SignalsContract, CallsTheHandlerOnTheMainQueue) {
  int calls = 0;
  machine.signals.onTerminationRequest([&] {
    EXPECT_TRUE(machine.dispatch.isMainThread());
    ++calls;
  });
  under->requestTermination();
  EXPECT_EQ(calls, 0);
  turnUntil([&] { return calls > 0; });
  machine.dispatch.runMainLoop(std::chrono::milliseconds{10});
  EXPECT_EQ(calls, 1);
}

INSTANTIATE_CONTRACT(SignalsContract);

class RunningApplicationsContract : public Contract {
 protected:
  using WhenAsked = MachineUnderTest::WhenAsked;

  std::vector<std::int32_t> running(const std::string& identifier) {
    std::vector<std::int32_t> processes;
    for (const auto& one : machine.runningApplications.instances(identifier)) {
      processes.push_back(one.processIdentifier);
    }
    std::ranges::sort(processes);
    return processes;
  }
};

TEST_P(RunningApplicationsContract, FindsInstancesByIdentifierWhereverTheyLie) {
  const auto first =
      under->startApplication(layBundle("A.app", "test.contract.a", "Title"), WhenAsked::quits);
  const auto second =
      under->startApplication(layBundle("deep/Copy.app", "test.contract.a", "Title"), WhenAsked::quits);
  under->startApplication(layBundle("B.app", "test.contract.b", "Other"), WhenAsked::quits);
  auto expected = std::vector{first, second};
  std::ranges::sort(expected);
  EXPECT_EQ(running("test.contract.a"), expected);
  EXPECT_EQ(running("test.contract.nothing"), std::vector<std::int32_t>{});
  EXPECT_EQ(machine.runningApplications.instances("test.contract.b").at(0).localizedName, "Other");
}

TEST_P(RunningApplicationsContract, AsksAnApplicationToQuit) {
  under->startApplication(layBundle("A.app", "test.contract.a", "A"), WhenAsked::quits);
  machine.runningApplications.terminate(machine.runningApplications.instances("test.contract.a").at(0));
  turnUntil([this] { return running("test.contract.a").empty(); });
}

TEST_P(RunningApplicationsContract, ForcesAnApplicationThatIgnoresTheRequest) {
  const auto process =
      under->startApplication(layBundle("A.app", "test.contract.a", "A"), WhenAsked::ignores);
  const auto application = machine.runningApplications.instances("test.contract.a").at(0);
  machine.runningApplications.terminate(application);
  machine.dispatch.runMainLoop(std::chrono::milliseconds{20});
  EXPECT_EQ(running("test.contract.a"), std::vector{process});
  machine.runningApplications.forceTerminate(application);
  turnUntil([this] { return running("test.contract.a").empty(); });
  machine.runningApplications.forceTerminate(application);  // it has already ended
}

INSTANTIATE_CONTRACT(RunningApplicationsContract);

class AdministratorScriptContract : public Contract {
 protected:
  void SetUp() override {
    if (!under->promptsAreAnswered()) GTEST_SKIP() << "only a person can answer the prompt here";
  }

  static constexpr auto kHandlerSource =
      "on runCommand(cmd)\n    do shell script cmd with administrator privileges\nend runCommand";

  static bool isDismissal(const ScriptErrorDictionary& error) {
    return error &&
           error->value(AdministratorScript::kErrorNumberKey, 0) == AdministratorScript::kUserCancelled;
  }
};

TEST_P(AdministratorScriptContract, RunsCommandLinesThroughTheHandler) {
  const auto script = machine.administratorScripts.make(kHandlerSource);
  ASSERT_NE(script, nullptr);
  for (const auto* const name : {"first", "second's"}) {
    lay(name);
    const auto command = name[0] == 'f' ? "/bin/rm -rf '" + at(name) + "'"
                                        : "/bin/rm -rf '" + under->folder() + "/second'\\''s'";
    EXPECT_FALSE(script->callHandler("runCommand", command).value().has_value()) << command;
    EXPECT_FALSE(files.fileExists(at(name))) << command;
  }
}

TEST_P(AdministratorScriptContract, RunsTheStatementOfAOneShotScript) {
  lay("a\"b\\c");
  const auto escaped = "/bin/rm -rf '" + under->folder() + "/a\\\"b\\\\c'";
  const auto script =
      machine.administratorScripts.make("do shell script \"" + escaped + "\" with administrator privileges");
  ASSERT_NE(script, nullptr);
  EXPECT_TRUE(files.fileExists(at("a\"b\\c")));
  EXPECT_FALSE(script->execute().has_value());
  EXPECT_FALSE(files.fileExists(at("a\"b\\c")));
}

TEST_P(AdministratorScriptContract, StopsAChainAtTheFirstFailure) {
  lay("file");
  const auto script = machine.administratorScripts.make(kHandlerSource);
  const auto error =
      script->callHandler("runCommand", "/bin/nothing-of-that-name && /bin/rm -rf '" + at("file") + "'")
          .value();
  ASSERT_TRUE(error.has_value());
  EXPECT_TRUE(error->at(AdministratorScript::kErrorNumberKey).is_number_integer());
  EXPECT_FALSE(isDismissal(error));
  EXPECT_TRUE(files.fileExists(at("file")));
}

TEST_P(AdministratorScriptContract, RunsNothingWhenThePromptIsDismissed) {
  lay("file");
  under->dismissPrompts();
  const auto script = machine.administratorScripts.make(kHandlerSource);
  EXPECT_TRUE(isDismissal(script->callHandler("runCommand", "/bin/rm -rf '" + at("file") + "'").value()));
  EXPECT_TRUE(files.fileExists(at("file")));
}

TEST_P(AdministratorScriptContract, HasNoOtherHandlerThanItsSourceSays) {
  lay("file");
  const auto script = machine.administratorScripts.make(kHandlerSource);
  const auto error = script->callHandler("anotherName", "/bin/rm -rf '" + at("file") + "'").value();
  EXPECT_TRUE(error.has_value());
  EXPECT_FALSE(isDismissal(error));
  EXPECT_TRUE(files.fileExists(at("file")));
}

INSTANTIATE_CONTRACT(AdministratorScriptContract);

}  // namespace
}  // namespace installer::test

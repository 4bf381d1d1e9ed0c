// The contract of process launchers.
#include "Base/KeptOutput.h"
#include "Contract/MachineUnderTest.h"

namespace installer::test {
namespace {

class ProcessLauncherContract : public Contract {
 protected:
  ProcessLauncher& processes = machine.processes;
};

TEST_P(ProcessLauncherContract, KeepsTheStreamsThatWereAskedFor) {
  const auto program = under->makeProgram("program", "out\n", "err\n", 0);
  const auto merged = processes.run(program, {}, CapturedOutput::merged);
  EXPECT_EQ(merged->output, "out\nerr\n");
  EXPECT_EQ(merged->errorOutput, "");
  const auto separate = processes.run(program, {}, CapturedOutput::separate);
  EXPECT_EQ(separate->output, "out\n");
  EXPECT_EQ(separate->errorOutput, "err\n");
  const auto none = processes.run(program, {}, CapturedOutput::none);
  EXPECT_EQ(none->output + none->errorOutput, "");
}

TEST_P(ProcessLauncherContract, GivesTheExitStatus) {
  for (const int status : {0, 1, 7, 255}) {
    const auto program = under->makeProgram("exits" + std::to_string(status), "", "", status);
    EXPECT_EQ(processes.run(program, {}, CapturedOutput::none)->status, status);
  }
}

TEST_P(ProcessLauncherContract, HandsArgumentsOverAsTheyAre) {
  const auto program = under->makeEchoProgram("echo");
  const Lines arguments{"plain", "with blanks", "", "'quoted' \"twice\"", "$HOME *", "ümlaut"};
  std::string expected;
  for (const auto& argument : arguments) expected += argument + "\n";
  EXPECT_EQ(processes.run(program, arguments, CapturedOutput::merged)->output, expected);
}

TEST_P(ProcessLauncherContract, TakesMoreOutputThanAPipeHolds) {
  const std::string much(KeptOutput::kLongest, 'x');
  const auto program = under->makeProgram("chatty", much, much, 0);
  const auto exit = processes.run(program, {}, CapturedOutput::separate);
  EXPECT_EQ(exit->output.size(), much.size());
  EXPECT_EQ(exit->errorOutput.size(), much.size());
  EXPECT_EQ(processes.run(program, {}, CapturedOutput::none)->status, 0);
}

TEST_P(ProcessLauncherContract, KeepsTheFirstAndTheLastPartOfEndlessOutput) {
  constexpr std::size_t half = KeptOutput::kLongest / 2;
  const std::string first(half, 'f');
  const std::string last(half, 'l');
  for (const std::size_t tooMuch : {1U, 5'000'000U}) {
    const auto output = first + std::string(tooMuch, 'x') + last;
    const auto program = under->makeProgram("endless" + std::to_string(tooMuch), output, output, 0);
    const auto exit = processes.run(program, {}, CapturedOutput::separate);
    const auto expected = first + "\n[" + std::to_string(tooMuch) + " bytes omitted]\n" + last;
    EXPECT_TRUE(exit->output == expected) << exit->output.size();
    EXPECT_TRUE(exit->errorOutput == expected) << exit->errorOutput.size();
  }
}

TEST_P(ProcessLauncherContract, FailsToLaunchWhatIsNoProgram) {
  EXPECT_FALSE(processes.run(at("nothing"), {}, CapturedOutput::merged));
  EXPECT_FALSE(processes.run(lay("file"), {}, CapturedOutput::merged));
  EXPECT_FALSE(processes.run(layFolder("folder"), {}, CapturedOutput::merged));
  EXPECT_FALSE(processes.launch(at("nothing"), {}));
  EXPECT_FALSE(processes.run(at("nothing"), {}, CapturedOutput::merged).error().localizedDescription.empty());
}

TEST_P(ProcessLauncherContract, StartsAndForgets) {
  EXPECT_TRUE(processes.launch(under->makeProgram("program", "", "", 3), {"argument"}));
}

INSTANTIATE_CONTRACT(ProcessLauncherContract);

}  // namespace
}  // namespace installer::test

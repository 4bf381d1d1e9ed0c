// Administrator commands with a script as the prompt, which records each call and starts the shell or
// refuses.
#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "Base/KeptOutput.h"
#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxServices.h"
#include "Platform/ProcessLauncher.h"

namespace installer::test {
namespace {

constexpr auto kSharedSource =
    "on runCommand(cmd)\n    do shell script cmd with administrator privileges\nend runCommand";

class LinuxAdministrator : public testing::Test {
 protected:
  LinuxTestFolder folder;
  Path questions = folder / "questions";

  LinuxAdministrator() { ::signal(SIGPIPE, SIG_IGN); }  // as the host does

  std::unique_ptr<AdministratorScript> script(const std::string& answer,
                                              const std::string& source = kSharedSource,
                                              const std::string& promptName = "prompt") {
    AdministratorPrompt prompt;
    prompt.command = {
        folder.write(promptName, "#!/bin/sh\necho asked >>'" + questions + "'\n" + answer + "\n")};
    prompt.asksRootToo = true;
    return LinuxAdministratorScripts{prompt}.make(source);
  }
  std::unique_ptr<AdministratorScript> willing() { return script("exec \"$@\""); }

  static ScriptErrorDictionary call(AdministratorScript& script, const std::string& command) {
    auto answer = script.callHandler("runCommand", command);
    EXPECT_TRUE(answer.has_value());
    return answer.value_or(std::nullopt);
  }
  static int numberOf(const ScriptErrorDictionary& error) {
    return error ? error->value(AdministratorScript::kErrorNumberKey, 0) : 0;
  }
  std::size_t timesAsked() const {
    const std::string text = textOf(questions);
    return static_cast<std::size_t>(std::ranges::count(text, '\n'));
  }
};

TEST_F(LinuxAdministrator, ABurstOfCommandsCostsOnePrompt) {
  const auto shared = willing();
  EXPECT_EQ(timesAsked(), 0U) << "the prompt appeared before there was a command";
  for (const char* const name : {"first", "second", "third"}) {
    EXPECT_EQ(call(*shared, "echo done >'" + folder / name + "'"), std::nullopt);
    EXPECT_EQ(textOf(folder / name), "done\n");
  }
  EXPECT_EQ(timesAsked(), 1U);
}

TEST_F(LinuxAdministrator, ARefusedPromptIsMinus128AndRunsNothing) {
  const auto shared = script("echo 'Not authorized' >&2; exit 1");
  const auto error = call(*shared, "echo ran >'" + folder / "ran" + "'");
  EXPECT_EQ(numberOf(error), AdministratorScript::kUserCancelled);
  EXPECT_EQ(error->value("NSAppleScriptErrorMessage", ""), "Not authorized");
  EXPECT_EQ(textOf(folder / "ran"), "");
}

TEST_F(LinuxAdministrator, ARefusalDoesNotLastAndTheNextCommandAsksAgain) {
  const auto shared = script("[ -e '" + folder / "granted" + "' ] || exit 1\nexec \"$@\"");
  EXPECT_EQ(numberOf(call(*shared, "true")), AdministratorScript::kUserCancelled);
  folder.write("granted", "");
  EXPECT_EQ(call(*shared, "true"), std::nullopt);
  EXPECT_EQ(timesAsked(), 2U);
}

TEST_F(LinuxAdministrator, AFailingCommandGivesItsStatusAndItsWords) {
  const auto shared = willing();
  const auto error = call(*shared, "echo first; echo second >&2; exit 3");
  EXPECT_EQ(numberOf(error), 3);
  EXPECT_EQ(error->value("NSAppleScriptErrorMessage", ""), "first\nsecond");
  EXPECT_EQ(call(*shared, "true"), std::nullopt);
  EXPECT_EQ(timesAsked(), 1U);
}

TEST_F(LinuxAdministrator, ACommandThatFailsWithPkexecsNumbersIsNotARefusal) {
  const auto shared = willing();
  EXPECT_EQ(numberOf(call(*shared, "exit 126")), 126);
  EXPECT_EQ(numberOf(call(*shared, "exit 127")), 127);
}

TEST_F(LinuxAdministrator, PkexecTellsADismissalFromARefusalOfTheMachine) {
  EXPECT_EQ(numberOf(call(*script("exit 126", kSharedSource, "pkexec"), "true")),
            AdministratorScript::kUserCancelled);
  EXPECT_EQ(numberOf(call(*script("exit 127", kSharedSource, "pkexec"), "true")), 127);
}

TEST_F(LinuxAdministrator, APromptThatIsNotThereIsAFailureAndNoRefusal) {
  AdministratorPrompt prompt;
  prompt.command = {folder / "missing"};
  prompt.asksRootToo = true;
  const auto error = call(*LinuxAdministratorScripts{prompt}.make(kSharedSource), "true");
  ASSERT_TRUE(error);
  EXPECT_EQ(numberOf(error), -1);
}

TEST_F(LinuxAdministrator, AnAskpassThatCannotBeRunIsAFailureAndNoRefusal) {
  AdministratorPrompt prompt;
  prompt.command = {folder.write("sudo", "#!/bin/sh\nexit 1\n")};
  prompt.asksRootToo = true;
  for (const char* const askpass : {"missing", "no-program"}) {
    if (askpass == std::string_view{"no-program"}) ::chmod(folder.write(askpass, "").c_str(), 0644);
    prompt.askpass = folder / askpass;
    const auto error = call(*LinuxAdministratorScripts{prompt}.make(kSharedSource), "true");
    EXPECT_EQ(numberOf(error), -1) << askpass;
    EXPECT_THAT(error->value("NSAppleScriptErrorMessage", ""), testing::HasSubstr(askpass));
  }
}

TEST_F(LinuxAdministrator, AChainStopsAtItsFirstFailure) {
  const auto error =
      call(*willing(), "echo a >'" + folder / "a" + "' && false && echo b >'" + folder / "b" + "'");
  EXPECT_EQ(numberOf(error), 1);
  EXPECT_EQ(textOf(folder / "a"), "a\n");
  EXPECT_EQ(textOf(folder / "b"), "");
}

TEST_F(LinuxAdministrator, ACommandReachesTheShellUnchanged) {
  const auto shared = willing();
  const std::string awkward[] = {
      R"(a"b)",     R"(a\b)", R"(a\nb)", R"(a\\b)", "a\nb", "ends in a line feed\n",
      "%s %b %%",   "$HOME",  "*",       "\\",      "\\c",  "\\0101",
      "  spaces  ", "Ünïcödé"};
  for (const auto& text : awkward) {
    EXPECT_EQ(call(*shared, "printf %s '" + text + "' >'" + folder / "out" + "'"), std::nullopt) << text;
    EXPECT_EQ(textOf(folder / "out"), text);
  }
  EXPECT_EQ(timesAsked(), 1U);
}

TEST_F(LinuxAdministrator, ACommandsInputIsNotOurOwnChannel) {
  const auto shared = willing();
  EXPECT_EQ(call(*shared, "cat >'" + folder / "out" + "'"), std::nullopt);
  EXPECT_EQ(textOf(folder / "out"), "");
  EXPECT_EQ(call(*shared, "true"), std::nullopt);
}

TEST_F(LinuxAdministrator, OfEndlessOutputTheFirstAndTheLastPartAreKept) {
  const auto shared = willing();
  const auto error = call(*shared, "echo first; head -c 67108864 /dev/zero | tr '\\0' x; echo last; exit 5");
  EXPECT_EQ(numberOf(error), 5);
  const auto message = error->value("NSAppleScriptErrorMessage", "");
  EXPECT_TRUE(message.starts_with("first\nxxx"));
  EXPECT_TRUE(message.ends_with("xxxlast"));
  EXPECT_NE(message.find(" bytes omitted]"), std::string::npos);
  EXPECT_LT(message.size(), KeptOutput::kLongest + 100);
  EXPECT_EQ(call(*shared, "true"), std::nullopt);
}

TEST_F(LinuxAdministrator, ASuccessIsOneWhateverItPrinted) {
  const auto shared = willing();
  for (const char* const prints :
       {"echo words", "echo error >&2", "echo 1; echo 128", "printf '\\377'", "head -c 1048576 /dev/zero"}) {
    EXPECT_EQ(call(*shared, prints), std::nullopt) << prints;
  }
  EXPECT_EQ(timesAsked(), 1U);
}

TEST_F(LinuxAdministrator, OutputThatIsNotTextStillMakesAReadableDictionary) {
  const auto error = call(*willing(), "printf '\\377\\376'; exit 1");
  ASSERT_TRUE(error);
  EXPECT_NO_THROW((void)error->dump());
}

TEST_F(LinuxAdministrator, AShellThatDiesFailsItsCommandAndTheNextAsksAgain) {
  const auto shared = willing();
  EXPECT_EQ(numberOf(call(*shared, "kill -KILL $PPID")), 128 + SIGKILL);
  EXPECT_EQ(call(*shared, "true"), std::nullopt);
  EXPECT_EQ(timesAsked(), 2U);
}

TEST_F(LinuxAdministrator, AStatusThatIsNoWholeNumberIsAFailure) {
  for (const std::string status : {"0x", "", " 0", "ready"}) {
    const auto shared =
        script("read -r token; printf '\\n%s ready\\n' \"$token\"\nread -r command; printf '\\n%s " + status +
               "\\n' \"$token\"");
    EXPECT_EQ(numberOf(call(*shared, "true")), 255) << status;
  }
}

TEST_F(LinuxAdministrator, AnAnnouncementInACommandsOutputIsOnlyOutput) {
  EXPECT_EQ(numberOf(call(*willing(), "printf '\\nkelo-0 0\\n'; exit 6")), 6);
}

TEST_F(LinuxAdministrator, TheOneShotStatementRunsItsUnescapedCommand) {
  const auto oneShot = script("exec \"$@\"", "do shell script \"printf %s \\\"a\\\\\\\\b\\\" >'" +
                                                 folder / "out" + "'\" with administrator privileges");
  ASSERT_NE(oneShot, nullptr);
  EXPECT_EQ(oneShot->execute(), std::nullopt);
  EXPECT_EQ(textOf(folder / "out"), "a\\b");
  EXPECT_EQ(timesAsked(), 1U);
}

TEST_F(LinuxAdministrator, OnlyTheTwoKnownSourcesAreScripts) {
  EXPECT_NE(script("exit 1", "do shell script \"true\" with administrator privileges"), nullptr);
  const std::string rows[] = {
      "",
      "do shell script \"true\"",
      "do shell script \"a\"b\" with administrator privileges",
      "do shell script \"a\\\" with administrator privileges",
      "do shell script \"a\\n\" with administrator privileges",
      "do shell script \" with administrator privileges",
      "do shell script \"a\" with administrator privileges\n",
      "tell application \"Finder\" to quit",
      std::string{kSharedSource} + "\n",
  };
  for (const auto& source : rows) EXPECT_EQ(script("exit 1", source), nullptr) << source;
  EXPECT_EQ(timesAsked(), 0U);
}

TEST_F(LinuxAdministrator, AnUnknownHandlerIsAnErrorAndAsksNobody) {
  const auto answer = willing()->callHandler("other", "true");
  ASSERT_TRUE(answer.has_value());
  EXPECT_NE(numberOf(*answer), 0);
  EXPECT_EQ(timesAsked(), 0U);
}

}  // namespace
}  // namespace installer::test

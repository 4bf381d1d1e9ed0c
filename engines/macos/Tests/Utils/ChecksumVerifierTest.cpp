#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Support/SimulatedMachine.h"
#include "Utils/ChecksumVerifier.h"

namespace installer::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string kEmptyDigest = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

std::string upperCased(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

class Verification : public ::testing::Test {
 protected:
  SimulatedMachine mac;
  const Path image = "/private/tmp/tester/brenna_installer.dmg";

  void SetUp() override {
    mac.files.addFile(image, "an image");
    mac.addApp("/Applications/Brenna.app", {});
  }
  void theTeamIs(const std::string& team) {
    mac.setConfiguration(Json{{"apps", Json::object()}, {"expectedSigningTeamId", team}}.dump());
  }
  // The log without the configuration's lines, and without the line breaks of tools.
  Lines log() {
    auto lines = mac.logLines();
    std::erase_if(lines, [](const std::string& line) {
      return line.empty() || line.find("InstallerConfig:") != std::string::npos;
    });
    return lines;
  }
};

class DigestOfAFile : public Verification {};

TEST_F(DigestOfAFile, PassesWhateverTheFormOfTheExpectation) {
  const auto digest = sha256("an image");
  for (const auto& expected : {digest, upperCased(digest), digest + "\n", "  " + digest + " \t\r\n"}) {
    EXPECT_TRUE(ChecksumVerifier::verifyFileChecksum(image, expected)) << expected;
  }
  EXPECT_EQ(log(), Lines(4, "INFO Checksum verification PASSED"));
}

TEST_F(DigestOfAFile, RefusesAnotherLengthThan64WithoutOpeningTheFile) {
  struct Row {
    std::string expected;
    int length;
  };
  for (const auto& row : {Row{"", 0}, Row{std::string(63, 'a'), 63}, Row{std::string(65, 'a'), 65},
                          Row{"  \n ", 0}, Row{" " + std::string(62, 'a') + "é ", 63}}) {
    startAfresh(mac);
    EXPECT_FALSE(ChecksumVerifier::verifyFileChecksum("/nowhere.dmg", row.expected)) << row.expected;
    EXPECT_THAT(mac.logLines(),
                ElementsAre("ERROR ERROR: Expected checksum length invalid (expected 64, got " +
                            std::to_string(row.length) + ")"))
        << row.expected;
  }
}

TEST_F(DigestOfAFile, ShowsEightCharactersOfEachSideOfAMismatch) {
  const auto digest = sha256("an image");
  EXPECT_FALSE(ChecksumVerifier::verifyFileChecksum(image, std::string(64, 'b')));
  EXPECT_EQ(log(), (Lines{"ERROR Checksum verification FAILED — calculated: " + digest.substr(0, 8) +
                          "…, expected: bbbbbbbb…"}));
}

TEST_F(DigestOfAFile, TreatsTextThatIsNotHexadecimalAsAMismatch) {
  EXPECT_FALSE(ChecksumVerifier::verifyFileChecksum(image, std::string(60, 'z') + "üüüü"));
  EXPECT_THAT(log(), ElementsAre(HasSubstr("FAILED — calculated: ")));
}

TEST_F(DigestOfAFile, ReportsAMissingFileAndNoMismatch) {
  EXPECT_FALSE(ChecksumVerifier::verifyFileChecksum("/private/tmp/tester/missing.dmg", kEmptyDigest));
  EXPECT_THAT(log(), ElementsAre(::testing::StartsWith(
                         "ERROR Error reading file for checksum verification: The file “missing.dmg”")));
}

TEST_F(DigestOfAFile, ReportsAFileThatBreaksOffWhileItIsRead) {
  mac.files.failNext(Operation::read, image, Error{"NSPOSIXErrorDomain", 5, "Input/output error", nullptr});
  EXPECT_FALSE(ChecksumVerifier::verifyFileChecksum(image, sha256("an image")));
  EXPECT_EQ(log(), (Lines{"ERROR Error reading file for checksum verification: Input/output error"}));
}

TEST_F(DigestOfAFile, IsThatOfTheWholeFileWhateverItsSize) {
  constexpr std::size_t mebibyte = 1'048'576;
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, mebibyte - 1, mebibyte, mebibyte + 1, 3 * mebibyte}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 31 % 251);
    mac.files.addFile(image, bytes);
    EXPECT_TRUE(ChecksumVerifier::verifyFileChecksum(image, sha256(bytes))) << size;
  }
}

TEST_F(DigestOfAFile, OfAnEmptyFileIsTheOneOfEmptyInput) {
  mac.files.addFile(image, "");
  EXPECT_TRUE(ChecksumVerifier::verifyFileChecksum(image, kEmptyDigest));
}

TEST_F(Verification, AsksGatekeeperAboutADiskImage) {
  mac.programs.on(mac.paths.spctl).exits(0, "accepted");
  EXPECT_TRUE(ChecksumVerifier::verifyGatekeeper(image));
  ASSERT_EQ(mac.programs.starts().size(), 1U);
  EXPECT_EQ(mac.programs.starts()[0].arguments, (Arguments{"--assess", "--type", "open", "-vvv", "--context",
                                                           "context:primary-signature", image}));
  EXPECT_EQ(mac.programs.starts()[0].captured, CapturedOutput::merged);
  EXPECT_EQ(log(), (Lines{"INFO Gatekeeper verification output: accepted",
                          "INFO Gatekeeper verification result: Passed"}));
}

TEST_F(Verification, TakesEveryOtherStatusOfGatekeeperForTheSameNo) {
  for (const int status : {1, 3, 137}) {
    mac.programs.on(mac.paths.spctl).exitsNext(status, "rejected");
    EXPECT_FALSE(ChecksumVerifier::verifyGatekeeper(image)) << status;
  }
  const Lines once{"INFO Gatekeeper verification output: rejected",
                   "INFO Gatekeeper verification result: Failed"};
  EXPECT_EQ(log(), (Lines{once[0], once[1], once[0], once[1], once[0], once[1]}));
}

TEST_F(Verification, TakesOutputThatIsNotTextForEmptyText) {
  mac.programs.on(mac.paths.spctl).exits(0, "broken \xff text");
  EXPECT_TRUE(ChecksumVerifier::verifyGatekeeper(image));
  EXPECT_EQ(log().front(), "INFO Gatekeeper verification output: ");
}

TEST_F(Verification, TestsIntegrityFirstAndTheTeamSecond) {
  theTeamIs("KELO12345X");
  mac.programs.on(mac.paths.codesign).exits(0, "valid");
  EXPECT_TRUE(ChecksumVerifier::verifySignature(image));
  ASSERT_EQ(mac.programs.starts().size(), 2U);
  EXPECT_EQ(mac.programs.starts()[0].arguments, (Arguments{"--verify", "--strict", "-vv", image}));
  EXPECT_EQ(mac.programs.starts()[1].arguments,
            (Arguments{"--verify", "--strict", "-vv", "-R",
                       "=anchor apple generic and certificate leaf[subject.OU] = KELO12345X", image}));
  EXPECT_EQ(log(), (Lines{"INFO Signature integrity output: valid",
                          "INFO Signature requirement output for brenna_installer.dmg: valid"}));
}

TEST_F(Verification, StopsAtABrokenSignature) {
  mac.programs.on(mac.paths.codesign).exits(1, "invalid");
  EXPECT_FALSE(ChecksumVerifier::verifySignature(image));
  EXPECT_EQ(mac.programs.starts().size(), 1U);
  EXPECT_EQ(log(), (Lines{"INFO Signature integrity output: invalid",
                          "ERROR DMG signature failed integrity verification (codesign --verify exit 1)"}));
}

TEST_F(Verification, RefusesAnotherTeam) {
  theTeamIs("KELO12345X");
  mac.programs.on(mac.paths.codesign).exits(3, "test-requirement: code failed");
  EXPECT_FALSE(ChecksumVerifier::verifyCodeRequirement("/Applications/Brenna.app"));
  EXPECT_EQ(log(), (Lines{"INFO Signature requirement output for Brenna.app: test-requirement: code failed",
                          "ERROR Brenna.app does not satisfy the signing requirement (team KELO12345X) — "
                          "codesign exit 3"}));
}

TEST_F(Verification, PassesWithoutATestWhenNoTeamIsConfiguredAndSaysSo) {
  theTeamIs("");
  EXPECT_TRUE(ChecksumVerifier::verifyCodeRequirement("/Applications/Brenna.app"));
  EXPECT_THAT(mac.programs.starts(), IsEmpty());
  EXPECT_EQ(log(),
            (Lines{"WARN Signature requirement check SKIPPED for Brenna.app — expectedSigningTeamId is "
                   "empty in installer_config.json. A release build must never ship in this state."}));
}

TEST_F(Verification, StillTestsIntegrityWhenNoTeamIsConfigured) {
  theTeamIs("");
  mac.programs.on(mac.paths.codesign).exits(1);
  EXPECT_FALSE(ChecksumVerifier::verifySignature(image));
  mac.programs.on(mac.paths.codesign).exits(0);
  EXPECT_TRUE(ChecksumVerifier::verifySignature(image));
  EXPECT_EQ(mac.programs.starts().size(), 2U);
}

TEST_F(Verification, TakesANamedTeamAsItIs) {
  for (const std::string team : {"TEAM A", "x\" or anchor apple", " "}) {
    EXPECT_TRUE(ChecksumVerifier::verifyCodeRequirement(image, team));
    EXPECT_EQ(mac.programs.starts().back().arguments[4],
              "=anchor apple generic and certificate leaf[subject.OU] = " + team);
  }
  const auto before = mac.programs.starts().size();
  EXPECT_TRUE(ChecksumVerifier::verifyCodeRequirement(image, ""));
  EXPECT_EQ(mac.programs.starts().size(), before);
}

TEST_F(Verification, IsANoWhenItsToolCannotBeStarted) {
  theTeamIs("KELO12345X");
  mac.programs.on(mac.paths.spctl).cannotLaunch("no spctl");
  mac.programs.on(mac.paths.codesign).cannotLaunch("no codesign");
  EXPECT_FALSE(ChecksumVerifier::verifyGatekeeper(image));
  EXPECT_FALSE(ChecksumVerifier::verifySignature(image));
  EXPECT_FALSE(ChecksumVerifier::verifyCodeRequirement(image));
  EXPECT_EQ(log(), (Lines{"ERROR Error verifying Gatekeeper: no spctl",
                          "ERROR Error running codesign --verify: no codesign",
                          "ERROR Error evaluating the signing requirement: no codesign"}));
}

TEST_F(Verification, LeavesAFailedFileAsItIs) {
  mac.files.addFile(image, "an image");
  mac.programs.on(mac.paths.codesign).exits(1);
  ChecksumVerifier::verifyFileChecksum(image, std::string(64, '0'));
  ChecksumVerifier::verifySignature(image);
  EXPECT_EQ(mac.files.read(image), "an image");
}

}  // namespace
}  // namespace installer::test

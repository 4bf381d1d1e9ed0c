// The real executables: command lines, exit statuses, and what they print.
#include <sys/stat.h>

#include "BlobWriter.h"
#include "MachO.h"
#include "SuperBlob.h"
#include "Support/Programs.h"

namespace lab {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

TEST_F(Programs, SignedCodeIsValidAndSaysWhoVouches) {
  for (const MainExecutable kind :
       {MainExecutable::machO, MainExecutable::universal, MainExecutable::script}) {
    const fs::path app = signedApp(kind);
    const ProgramResult result = verifyTeam(app);
    EXPECT_EQ(result.status, 0) << result.text;
    EXPECT_THAT(result.text, HasSubstr("valid on disk"));
    EXPECT_THAT(result.text, HasSubstr("explicit requirement satisfied"));
    EXPECT_THAT(result.text,
                HasSubstr("vouched for by the test authority \"Tests Root\" named by linux_host.json"));
    fs::remove_all(app);
  }
}

TEST_F(Programs, EveryDigestCanBeSigned) {
  SigningOptions options;
  options.digests = {HashType::sha1, HashType::sha256Truncated, HashType::sha256, HashType::sha384};
  const fs::path app = workshop.app("A.app", MainExecutable::script);
  workshop.sign(app, options);
  EXPECT_EQ(verifyTeam(app).status, 0) << verifyTeam(app).text;
  fs::remove(app / "Contents/_CodeSignature/CodeRequirements-3");
  expectRefused(app, "the signer signed other code directories than are present");
}

TEST_F(Programs, AMainExecutableStandsForItsBundle) {
  const fs::path app = signedApp();
  EXPECT_EQ(verifyCode(app / "Contents/MacOS/Main").status, 0);
  workshop.write("A.app/Contents/Resources/added", viewOf("x"));
  EXPECT_EQ(verifyCode(app / "Contents/MacOS/Main").status, 1);
}

TEST_F(Programs, AFrameworksMainExecutableStandsForTheFramework) {
  const fs::path kit = signedApp() / "Contents/Frameworks/Kit.framework";
  for (const char* name : {"Kit", "Versions/A/Kit", "Versions/Current/Kit"})
    EXPECT_EQ(verifyCode(kit / name).status, 0) << name << verifyCode(kit / name).text;
  writeFile(kit / "Versions/A/Resources/added", viewOf("x"));
  EXPECT_EQ(verifyCode(kit / "Versions/A/Kit").status, 1);
}

TEST_F(Programs, AFrameworksLinksMayNameTheVersionItself) {
  const fs::path app = signedApp();
  const fs::path kit = app / "Contents/Frameworks/Kit.framework";
  const auto relink = [&](const char* name, const char* target) {
    fs::remove(kit / name);
    fs::create_symlink(target, kit / name);
  };
  relink("Kit", "Versions/A/Kit");
  relink("Resources", "./Versions/Current/Resources");
  relink("Versions/Current", "./A");
  EXPECT_EQ(verifyCode(app).status, 0) << verifyCode(app).text;
}

TEST_F(Programs, AFlatBundlesMainExecutableStandsForTheBundle) {
  workshop.write("Flat.bundle/Info.plist",
                 viewOf("<plist><dict><key>CFBundleExecutable</key><string>Flat</string></dict></plist>"));
  const fs::path executable = workshop.machO("Flat.bundle/Flat");
  const fs::path data = workshop.write("Flat.bundle/data", viewOf("x"));
  workshop.sign(workshop.folder() / "Flat.bundle");
  EXPECT_EQ(verifyCode(executable).status, 0) << verifyCode(executable).text;
  flipByte(data, 0);
  expectRefused(executable, "a sealed resource has been modified: data");
}

TEST_F(Programs, ADesignatedRequirementThatCantBeReadIsSaidAndDoesntCount) {
  const fs::path file = workshop.machO("code");
  workshop.sign(file);
  // Gives the operation an unknown number and corrects the digests that cover the requirements.
  const Bytes good = contentOf(file);
  const auto limit = static_cast<std::size_t>(readMachO(good).value().front().signatureOffset);
  const auto blobs = readBlobIndex(ByteView(good).subspan(limit), kSuperBlobMagic).value();
  Bytes set = copyOf(blobs.at(kRequirementsSlot));
  const std::size_t operation = set.size() - blobs.at(kRequirementsSlot).size() + 20 + 12;
  ASSERT_EQ(be32(set, operation), 6U) << "and";
  set[operation + 3] = 99;
  Bytes directory = copyOf(blobs.at(kCodeDirectorySlot));
  const auto hashes = static_cast<std::ptrdiff_t>(be32(directory, 16).value());
  std::ranges::copy(digestOf(HashType::sha256, set).bytes(), directory.begin() + hashes - 2 * 32);
  directory[15] |= kAdHocFlag;
  const Bytes signature = superBlobOf({{kCodeDirectorySlot, directory}, {kRequirementsSlot, set}});
  ASSERT_LE(signature.size(), good.size() - limit);
  Bytes changed = good;
  std::ranges::copy(signature, changed.begin() + static_cast<std::ptrdiff_t>(limit));
  writeFile(file, changed);
  const ProgramResult result = verifyCode(file);
  EXPECT_EQ(result.status, 0) << result.text;
  EXPECT_THAT(result.text,
              HasSubstr("designated Requirement can't be evaluated here (compiled requirement uses "
                        "the unsupported operation 99)"));
  EXPECT_THAT(result.text, Not(HasSubstr("satisfies its Designated Requirement")));
}

TEST_F(Programs, TheRequirementComesInOneArgumentOrInTwo) {
  const std::string app = signedApp().string();
  const std::string requirement = "=anchor apple generic and certificate leaf[subject.OU] = KELOTEAM01";
  EXPECT_EQ(codesign({"--verify", "--strict", "-vv", "-R", requirement, app}).status, 0);
  EXPECT_EQ(codesign({"--verify", "--strict", "-vv", "-R" + requirement, app}).status, 0);
  EXPECT_EQ(codesign({"--verify", "--test-requirement=" + requirement, app}).status, 0);
  const fs::path file = workshop.write("requirement.txt", viewOf("anchor apple generic"));
  EXPECT_EQ(codesign({"--verify", "-R", file.string(), app}).status, 0);
}

TEST_F(Programs, ARequirementMayAskForWhatInfoPlistSays) {
  const std::string app = signedApp().string();
  EXPECT_EQ(codesign({"--verify", "-R", "=info[CFBundleIdentifier] = test.app", app}).status, 0);
  EXPECT_EQ(codesign({"--verify", "-R", "=info[CFBundleIdentifier] = test.other", app}).status, 3);
  EXPECT_EQ(codesign({"--verify", "-R", "=info[CFBundleVersion] absent", app}).status, 0);
}

TEST_F(Programs, AnotherTeamIsAnUnmetRequirement) {
  const fs::path app = signedApp();
  const ProgramResult result = verifyTeam(app, "OTHERTEAM0");
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.text, HasSubstr("failed to satisfy specified code requirement(s)"));
  workshop.sign(app, LeafKind::wrongTeam);
  EXPECT_EQ(verifyCode(app).status, 0);
  EXPECT_EQ(verifyTeam(app).status, 3);
  EXPECT_EQ(verifyTeam(app, kWrongTeam).status, 0);
}

TEST_F(Programs, ATeamThatBreaksTheRequirementsSyntaxIsAUsageError) {
  const fs::path app = signedApp();
  for (const char* team :
       {"KELO TEAM01", "KELOTEAM01 X", "KELO\"TEAM01", "\"KELOTEAM01", "KELO'TEAM", "", "KELOTEAM01 and"}) {
    const ProgramResult result = verifyTeam(app, team);
    EXPECT_EQ(result.status, 2) << team << ": " << result.text;
  }
}

TEST_F(Programs, AnInvalidSignatureOutweighsAnUnmetRequirement) {
  const fs::path app = signedApp();
  workshop.write("A.app/Contents/Resources/added", viewOf("x"));
  EXPECT_EQ(verifyTeam(app, "OTHERTEAM0").status, 1);
}

TEST_F(Programs, UsageErrors) {
  const std::string app = signedApp().string();
  const std::vector<std::vector<std::string>> lines{{},
                                                    {"--verify"},
                                                    {app},
                                                    {"--verify", "--nonsense", app},
                                                    {"--verify", "-d", app},
                                                    {"-dvv", "--verify", app},
                                                    {"--verify", "-R", "=", app},
                                                    {"--verify", "-R", "", app},
                                                    {"--verify", "-R", "=always", "-R", "=always", app},
                                                    {"--verify", "-R"},
                                                    {"--verify", "-R", "=anchor", app},
                                                    {"--verify", "-R", "/no/such/file", app},
                                                    {"--verify", "--verbose=", app},
                                                    {"--verify", "--verbose=4x", app},
                                                    {"--verify", "--verbose=-1", app},
                                                    {"--sign", "x", app}};
  for (const auto& line : lines) EXPECT_EQ(codesign(line).status, 2) << testing::PrintToString(line);
  EXPECT_EQ(codesign({"--help"}).status, 0);
  EXPECT_EQ(spctl({"--help"}).status, 0);
}

TEST_F(Programs, WhatIsntThereOrNotSignedIsInvalid) {
  expectRefused(workshop.folder() / "missing", "No such file");
  expectRefused(workshop.app("U.app"), "code object is not signed at all");
  expectRefused(workshop.app("S.app", MainExecutable::script), "code object is not signed at all");
  expectRefused(workshop.machO("plain"), "code object is not signed at all");
  expectRefused(workshop.diskImage("plain.dmg"), "code object is not signed at all");
  expectRefused(workshop.write("text", viewOf("hello")), "code object is not signed at all");
  expectRefused(workshop.write("empty", {}), "code object is not signed at all");
  expectRefused(workshop.write("folder/file", {}).parent_path(), "not a bundle");
}

TEST_F(Programs, APipeOrADeviceIsRefusedUnopened) {
  const fs::path pipe = workshop.folder() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  expectRefused(pipe, "not a regular file");
  const fs::path app = signedApp();
  fs::rename(pipe, app / "Contents/Resources/pipe");
  expectRefused(app, "neither file, folder nor link: Resources/pipe");
}

TEST_F(Programs, DisplayShowsWhoSignedWhat) {
  SigningOptions options = bothDigests();
  options.flags = 0x10000;
  const fs::path file = workshop.machO("code");
  workshop.sign(file, options);
  const ProgramResult shown = codesign({"-d", "-vv", file.string()});
  EXPECT_EQ(shown.status, 0);
  for (const char* line : {"Identifier=code\n", "Format=Mach-O thin (arm64)\n", "flags=0x10000(runtime)",
                           "CandidateCDHash sha1=", "CandidateCDHash sha256=", "\nCDHash=",
                           "Authority=Developer ID Application: Tests (KELOTEAM01)\n",
                           "Authority=Tests Root\n", "Timestamp=", "TeamIdentifier=KELOTEAM01\n",
                           "Trust=test authority \"Tests Root\" named by linux_host.json"}) {
    EXPECT_THAT(shown.text, HasSubstr(line));
  }
  EXPECT_EQ(codesign({"-d", "--verbose=2", file.string()}).text, shown.text);
  EXPECT_EQ(codesign({"-d", "--verbose=4", file.string()}).text, shown.text);
  EXPECT_THAT(codesignWithoutHostFile({"-dvv", file.string()}).text, HasSubstr("Trust=not proven ("));
  EXPECT_EQ(codesign({"-d", workshop.machO("unsigned").string()}).status, 1);
}

TEST_F(Programs, TheSigningProgramMakesAuthoritiesCodeAndSignatures) {
  const fs::path sign = SIGNATURE_TESTS_LAB_SIGN;
  const std::string authority = std::string(SIGNATURE_TESTS_HOST) + "/trusting/authority";
  const std::string file = (workshop.folder() / "made").string();
  ASSERT_EQ(runProgram(sign, {"make-macho", file, "--arch", "x86_64,arm64", "--type", "dylib"}).status, 0);
  const std::pair<const char*, int> rows[] = {
      {"valid", 0},           {"unstamped", 0},         {"ad-hoc", 0},
      {"self-signed", 1},     {"wrong-team", 0},        {"expired", 1},
      {"expired-stamped", 0}, {"expired-unstamped", 0}, {"not-yet-valid", 1}};
  for (const auto& [variant, status] : rows) {
    const ProgramResult done = runProgram(
        sign, {"sign", "--authority", authority, "--variant", variant, "--digests", "sha1,sha256", file});
    ASSERT_EQ(done.status, 0) << variant << done.text;
    EXPECT_EQ(verifyCode(file).status, status) << variant << verifyCode(file).text;
  }
  EXPECT_EQ(runProgram(sign, {}).status, 2);
  EXPECT_EQ(runProgram(sign, {"--help"}).status, 0);
  EXPECT_EQ(runProgram(sign, {"sign", "--authority", authority, "--variant", "nonsense", file}).status, 2);
  EXPECT_EQ(runProgram(sign, {"sign", "--authority", "/nowhere", file}).status, 1);
}

}  // namespace
}  // namespace lab

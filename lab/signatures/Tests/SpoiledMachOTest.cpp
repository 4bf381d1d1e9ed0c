// Mach-O files with a changed byte in each hashed region, and slices that don't match.
#include "MachO.h"
#include "SuperBlob.h"
#include "Support/Programs.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

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
  // The message digest in the signed attributes is the digest of the code directory.
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

}  // namespace
}  // namespace lab

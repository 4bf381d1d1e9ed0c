// Writes valid inputs, one folder per fuzzer, into the folder of the variable FUZZING_SEEDS.
#include <cstdlib>
#include <gtest/gtest.h>

#include "MachO.h"
#include "RequirementBlob.h"
#include "SuperBlob.h"
#include "Support/Workshop.h"
#include "Targets.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

class FuzzingSeeds : public testing::Test {
 protected:
  void SetUp() override {
    const char* folder = std::getenv("FUZZING_SEEDS");
    if (folder == nullptr) GTEST_SKIP() << "FUZZING_SEEDS names no folder";
    seeds = folder;
    fs::remove_all(seeds);
  }

  void plant(const char* fuzzer, const char* name, ByteView seed) const {
    fs::create_directories(seeds / fuzzer);
    writeFile(seeds / fuzzer / name, seed);
  }

  void plantParts(const Bytes& machO) const {
    const ByteView signature = *readMachO(machO).value().front().signature;
    const Bytes superBlob = copyOf(signature.first(be32(signature, 4).value()));
    plant("SuperBlob", "signed", superBlob);
    const auto blobs = readBlobIndex(superBlob, kSuperBlobMagic).value();
    plant("CMS", "signed", blobs.at(kSignatureSlot).subspan(8));
    const ByteView set = blobs.at(kRequirementsSlot);
    plant("RequirementBlob", "set", set);
    plant("RequirementBlob", "designated", findRequirement(set, kDesignatedType).value().value());
  }

  fs::path seeds;
  Workshop workshop;
};

TEST_F(FuzzingSeeds, AreGood) {
  const Anchors anchors = testAnchors();
  SigningOptions options;
  options.digests = {HashType::sha1, HashType::sha256};
  options.entitlements = copyOf(viewOf("<plist><dict><key>e</key><true/></dict></plist>"));
  options.time = std::chrono::sys_seconds(std::chrono::seconds(1700000000));
  MachOPlan plan;
  plan.infoPlist = copyOf(viewOf("<plist><dict/></plist>"));
  const fs::path thin = workshop.machO("thin", plan);
  const fs::path universal = workshop.universal("universal");
  const fs::path image = workshop.diskImage("image.dmg", 3000);
  const fs::path app = workshop.app("A.app");
  for (const fs::path& path : {thin, universal, image, app}) workshop.sign(path, options);
  ASSERT_TRUE(tryMachO(contentOf(thin), anchors));
  ASSERT_TRUE(tryMachO(contentOf(universal), anchors));
  ASSERT_TRUE(tryDiskImage(contentOf(image), anchors));
  plant("MachO", "thin", contentOf(thin));
  plant("MachO", "universal", contentOf(universal));
  plant("DiskImage", "signed", contentOf(image));
  plantParts(contentOf(thin));
  const Bytes resources = contentOf(app / "Contents/_CodeSignature/CodeResources");
  ASSERT_TRUE(CodeResources::read(resources));
  plant("CodeResources", "app", resources);
  plant("PropertyList", "xml", resources);
  plant("PropertyList", "binary", kBinaryPropertyList);
  plant("PropertyList", "quoted comment", kQuotedComment);
  plant("RequirementText", "every operation",
        viewOf("anchor apple generic and (certificate leaf[subject.OU] = \"AB\"* or not cdhash "
               "H\"0011223344556677889900112233445566778899\") and info[x] >= 2 and identifier 0x6162"));
}

}  // namespace
}  // namespace lab

// Bounded, repeatable mutations of valid inputs. None may crash (this also runs under the sanitizers), and
// none with changed sealed bytes may be valid.
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <random>

#include "ImageTrailer.h"
#include "MachO.h"
#include "RequirementBlob.h"
#include "RequirementText.h"
#include "ResourceSealer.h"
#include "SuperBlob.h"
#include "Support/Workshop.h"
#include "Targets.h"

namespace lab {
namespace {

class Mutator {
 public:
  explicit Mutator(unsigned seed) : random_(seed) {}

  Bytes mutate(Bytes bytes, std::size_t from = 0) {
    const std::size_t times = 1 + below(4);
    for (std::size_t i = 0; i < times && bytes.size() > from + 8; ++i) once(bytes, from);
    return bytes;
  }

 private:
  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
  }

  void once(Bytes& bytes, std::size_t from) {
    const std::size_t at = from + below(bytes.size() - from - 4);
    static constexpr std::array<std::uint32_t, 8> kExtremes{0,          1,          0x7fffffff, 0x80000000,
                                                            0xffffffff, 0xfffffff0, 0x100,      0x10000};
    switch (below(6)) {
      case 0: bytes[at] ^= static_cast<std::uint8_t>(1U << below(8)); return;
      case 1: bytes[at] = static_cast<std::uint8_t>(below(256)); return;
      case 2: bytes.resize(at); return;
      case 3: bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), below(16), 0xff); return;
      case 4:
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(from + below(bytes.size() - from - 4)), 4,
                    bytes.begin() + static_cast<std::ptrdiff_t>(at));
        return;
      default: {
        const std::uint32_t value = kExtremes[below(kExtremes.size())];
        for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
      }
    }
  }

  std::mt19937 random_;
};

constexpr unsigned kRounds = 1500;

void mutate(const Bytes& good, const std::function<void(ByteView)>& attempt, std::size_t from = 0) {
  for (unsigned seed = 0; seed < kRounds; ++seed) attempt(Mutator(seed).mutate(good, from));
}

Bytes signedMachO(const Workshop& workshop) {
  const auto file = workshop.machO("code");
  SigningOptions options;
  options.digests = {HashType::sha1, HashType::sha256};
  options.time = std::chrono::sys_seconds(std::chrono::seconds(1700000000));
  workshop.sign(file, options);
  return contentOf(file);
}

TEST(HostileInput, AMutatedMachOFileNeverCountsAsTheGoodOne) {
  const Workshop workshop;
  const Bytes good = signedMachO(workshop);
  const Anchors anchors = testAnchors();
  ASSERT_TRUE(tryMachO(good, anchors));
  const auto limit = static_cast<std::size_t>(readMachO(good).value().front().signatureOffset);
  const auto attempt = [&](ByteView input) {
    const bool isUntouched = startsWith(input, ByteView(good).first(limit));
    EXPECT_TRUE(isUntouched || !tryMachO(input, anchors));
  };
  mutate(good, attempt);
  mutate(good, attempt, limit);  // the signature only
  Bytes header = good;
  header.resize(0x200);
  mutate(header, attempt);  // the load commands only
}

TEST(HostileInput, AMutatedImageNeverCountsAsTheGoodOne) {
  const Workshop workshop;
  const auto file = workshop.diskImage("I.dmg");
  SigningOptions options;
  options.time = std::chrono::sys_seconds(std::chrono::seconds(1700000000));
  workshop.sign(file, options);
  const Bytes good = contentOf(file);
  const Anchors anchors = testAnchors();
  ASSERT_TRUE(tryDiskImage(good, anchors));
  const auto limit = static_cast<std::size_t>(readImageTrailer(good).value().signatureOffset);
  mutate(
      good,
      [&](ByteView input) {
        const bool isUntouched = startsWith(input, ByteView(good).first(limit));
        EXPECT_TRUE(isUntouched || !tryDiskImage(input, anchors));
      },
      limit);
}

TEST(HostileInput, SignatureParts) {
  const Workshop workshop;
  const Bytes file = signedMachO(workshop);
  const ByteView signature = *readMachO(file).value().front().signature;
  const Bytes superBlob = copyOf(signature.first(be32(signature, 4).value()));
  mutate(superBlob, [](ByteView input) { trySuperBlob(input); });
  const auto blobs = readBlobIndex(superBlob, kSuperBlobMagic).value();
  const Anchors anchors = testAnchors();
  mutate(copyOf(blobs.at(kSignatureSlot).subspan(8)), [&](ByteView input) { tryCMS(input, anchors); });
  mutate(copyOf(blobs.at(kRequirementsSlot)), [](ByteView input) { tryRequirementBlob(input); });
  const ByteView set = blobs.at(kRequirementsSlot);
  mutate(copyOf(findRequirement(set, kDesignatedType).value().value()),
         [](ByteView input) { tryRequirementBlob(input); });
}

TEST(HostileInput, CodeResourcesAndPropertyLists) {
  const Workshop workshop;
  const auto app = workshop.app("A.app");
  workshop.sign(app);
  const Bytes seals = contentOf(app / "Contents/_CodeSignature/CodeResources");
  mutate(seals, [](ByteView input) { tryCodeResources(input); });
  mutate(kBinaryPropertyList, [](ByteView input) { tryPropertyList(input); });
}

TEST(HostileInput, TextsOfPeople) {
  const std::string requirement =
      "anchor apple generic and (certificate leaf[subject.OU] = \"AB\"* or not cdhash "
      "H\"0011223344556677889900112233445566778899\") and info[x] >= 2";
  ASSERT_TRUE(parseRequirement(requirement));
  mutate(copyOf(viewOf(requirement)), [](ByteView input) { tryRequirementText(input); });
}

TEST(HostileInput, ManySlicesOfOneRegionAreRefused) {
  const Bytes slice = makeMachO({});
  Bytes file{0xca, 0xfe, 0xba, 0xbe, 0, 0, 0, 31};
  for (std::uint8_t i = 0; i < 31; ++i)
    file.insert(file.end(), {1, 0, 0, 12, 0, 0, 0, i, 0, 0, 0x40, 0, 0, 0, 0x40, 0x20, 0, 0, 0, 14});
  file.resize(0x4000);
  file.insert(file.end(), slice.begin(), slice.end());
  EXPECT_FALSE(readMachO(file));
}

}  // namespace
}  // namespace lab
